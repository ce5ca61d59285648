// The status of many hosts.
#include "valenctl/database/HostCommands.h"
#include "valenctl/text/StatusText.h"

#include <algorithm>
#include <ostream>

namespace Valenctl {

namespace {

// The interfaces of a host as a list, or only the one of this name.
Json interfacesOf( Host const & host, std::string const & name ) {
   auto list = Json::array();
   for ( auto const & [ key, interface ] : host.interfaces ) {
      if ( name.empty() || key == name ) {
         list.push_back( interface.interface );
      }
   }
   return list;
}

} // namespace

Exit reportStale( Output const & output, std::vector< Host > const & hosts ) {
   auto exit = Exit::done;
   for ( auto const & host : hosts ) {
      if ( host.stale ) {
         output.err << "valenctl: " << staleText( host ) << '\n';
         exit = Exit::notConnected;
      }
   }
   return exit;
}

Exit statusOfHosts( HostSession const & session, std::string const & interface ) {
   auto hosts = findHosts( session.client, session.hosts );
   readInterfaces( session.client, hosts );
   auto const rejected = readRejected( session.client, hosts );
   auto documents = Json::array();
   bool found = interface.empty();
   for ( std::size_t i = 0; i < hosts.size(); ++i ) {
      auto document = documentOf( hosts[ i ] );
      document[ "interfaces" ] = interfacesOf( hosts[ i ], interface );
      document[ "rejected" ] = rejected[ i ];
      found = found || !document[ "interfaces" ].empty();
      documents.push_back( std::move( document ) );
   }
   if ( !found ) {
      throw NoSuchChoice( "interface \"" + interface + "\" is not configured on any of the hosts" );
   }
   Json const answer = { { "hosts", std::move( documents ) } };
   session.output.out << ( session.output.json()
                              ? indented( answer ) + "\n"
                              : hostsText( answer, session.output.terminal.palette ) );
   return reportStale( session.output, hosts );
}

} // namespace Valenctl
