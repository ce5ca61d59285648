// Runs an independent dissector on frames.
#pragma once

#include "tests/derivation/Frames.h"
#include "tests/support/WorkDirectory.h"

#include <cstdlib>
#include <sstream>

namespace Derivation::Test {

// What the dissector complains about, a line for each frame; empty for valid frames.
inline std::vector< std::string > complaints( std::vector< std::string > const & frames ) {
   auto const little = []( std::size_t value ) {
      auto const big = number( value, 4 );
      return std::string( big.rbegin(), big.rend() );
   };
   constexpr std::size_t ethernetLink = 1, snapshotBytes = 65535;
   auto content =
      hex( "d4c3b2a1 0200 0400 .... ...." ) + little( snapshotBytes ) + little( ethernetLink );
   for ( auto const & frame : frames ) {
      content +=
         little( 0 ) + little( 0 ) + little( frame.size() ) + little( frame.size() ) + frame;
   }
   Valen::Test::WorkDirectory work;
   work.write( "frames.pcap", content );
   auto const command = "tshark -n -r " + work / "frames.pcap" +
                        " -o eth.padding:Any -o ip.check_checksum:TRUE -o udp.check_checksum:TRUE"
                        " -T fields -E separator=/s -e _ws.expert.message -e _ws.malformed >" +
                        work / "lines" + " 2>" + work / "errors";
   EXPECT_EQ( std::system( command.c_str() ), 0 ) << work.content( "errors" );
   std::vector< std::string > lines;
   std::istringstream all( work.content( "lines" ) );
   for ( std::string line; std::getline( all, line ); ) {
      lines.push_back( line.erase( line.find_last_not_of( ' ' ) + 1 ) );
   }
   return lines;
}

} // namespace Derivation::Test
