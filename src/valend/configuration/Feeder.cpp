#include "valend/configuration/Feeder.h"

namespace Valend {

using Valen::Config::Agent::Message;
using Valen::Config::Agent::MessageDir;

// What is removed from the store, and added again if it is still configured, on the way to the next
// configuration.
struct Feeder::Difference {
   std::set< std::string > interfaces; // their L3 status
   std::set< std::string > vrfs;       // their status entry
};

namespace {

// The interfaces for which at least one agent has frames in both configurations.
std::set< std::string > interfacesThatKeepFrames( Settings::Config const & before,
                                                  Settings::Config const & next ) {
   std::set< std::string > keeping;
   for ( auto const & [ agent, messages ] : before.agents ) {
      auto const found = next.agents.find( agent );
      if ( found == next.agents.end() ) {
         continue;
      }
      for ( auto const & [ interface, frames ] : messages ) {
         if ( found->second.contains( interface ) ) {
            keeping.insert( interface );
         }
      }
   }
   return keeping;
}

Quill::Ptr< Message > messageOf( std::string const & interface, Settings::Frames const & frames ) {
   auto const message = Quill::make< Message >( Corvid::IntfId( interface ) );
   for ( auto const & frame : frames ) {
      message->messageEnq( frame );
   }
   return message;
}

} // namespace

Feeder::Feeder( Store & store, Namespaces const & namespaces,
                Quill::Ptr< Gantry::TaskScheduler > scheduler, Conditions & conditions )
    : store_( store ), vrfs_( store, namespaces, std::move( scheduler ), conditions,
                              [ this ] { defaultVrfRenew(); } ) {
   // The flag survives a crash, and the library does not start while it is set.
   store_.statusDir->agentActiveIs( false );
}

void Feeder::apply( Settings::Config next ) {
   auto const difference = differenceTo( next );
   remove( difference, next );
   auto const before = std::exchange( config_, std::move( next ) );
   for ( auto const & [ name, interface ] : config_.interfaces ) {
      interfaceAdd( interface );
   }
   agentsAdd( before );
   add( difference );
   globalAdd();
}

Feeder::Difference Feeder::differenceTo( Settings::Config const & next ) const {
   Difference difference;
   for ( auto const & [ vrf, netNs ] : config_.vrfs ) {
      auto const found = next.vrfs.find( vrf );
      if ( found == next.vrfs.end() || found->second != netNs ) {
         difference.vrfs.insert( vrf );
      }
   }
   for ( auto const & [ vrf, netNs ] : next.vrfs ) {
      if ( !config_.vrfs.contains( vrf ) ) {
         difference.vrfs.insert( vrf );
      }
   }
   auto const keeping = interfacesThatKeepFrames( config_, next );
   for ( auto const & [ name, interface ] : config_.interfaces ) {
      auto const found = next.interfaces.find( name );
      bool const losesFrames = config_.hasFrames( name ) && !keeping.contains( name );
      if ( found == next.interfaces.end() || found->second != interface || losesFrames ||
           difference.vrfs.contains( interface.vrf ) ) {
         difference.interfaces.insert( name );
      }
   }
   for ( auto const & [ name, interface ] : next.interfaces ) {
      if ( !config_.interfaces.contains( name ) ) {
         difference.interfaces.insert( name );
      }
   }
   return difference;
}

// --- Removing, consumers before what they depend on ----------------------------------------------

void Feeder::remove( Difference const & difference, Settings::Config const & next ) {
   if ( !next.shutdownDelayMs ) {
      store_.configDir->globalConfigIs( nullptr );
   }
   for ( auto const & interface : difference.interfaces ) {
      l3Remove( interface );
   }
   agentsRemove( next );
   for ( auto const & vrf : difference.vrfs ) {
      vrfs_.remove( vrf );
   }
   for ( auto const & [ name, interface ] : config_.interfaces ) {
      interfaceRemove( interface, next );
   }
}

void Feeder::agentsRemove( Settings::Config const & next ) {
   for ( auto const & [ agent, messages ] : config_.agents ) {
      auto const found = next.agents.find( agent );
      if ( found == next.agents.end() ) {
         store_.agentConfigDir->entryDel( agent );
         continue;
      }
      auto const dir = store_.messageDir( agent );
      for ( auto const & [ interface, frames ] : messages ) {
         if ( !found->second.contains( interface ) ) {
            dir->messageDel( interface );
         }
      }
   }
}

void Feeder::interfaceRemove( Settings::InterfaceConfig const & interface,
                              Settings::Config const & next ) {
   auto const found = next.interfaces.find( interface.name );
   bool const isConfigured = found != next.interfaces.end();
   if ( !isConfigured || found->second.shutdownDelay != interface.shutdownDelay ) {
      store_.allIntfConfigDir->intfConfigDel( interface.name );
   }
   if ( !isConfigured ) {
      store_.allIntfStatusLocalDir->intfStatusLocalDel( interface.name );
      store_.allIntfStatusDir->intfStatusDel( interface.name );
   }
}

void Feeder::l3Remove( std::string const & interface ) {
   store_.l3IntfStatusDir->intfStatusDel( interface );
}

// --- Adding, in the opposite order ---------------------------------------------------------------

void Feeder::interfaceAdd( Settings::InterfaceConfig const & interface ) {
   Corvid::IntfId const intfId( interface.name );
   store_.allIntfStatusDir->intfStatusIs( intfId )->deviceNameIs( interface.device );
   store_.allIntfStatusLocalDir->intfStatusLocalIs( intfId )->netNsNameIs(
      config_.netNsOf( interface.vrf ) );
   if ( !store_.allIntfConfigDir->intfConfigHas( intfId ) ) {
      auto const entity = Quill::make< Interface::IntfConfig >( intfId );
      entity->adminShutdownDelaySupportedIs( interface.shutdownDelay );
      entity->adminShutdownDelayableIs( interface.shutdownDelay );
      store_.allIntfConfigDir->intfConfigAdd( entity );
   }
}

void Feeder::agentsAdd( Settings::Config const & before ) {
   for ( auto const & [ agent, messages ] : config_.agents ) {
      auto const found = before.agents.find( agent );
      messagesAdd( agent, messages, found == before.agents.end() ? nullptr : &found->second );
   }
}

void Feeder::messagesAdd( std::string const & agent,
                          std::map< std::string, Settings::Frames > const & messages,
                          std::map< std::string, Settings::Frames > const * before ) {
   auto dir = store_.messageDir( agent );
   bool const isNew = !dir;
   if ( isNew ) {
      dir = Quill::make< MessageDir >();
   }
   for ( auto const & [ interface, frames ] : messages ) {
      auto const same = before ? before->find( interface ) : messages.end();
      if ( !before || same == before->end() || same->second != frames ) {
         dir->messageIs( interface, messageOf( interface, frames ) );
      }
   }
   if ( isNew ) {
      auto const agentDir = Quill::make< Quill::Dir >();
      agentDir->entryIs( "messages", dir );
      store_.agentConfigDir->entryIs( agent, agentDir );
   }
}

void Feeder::add( Difference const & difference ) {
   std::map< std::string, std::string > netNss;
   for ( auto const & vrf : difference.vrfs ) {
      if ( config_.vrfs.contains( vrf ) ) {
         netNss[ vrf ] = config_.netNsOf( vrf );
      }
   }
   vrfs_.add( netNss );
   for ( auto const & interface : difference.interfaces ) {
      if ( config_.interfaces.contains( interface ) ) {
         l3Add( interface );
      }
   }
}

// The default VRF has no entry that could say that it is not active.
void Feeder::l3Add( std::string const & interface ) {
   if ( config_.interfaces.at( interface ).vrf == Settings::defaultVrf && !vrfs_.defaultUsable() ) {
      return;
   }
   auto const status = Quill::make< L3::Intf::Status >( Corvid::IntfId( interface ) );
   status->vrfIs( config_.interfaces.at( interface ).vrf );
   store_.l3IntfStatusDir->intfStatusAdd( status );
}

void Feeder::globalAdd() {
   if ( !config_.shutdownDelayMs ) {
      return;
   }
   store_.globalConfig->shutdownDelayMsIs( *config_.shutdownDelayMs );
   store_.configDir->globalConfigIs( store_.globalConfig );
}

// The record of the default VRF is created and removed with its interfaces.
void Feeder::defaultVrfRenew() {
   for ( auto const step : { &Feeder::l3Remove, &Feeder::l3Add } ) {
      for ( auto const & [ name, interface ] : config_.interfaces ) {
         if ( interface.vrf == Settings::defaultVrf ) {
            ( this->*step )( name );
         }
      }
   }
}

} // namespace Valend
