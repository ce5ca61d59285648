#include "valenctl/Names.h"

#include "valenctl/command/Session.h"
#include "valenctl/database/Hosts.h"
#include "valenctl/frame/DeviceAddresses.h"

#include <filesystem>
#include <map>
#include <set>

namespace Valenctl {

namespace {

using Candidates = std::vector< Candidate >;

Candidates interfaces( Session & session ) {
   Candidates names;
   for ( auto const & interface : listField( session.call( "Status" ), "interfaces" ) ) {
      names.push_back(
         { textField( interface, "name" ), "device " + textField( interface, "device" ) + ", VRF " +
                                              textField( interface, "vrf" ) } );
   }
   return names;
}

Candidates vrfs( Session & session ) {
   Candidates names;
   for ( auto const & vrf : listField( session.call( "Status" ), "vrfs" ) ) {
      names.push_back( { textField( vrf, "name" ), "namespace " + textField( vrf, "namespace" ) } );
   }
   return names;
}

// The devices of valend's interfaces. Several interfaces may have devices of the same name.
Candidates devices( Session & session ) {
   std::map< std::string, std::string > interfaces;
   for ( auto const & interface : listField( session.call( "Status" ), "interfaces" ) ) {
      auto & all = interfaces[ textField( interface, "device" ) ];
      all += ( all.empty() ? "" : ", " ) + textField( interface, "name" );
   }
   Candidates names;
   for ( auto const & [ device, all ] : interfaces ) {
      names.push_back( { device, "device of " + all } );
   }
   return names;
}

// Those whose frames a client has queued, and can replace or withdraw.
Candidates agents( Session & session ) {
   std::map< std::string, std::string > interfaces;
   for ( auto const & message : listField( session.call( "ListMessages" ), "messages" ) ) {
      auto const lifetime = textField( message, "lifetime" );
      if ( lifetime == "kept" || lifetime == "connection" ) {
         auto & all = interfaces[ textField( message, "agent" ) ];
         all += ( all.empty() ? "" : ", " ) + textField( message, "interface" );
      }
   }
   Candidates names;
   for ( auto const & [ agent, all ] : interfaces ) {
      names.push_back( { agent, "frames for " + all } );
   }
   return names;
}

Candidates localDevices( std::string const & netNs ) {
   Candidates names;
   for ( auto const & device : deviceNames( netNs ) ) {
      names.push_back( { device, netNs.empty() ? "device" : "device in " + netNs } );
   }
   return names;
}

Candidates namespaces() {
   std::set< std::string > sorted;
   for ( auto const & entry : std::filesystem::directory_iterator( "/run/netns" ) ) {
      sorted.insert( entry.path().filename() );
   }
   Candidates names;
   for ( auto const & name : sorted ) {
      names.push_back( { name, "network namespace" } );
   }
   return names;
}

} // namespace

std::vector< Candidate > names( Completion::Also kind, Session & session,
                                std::string const & netNs ) {
   using enum Completion::Also;
   try {
      switch ( kind ) {
      case interfaces:
         return Valenctl::interfaces( session );
      case vrfs:
         return Valenctl::vrfs( session );
      case devices:
         return Valenctl::devices( session );
      case agents:
         return Valenctl::agents( session );
      case localDevices:
         return Valenctl::localDevices( netNs );
      case namespaces:
         return Valenctl::namespaces();
      case nothing:
      case hosts:
      case files: // the shell knows them better
         break;
      }
   } catch ( std::exception const & ) {
   }
   return {};
}

std::vector< Candidate > namesInDatabase( Completion::Also kind, std::string const & url ) {
   try {
      DatabaseClient client( url, std::chrono::seconds( 1 ) );
      auto found = findHosts( client, {} );
      Candidates names;
      if ( kind == Completion::Also::hosts ) {
         for ( auto const & host : found ) {
            names.push_back( { host.name, host.stale ? "stale" : "alive" } );
         }
      } else if ( kind == Completion::Also::interfaces ) {
         readInterfaces( client, found );
         std::map< std::string, std::string > hostsOf;
         for ( auto const & host : found ) {
            for ( auto const & interface : host.interfaces ) {
               auto & all = hostsOf[ interface.first ];
               all += ( all.empty() ? "" : ", " ) + host.name;
            }
         }
         for ( auto const & [ name, all ] : hostsOf ) {
            names.push_back( { name, "on " + all } );
         }
      }
      return names;
   } catch ( std::exception const & ) {
      return {};
   }
}

} // namespace Valenctl
