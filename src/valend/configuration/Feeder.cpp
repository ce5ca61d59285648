#include "valend/configuration/Feeder.h"

#include "platform/gantry/Backoff.h"

namespace Valend {

using Valen::Config::Agent::Message;
using Valen::Config::Agent::MessageDir;

// A VRF that is to be tried again.
struct Feeder::Retry {
   Retry( Quill::Ptr< Gantry::TaskScheduler > scheduler, std::function< void() > work )
       : timer( std::move( scheduler ), "vrfRetry", std::move( work ) ) {}

   Gantry::Backoff pause{ std::chrono::seconds( 1 ), std::chrono::minutes( 1 ) };
   Gantry::Timer timer;
   std::string why;
};

// What has to leave the store, and come back, on the way to the next configuration.
struct Feeder::Difference {
   std::set< std::string > interfaces; // whose L3 status goes out and in
   std::set< std::string > vrfs;       // whose status entry goes out and in
};

namespace {

// The interfaces that keep at least one agent's frames, changed or not, on the way from one
// configuration to the next.
std::set< std::string > interfacesWithLastingFrames( Settings::Config const & before,
                                                     Settings::Config const & next ) {
   std::set< std::string > lasting;
   for ( auto const & [ agent, messages ] : before.agents ) {
      auto const found = next.agents.find( agent );
      if ( found == next.agents.end() ) {
         continue;
      }
      for ( auto const & [ interface, frames ] : messages ) {
         if ( found->second.contains( interface ) ) {
            lasting.insert( interface );
         }
      }
   }
   return lasting;
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
                Quill::Ptr< Gantry::TaskScheduler > scheduler )
    : store_( store ), namespaces_( namespaces ), scheduler_( std::move( scheduler ) ),
      ownIdentity_( namespaces.look( Settings::defaultVrf ).identity ) {
   // The flag outlives a crash, and while it is up the library does not start.
   store_.statusDir->agentActiveIs( false );
}

Feeder::~Feeder() = default;

void Feeder::apply( Settings::Config next ) {
   auto const difference = differenceTo( next );
   takeOut( difference, next );
   auto const before = std::exchange( config_, std::move( next ) );
   for ( auto const & [ name, interface ] : config_.interfaces ) {
      interfaceIn( interface );
   }
   agentsIn( before );
   putIn( difference );
   globalIn();
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
   auto const lasting = interfacesWithLastingFrames( config_, next );
   for ( auto const & [ name, interface ] : config_.interfaces ) {
      auto const found = next.interfaces.find( name );
      bool const framesGo = config_.hasFrames( name ) && !lasting.contains( name );
      if ( found == next.interfaces.end() || found->second != interface || framesGo ||
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

// --- Out, from the consumers' side to the suppliers' ---------------------------------------------

void Feeder::takeOut( Difference const & difference, Settings::Config const & next ) {
   if ( !next.shutdownDelayMs ) {
      store_.configDir->globalConfigIs( nullptr );
   }
   for ( auto const & interface : difference.interfaces ) {
      l3Out( interface );
   }
   agentsOut( next );
   for ( auto const & vrf : difference.vrfs ) {
      vrfOut( vrf );
   }
   for ( auto const & [ name, interface ] : config_.interfaces ) {
      auto const found = next.interfaces.find( name );
      bool const gone = found == next.interfaces.end();
      interfaceOut( interface, gone,
                    gone || found->second.shutdownDelay != interface.shutdownDelay );
   }
}

void Feeder::agentsOut( Settings::Config const & next ) {
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

void Feeder::interfaceOut( Settings::InterfaceConfig const & interface, bool forGood,
                           bool configToo ) {
   if ( configToo ) {
      store_.allIntfConfigDir->intfConfigDel( interface.name );
   }
   if ( forGood ) {
      store_.allIntfStatusLocalDir->intfStatusLocalDel( interface.name );
      store_.allIntfStatusDir->intfStatusDel( interface.name );
   }
}

void Feeder::l3Out( std::string const & interface ) {
   store_.l3IntfStatusDir->intfStatusDel( interface );
}

void Feeder::vrfOut( std::string const & vrf ) {
   store_.allVrfStatusLocal->vrfDel( vrf );
   vrfs_.erase( vrf );
   retries_.erase( vrf );
}

// --- In, the other way round ---------------------------------------------------------------------

void Feeder::interfaceIn( Settings::InterfaceConfig const & interface ) {
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

void Feeder::agentsIn( Settings::Config const & before ) {
   for ( auto const & [ agent, messages ] : config_.agents ) {
      auto const found = before.agents.find( agent );
      messagesIn( agent, messages, found == before.agents.end() ? nullptr : &found->second );
   }
}

void Feeder::messagesIn( std::string const & agent,
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

void Feeder::putIn( Difference const & difference ) {
   std::set< std::string > vrfs;
   for ( auto const & vrf : difference.vrfs ) {
      if ( config_.vrfs.contains( vrf ) ) {
         vrfs_[ vrf ].view = namespaces_.look( config_.netNsOf( vrf ) );
         vrfs.insert( vrf );
      }
   }
   vrfsRenew( std::move( vrfs ) );
   for ( auto const & interface : difference.interfaces ) {
      if ( config_.interfaces.contains( interface ) ) {
         l3In( interface );
      }
   }
}

void Feeder::l3In( std::string const & interface ) {
   auto const status = Quill::make< L3::Intf::Status >( Corvid::IntfId( interface ) );
   status->vrfIs( config_.interfaces.at( interface ).vrf );
   store_.l3IntfStatusDir->intfStatusAdd( status );
}

void Feeder::globalIn() {
   if ( !config_.shutdownDelayMs ) {
      return;
   }
   bool const isNew = !store_.configDir->globalConfig();
   if ( isNew ) {
      globalConfig_ = Quill::make< Valen::Config::GlobalConfig >();
   }
   globalConfig_->shutdownDelayMsIs( *config_.shutdownDelayMs );
   if ( isNew ) {
      store_.configDir->globalConfigIs( globalConfig_ );
   }
}

// --- VRFs and their namespaces -------------------------------------------------------------------

std::string Feeder::namespaceTrouble( std::string const & vrf ) const {
   auto const found = vrfs_.find( vrf );
   if ( found == vrfs_.end() ) {
      return std::string();
   }
   auto const & [ view, conflict ] = found->second;
   if ( !view.trouble.empty() || conflict.empty() ) {
      return view.trouble;
   }
   return "namespace \"" + config_.netNsOf( vrf ) + "\" is VRF \"" + conflict + "\"'s too";
}

std::string Feeder::vrfTrouble( std::string const & vrf ) const {
   auto const trouble = namespaceTrouble( vrf );
   auto const retry = retries_.find( vrf );
   return trouble.empty() && retry != retries_.end() ? retry->second->why : trouble;
}

bool Feeder::namespaceMissing( std::string const & vrf ) const {
   auto const found = vrfs_.find( vrf );
   return found != vrfs_.end() && found->second.view.missing;
}

void Feeder::namespaceChanged( std::string const & name ) {
   std::set< std::string > changed;
   for ( auto & [ vrf, state ] : vrfs_ ) {
      if ( config_.netNsOf( vrf ) == name ) {
         state.view = namespaces_.look( name );
         changed.insert( vrf ); // also when it looks the same: what was bound to it may not be
      }
   }
   if ( !changed.empty() ) {
      vrfsRenew( std::move( changed ) );
   }
}

void Feeder::vrfsRenew( std::set< std::string > vrfs ) {
   // Two names can stand for one namespace. The VRF that comes first by name has it, others wait.
   std::map< std::string, std::string > owners{ { ownIdentity_, Settings::defaultVrf } };
   for ( auto & [ vrf, state ] : vrfs_ ) {
      std::string conflict;
      if ( !state.view.identity.empty() ) {
         auto const [ owner, isOwner ] = owners.emplace( state.view.identity, vrf );
         conflict = isOwner ? "" : owner->second;
      }
      if ( conflict != state.conflict ) {
         state.conflict = conflict;
         vrfs.insert( vrf );
      }
   }
   for ( auto const & vrf : vrfs ) { // all out before the first is in, so that no two share
      store_.allVrfStatusLocal->vrfDel( vrf );
   }
   for ( auto const & vrf : vrfs ) {
      auto const status = Quill::make< Ip::VrfStatusLocal >( L3::VrfName( vrf ) );
      status->networkNamespaceIs( config_.netNsOf( vrf ) );
      status->stateIs( namespaceTrouble( vrf ).empty() ? Ip::VrfState::active
                                                       : Ip::VrfState::initializing );
      store_.allVrfStatusLocal->vrfAdd( status );
   }
}

void Feeder::vrfFailed( std::string const & vrf, std::string const & why ) {
   if ( vrf != Settings::defaultVrf && !config_.vrfs.contains( vrf ) ) {
      return;
   }
   auto & retry = retries_[ vrf ];
   if ( !retry ) {
      retry = std::make_unique< Retry >( scheduler_, [ this, vrf ] { vrfRetry( vrf ); } );
   }
   retry->why = why;
   if ( !retry->timer.running() ) { // the library tries a VRF twice while it starts
      retry->timer.start( retry->pause.take() );
   }
}

void Feeder::vrfRetry( std::string const & vrf ) {
   auto & retry = *retries_.at( vrf );
   retry.why.clear();
   if ( vrf ==
        Settings::defaultVrf ) { // has no entry; its record goes and comes with its interfaces
      defaultVrfRenew();
   } else {
      vrfsRenew( { vrf } );
   }
   if ( retry.why.empty() ) {
      retry.pause.reset();
   }
}

void Feeder::defaultVrfRenew() {
   for ( auto const step : { &Feeder::l3Out, &Feeder::l3In } ) {
      for ( auto const & [ name, interface ] : config_.interfaces ) {
         if ( interface.vrf == Settings::defaultVrf ) {
            ( this->*step )( name );
         }
      }
   }
}

} // namespace Valend
