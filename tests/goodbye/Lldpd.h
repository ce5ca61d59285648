// lldpd as a process in a namespace of the test.
#pragma once

#include "tests/system/DaemonProcess.h"

#include <cstdlib>
#include <nlohmann/json.hpp>

namespace Valen::Test {

// For this process and its children: where lldpd, which is not installed, and its libraries are found.
inline void findLldpd() {
   std::string const directory( LLDPD );
   ASSERT_EQ( ::access( ( directory + "/usr/sbin/lldpd" ).c_str(), X_OK ), 0 )
      << "lldpd is missing in " << directory << "; run: scripts/install-dependencies test";
   ::setenv( "PATH", ( directory + "/usr/sbin:" + std::getenv( "PATH" ) ).c_str(), 1 );
   ::setenv( "LD_LIBRARY_PATH", LLDPD_LIBRARIES, 1 );
}

class Lldpd {
 public:
   // Starts it in `netNs`, with its socket at this path.
   Lldpd( TestNetNs const & netNs, std::string socket )
       : socket_( std::move( socket ) ),
         process_( { "/bin/bash", RUN_LLDPD, LLDPD, netNs.text(), socket_ }, socket_ + ".log" ) {}
   ~Lldpd() { ::unlink( socket_.c_str() ); }

   std::string const & socket() const { return socket_; }
   std::string err() const { return process_.err(); }

   // Whether it has chosen the ids of `device`, and so sends.
   bool knows( std::string const & device ) const {
      auto const answer = ask( "show interfaces ports " + device );
      return answer.find( "\"port\"" ) != std::string::npos;
   }
   // The ids of the neighbor on `device`, as "chassis port"; empty without a neighbor.
   std::string neighbor( std::string const & device ) const {
      auto const interface = about( "show neighbors ports " + device );
      auto const id = [ & ]( std::string const & owner ) {
         auto const & first = interface[ nlohmann::json::json_pointer( "/" + owner + "/0/id/0" ) ];
         return first.value( "type", "" ) + ":" + first.value( "value", "" );
      };
      return interface.is_null() ? "" : id( "chassis" ) + " " + id( "port" );
   }
   // How many frames of LLDP it received on `device`.
   int received( std::string const & device ) const {
      auto const interface = about( "show statistics ports " + device );
      return std::stoi(
         interface.at( nlohmann::json::json_pointer( "/rx/0/rx" ) ).get< std::string >() );
   }
   void configure( std::string const & text ) const { ask( "configure " + text ); }

 private:
   // What it tells about the interface in the answer to `command`; null when it does not.
   nlohmann::json about( std::string const & command ) const {
      auto const answer = nlohmann::json::parse( ask( command ), nullptr, false );
      auto const interface = nlohmann::json::json_pointer( "/lldp/0/interface/0" );
      return !answer.is_discarded() && answer.contains( interface ) ? answer[ interface ]
                                                                    : nlohmann::json();
   }
   std::string ask( std::string const & command ) const {
      auto const output = socket_ + ".answer";
      (void)std::system(
         ( "lldpcli -u " + socket_ + " -f json0 " + command + " >" + output + " 2>/dev/null" )
            .c_str() );
      return contentOf( output );
   }

   std::string const socket_;
   Process process_;
};

} // namespace Valen::Test
