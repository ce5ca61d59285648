// Waiting for an interface of many hosts.
#include "valenctl/database/HostCommands.h"

#include "database/Keys.h"

#include <algorithm>
#include <ostream>

namespace Valenctl {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds betweenLooks{ 100 };

bool isReached( Json const & interface, std::string const & until ) {
   if ( until == "ready" ) {
      return flagField( interface, "ready" );
   }
   if ( until == "idle" ) {
      return !flagField( interface, "shuttingDown" );
   }
   return textField( interface, "link" ) == until;
}

// Reads one interface of each host. One that is not there is a null.
std::vector< Json > readOne( DatabaseClient & client, std::vector< Host > & hosts,
                             std::string const & interface ) {
   readAlive( client, hosts );
   std::vector< DatabaseClient::Command > commands;
   for ( auto const & host : hosts ) {
      commands.push_back(
         { "HGETALL", keyOf( host, std::string( Database::Names::status ) + interface ) } );
   }
   std::vector< Json > interfaces;
   for ( auto const & reply : client.ask( commands ) ) {
      interfaces.push_back( interfaceOf( interface, reply ).interface );
   }
   return interfaces;
}

// The hosts on which the state is not reached, and why: an empty text if it is reached on all.
std::string missingText( std::vector< Host > const & hosts, std::vector< Json > const & interfaces,
                         std::string const & name, std::string const & until ) {
   std::string text;
   for ( std::size_t i = 0; i < hosts.size(); ++i ) {
      auto const & host = hosts[ i ];
      if ( !host.stale && interfaces[ i ].is_null() ) {
         throw NoSuchChoice( host.name + ": interface \"" + name + "\" is not configured" );
      }
      if ( host.stale ) {
         text += ( text.empty() ? "" : "; " ) + staleText( host );
      } else if ( !isReached( interfaces[ i ], until ) ) {
         text += ( text.empty() ? "" : "; " ) + host.name + " " + name + " is not " + until;
      }
   }
   return text;
}

void print( Output const & output, std::vector< Host > const & hosts,
            std::vector< Json > const & interfaces ) {
   auto documents = Json::array();
   for ( std::size_t i = 0; i < hosts.size(); ++i ) {
      documents.push_back( { { "host", hosts[ i ].name },
                             { "stale", hosts[ i ].stale },
                             { "interface", interfaces[ i ] } } );
   }
   output.out << indented( { { "hosts", documents } } ) << '\n';
}

} // namespace

Exit waitForHosts( HostSession const & session, std::string const & interface,
                   std::string const & until ) {
   auto & client = session.client;
   auto hosts = findHosts( client, session.hosts );
   auto const timeout = client.timeout();
   for ( auto const end = Clock::now() + timeout;; ) {
      auto const interfaces = readOne( client, hosts, interface );
      auto const missing = missingText( hosts, interfaces, interface, until );
      bool const late = timeout.count() && Clock::now() >= end;
      if ( ( missing.empty() || late ) && session.output.json() ) {
         print( session.output, hosts, interfaces );
      }
      if ( missing.empty() ) {
         return Exit::done;
      }
      if ( late ) {
         session.output.err << "valenctl: timed out: " << missing << '\n';
         return Exit::timedOut;
      }
      client.pause( betweenLooks );
   }
}

} // namespace Valenctl
