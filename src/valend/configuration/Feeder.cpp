#include "valend/configuration/Feeder.h"

#include "platform/quill/Assert.h"

#include <initializer_list>
#include <optional>

namespace Valend {

namespace {

template < class Map > auto const * find( Map const & map, std::string const & key ) {
   auto const found = map.find( key );
   return found == map.end() ? nullptr : &found->second;
}

// The key after `key`, in order; null at the end.
template < class Map > std::string const * keyAfter( Map const & map, std::string const & key ) {
   auto const found = map.upper_bound( key );
   return found == map.end() ? nullptr : &found->first;
}
std::string const * keyAfter( std::set< std::string > const & set, std::string const & key ) {
   auto const found = set.upper_bound( key );
   return found == set.end() ? nullptr : &*found;
}

// Whether the library would see a difference. It knows nothing of goodbyes.
bool differForLibrary( Settings::InterfaceConfig const & old, Settings::InterfaceConfig wanted ) {
   wanted.goodbyes = old.goodbyes;
   return wanted != old;
}

// The first in order; nothing when all are null.
std::optional< std::string > first( std::initializer_list< std::string const * > names ) {
   std::optional< std::string > least;
   for ( auto const * const name : names ) {
      if ( name && ( !least || *name < *least ) ) {
         least = *name;
      }
   }
   return least;
}

} // namespace

Feeder::Feeder( Store & store, Namespaces const & namespaces,
                Quill::Ptr< Gantry::TaskScheduler > scheduler, Conditions & conditions )
    : store_( store ), frames_( store, config_.agents ),
      vrfs_( store, namespaces, std::move( scheduler ), conditions,
             [ this ] { defaultVrfRenew(); } ),
      plan_( std::make_shared< Plan const >() ) {
   // The flag survives a crash, and the library does not start while it is set.
   store_.statusDir->agentActiveIs( false );
}

void Feeder::apply( Settings::Config config ) {
   begin( std::make_shared< Plan const >( std::move( config ) ) );
   while ( step() ) {
   }
}

// --- Steps ---------------------------------------------------------------------------------------

void Feeder::begin( PlanPtr plan ) {
   VALEN_ASSERT( !applying() );
   plan_ = std::move( plan );
   auto const & wanted = plan_->config();
   if ( !wanted.shutdownDelayMs ) {
      store_.configDir->globalConfigIs( nullptr );
      config_.shutdownDelayMs.reset();
   }
   next( Phase::withdrawing );
   newVrfs_.clear();
   for ( auto const & [ vrf, netNs ] : config_.vrfs ) {
      auto const * const found = find( wanted.vrfs, vrf );
      if ( !found || *found != netNs ) {
         vrfsLeft_.insert( vrf );
      }
   }
   for ( auto const & [ vrf, netNs ] : wanted.vrfs ) {
      if ( vrfsLeft_.contains( vrf ) || !config_.vrfs.contains( vrf ) ) {
         newVrfs_.insert( vrf );
      }
   }
}

void Feeder::next( Phase phase ) {
   phase_ = phase;
   cursor_.clear(); // no name is empty
}

bool Feeder::step() {
   switch ( phase_ ) {
   case Phase::withdrawing:
      withdrawNext();
      break;
   case Phase::removingVrfs:
      vrfRemoveNext();
      break;
   case Phase::addingVrfs:
      vrfAddNext();
      break;
   case Phase::interfaces:
      interfaceNext();
      break;
   case Phase::agents:
      agentNext();
      break;
   case Phase::done:
      break;
   }
   return applying();
}

bool Feeder::leavesItsPlace( Settings::InterfaceConfig const & interface ) const {
   auto const * const wanted = find( plan_->config().interfaces, interface.name );
   return !wanted || wanted->device != interface.device || wanted->vrf != interface.vrf ||
          vrfsLeft_.contains( interface.vrf );
}

void Feeder::withdrawNext() {
   auto const * const name = keyAfter( config_.interfaces, cursor_ );
   if ( !name ) {
      placesSwitch();
      return next( Phase::removingVrfs );
   }
   cursor_ = *name;
   if ( leavesItsPlace( config_.interfaces.at( cursor_ ) ) ) {
      l3Remove( cursor_ );
      withdrawn_.insert( cursor_ );
   }
}

void Feeder::placesSwitch() {
   auto const & wanted = plan_->config();
   config_.vrfs = wanted.vrfs;
   for ( auto const & name : withdrawn_ ) {
      if ( auto const * const interface = find( wanted.interfaces, name ) ) {
         config_.interfaces[ name ] = *interface;
      } else {
         config_.interfaces.erase( name );
      }
   }
}

void Feeder::vrfRemoveNext() {
   if ( vrfsLeft_.empty() ) {
      return next( Phase::addingVrfs );
   }
   auto const vrf = *vrfsLeft_.begin();
   vrfsLeft_.erase( vrfsLeft_.begin() );
   vrfs_.remove( vrf );
   if ( vrfsLeft_.empty() && newVrfs_.empty() ) {
      vrfs_.add( {} ); // another VRF may use its namespace now
   }
}

void Feeder::vrfAddNext() {
   if ( newVrfs_.empty() ) {
      return next( Phase::interfaces );
   }
   auto const vrf = *newVrfs_.begin();
   newVrfs_.erase( newVrfs_.begin() );
   vrfs_.add( { { vrf, config_.vrfs.at( vrf ) } } );
}

void Feeder::interfaceNext() {
   auto const name =
      first( { keyAfter( config_.interfaces, cursor_ ),
               keyAfter( plan_->config().interfaces, cursor_ ), keyAfter( withdrawn_, cursor_ ) } );
   if ( !name ) {
      return next( Phase::agents );
   }
   cursor_ = *name;
   interfaceIs( cursor_ );
}

// Those without any frames: the others came, and went, with their frames.
void Feeder::agentNext() {
   auto const name =
      first( { keyAfter( config_.agents, cursor_ ), keyAfter( plan_->config().agents, cursor_ ) } );
   if ( !name ) {
      return finish();
   }
   cursor_ = *name;
   if ( plan_->config().agents.contains( cursor_ ) ) {
      frames_.agentAdd( cursor_ );
   } else if ( config_.agents.at( cursor_ ).empty() ) {
      frames_.agentDel( cursor_ );
   }
}

void Feeder::finish() {
   auto const & wanted = plan_->config();
   config_.process = wanted.process;
   config_.goodbyes = wanted.goodbyes;
   config_.shutdownDelayMs = wanted.shutdownDelayMs;
   if ( wanted.shutdownDelayMs ) {
      store_.globalConfig->shutdownDelayMsIs( *wanted.shutdownDelayMs );
      store_.configDir->globalConfigIs( store_.globalConfig );
   }
   withdrawn_.clear();
   next( Phase::done );
}

// --- One interface -------------------------------------------------------------------------------

void Feeder::framesChanged( std::string const & interface ) {
   if ( phase_ >= Phase::interfaces ) { // before that, its VRF may not be there
      interfaceIs( interface );
   }
}

// Makes the interface, and its frames, what is wanted now. Consumers are removed before what they depend on, and
// added after it.
void Feeder::interfaceIs( std::string const & name ) {
   auto const * const old = find( config_.interfaces, name );
   auto const * const wanted = find( plan_->config().interfaces, name );
   auto const frames = wanted ? wantedFrames( name ) : FrameEntries::ByAgent();
   bool const l3Renewed = !old || !wanted || differForLibrary( *old, *wanted ) ||
                          withdrawn_.contains( name ) || frames_.losesAll( name, frames );
   if ( l3Renewed ) {
      l3Remove( name );
   }
   frames_.remove( name, frames, plan_->config().agents );
   entitiesRemove( name, wanted );
   if ( wanted ) {
      config_.interfaces.insert_or_assign( name, *wanted );
      entitiesAdd( *wanted );
      frames_.add( name, frames );
   } else {
      config_.interfaces.erase( name );
   }
   withdrawn_.erase( name );
   if ( l3Renewed && wanted ) {
      l3Add( *wanted );
   }
}

FrameEntries::ByAgent Feeder::wantedFrames( std::string const & interface ) const {
   auto frames = additional_ ? additional_( interface ) : FrameEntries::ByAgent();
   for ( auto const & [ agent, configured ] : plan_->framesFor( interface ) ) {
      frames.insert_or_assign( agent, configured );
   }
   return frames;
}

void Feeder::entitiesRemove( std::string const & name, Settings::InterfaceConfig const * wanted ) {
   auto const entity = store_.allIntfConfigDir->intfConfig( name );
   if ( entity && ( !wanted || wanted->shutdownDelay != entity->adminShutdownDelaySupported() ) ) {
      store_.allIntfConfigDir->intfConfigDel( name );
   }
   if ( !wanted ) {
      store_.allIntfStatusLocalDir->intfStatusLocalDel( name );
      store_.allIntfStatusDir->intfStatusDel( name );
   }
}

void Feeder::entitiesAdd( Settings::InterfaceConfig const & interface ) {
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

void Feeder::l3Remove( std::string const & interface ) {
   store_.l3IntfStatusDir->intfStatusDel( interface );
}

// The default VRF has no entry that could say that it is not active.
void Feeder::l3Add( Settings::InterfaceConfig const & interface ) {
   if ( interface.vrf == Settings::defaultVrf && !vrfs_.defaultUsable() ) {
      return;
   }
   auto const status = Quill::make< L3::Intf::Status >( Corvid::IntfId( interface.name ) );
   status->vrfIs( interface.vrf );
   store_.l3IntfStatusDir->intfStatusAdd( status );
}

// The record of the default VRF is created and removed with its interfaces.
void Feeder::defaultVrfRenew() {
   auto const each = [ this ]( auto const & call ) {
      for ( auto const & [ name, interface ] : config_.interfaces ) {
         if ( interface.vrf == Settings::defaultVrf && !withdrawn_.contains( name ) ) {
            call( interface );
         }
      }
   };
   each( [ this ]( auto const & interface ) { l3Remove( interface.name ); } );
   each( [ this ]( auto const & interface ) { l3Add( interface ); } );
}

} // namespace Valend
