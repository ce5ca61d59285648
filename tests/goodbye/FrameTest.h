// Runs `valenctl frame` as a process, and an independent dissector on its frames.
#pragma once

#include "tests/system/DaemonProcess.h"

#include <algorithm>

namespace Valen::Test {

using Texts = std::vector< std::string >;

class FrameTest : public ::testing::Test {
 protected:
   // Runs "valenctl frame" with `arguments`.
   Result frame( Texts arguments ) const {
      arguments.insert( arguments.begin(), { VALENCTL, "frame" } );
      Process command( arguments, work_ / "valenctl" );
      auto const status = command.wait();
      return { status, command.out(), command.err() };
   }

   // The frames of `commands`, as one capture file.
   std::string capture( std::vector< Texts > const & commands ) const {
      constexpr std::size_t fileHeader = 24;
      std::string content;
      for ( auto arguments : commands ) {
         arguments.insert( arguments.end(), { "--pcap", "-" } );
         auto const built = frame( arguments );
         EXPECT_EQ( built.status, 0 ) << built.err;
         EXPECT_EQ( built.err, "" );
         content += content.empty() ? built.out : built.out.substr( fileHeader );
      }
      return content;
   }

   // A line for each frame of `commands`: its length, destination and source, and `fields`, separated by
   // spaces; repeated fields are separated by commas. Fails if the dissector finds an error in a frame.
   // The dissector takes a second to start, so pass many frames at once.
   Texts dissect( std::vector< Texts > const & commands, Texts fields ) const {
      constexpr std::size_t complaints = 2;
      fields.insert( fields.begin(), { "frame.len", "eth.dst", "eth.src" } );
      fields.insert( fields.begin(), complaintFields.begin(), complaintFields.end() );
      auto lines = tshark( capture( commands ), fields );
      for ( auto & line : lines ) {
         EXPECT_EQ( line.substr( 0, complaints ), "  " ) << line;
         line.erase( 0, complaints );
      }
      return lines;
   }

   // The dissector's complaints about each frame of a capture file; empty for valid frames.
   Texts complaints( std::string const & content ) const {
      return tshark( content, complaintFields );
   }

   // The dissector's full output for a capture file.
   std::string details( std::string const & content ) const {
      return tsharkOutput( content, "-V" );
   }

   WorkDirectory work_;

 private:
   static inline Texts const complaintFields{ "_ws.expert.message", "_ws.malformed" };

   Texts tshark( std::string const & content, Texts const & fields ) const {
      std::string options = "-T fields -E separator=/s";
      for ( auto const & field : fields ) {
         options += " -e " + field;
      }
      Texts lines;
      std::istringstream all( tsharkOutput( content, options ) );
      for ( std::string line; std::getline( all, line ); ) {
         line.erase( line.find_last_not_of( ' ' ) + 1 );
         lines.push_back( line );
      }
      return lines;
   }

   // Verifies all checksums.
   std::string tsharkOutput( std::string const & content, std::string const & options ) const {
      auto const pcap = work_ / "frames.pcap";
      auto const output = work_ / "tshark";
      std::ofstream( pcap, std::ios::binary ) << content;
      run( "{ tshark -n -r " + pcap + " -o ip.check_checksum:TRUE -o udp.check_checksum:TRUE " +
           options + " >" + output + " 2>" + output + ".err; } || { cat " + output +
           ".err >&2; false; }" );
      return contentOf( output );
   }
};

} // namespace Valen::Test
