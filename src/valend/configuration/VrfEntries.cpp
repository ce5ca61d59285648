#include "valend/configuration/VrfEntries.h"

#include "platform/gantry/Backoff.h"
#include "platform/gantry/Timer.h"
#include "settings/Config.h"

namespace Valend {

// What went wrong with a VRF, and when it is retried.
struct VrfEntries::Health {
   Health( Conditions & conditions, std::string const & vrf,
           Quill::Ptr< Gantry::TaskScheduler > scheduler, std::function< void() > retry )
       : condition( conditions, "vrf/" + vrf ),
         timer( std::move( scheduler ), "vrfRetry", std::move( retry ) ) {}

   Condition condition;
   std::string failure; // of the library, in the last attempt; empty when there was none
   Gantry::Backoff pause{ std::chrono::seconds( 1 ), std::chrono::minutes( 1 ) };
   Gantry::Backoff lookPause{ std::chrono::seconds( 1 ), std::chrono::seconds( 5 ) };
   Gantry::Timer timer;
};

VrfEntries::VrfEntries( Store & store, Namespaces const & namespaces,
                        Quill::Ptr< Gantry::TaskScheduler > scheduler, Conditions & conditions,
                        RenewDefault renewDefault )
    : store_( store ), namespaces_( namespaces ), scheduler_( std::move( scheduler ) ),
      conditions_( conditions ), renewDefault_( std::move( renewDefault ) ) {}

VrfEntries::~VrfEntries() = default;

void VrfEntries::add( std::map< std::string, std::string > const & netNss ) {
   default_ = namespaces_.look( Settings::defaultVrf );
   attemptEnds( Settings::defaultVrf );
   std::set< std::string > added;
   for ( auto const & [ vrf, netNs ] : netNss ) {
      vrfs_[ vrf ] = { netNs, namespaces_.look( netNs ), "" };
      added.insert( vrf );
   }
   renew(
      std::move( added ) ); // also when none was added: a removed VRF may have freed a namespace
}

void VrfEntries::remove( std::string const & vrf ) {
   store_.allVrfStatusLocal->vrfDel( vrf );
   vrfs_.erase( vrf );
   health_.erase( vrf );
}

void VrfEntries::namespaceChanged( std::string const & netNs ) {
   std::set< std::string > changed;
   for ( auto & [ vrf, state ] : vrfs_ ) {
      if ( state.netNs == netNs ) {
         state.view = namespaces_.look( netNs );
         changed.insert( vrf ); // even if it looks the same: what was bound to it may be stale
      }
   }
   if ( !changed.empty() ) {
      renew( std::move( changed ) );
   }
}

// --- Errors --------------------------------------------------------------------------------------

std::string VrfEntries::namespaceError( std::string const & vrf ) const {
   if ( vrf == Settings::defaultVrf ) {
      return default_.error;
   }
   auto const found = vrfs_.find( vrf );
   if ( found == vrfs_.end() ) {
      return std::string();
   }
   auto const & [ netNs, view, owner ] = found->second;
   if ( !view.error.empty() || owner.empty() ) {
      return view.error;
   }
   return "namespace \"" + netNs + "\" is already used by VRF \"" + owner + "\"";
}

std::string VrfEntries::error( std::string const & vrf ) const {
   auto const error = namespaceError( vrf );
   auto const health = health_.find( vrf );
   return error.empty() && health != health_.end() ? health->second->failure : error;
}

bool VrfEntries::namespaceMissing( std::string const & vrf ) const {
   auto const found = vrfs_.find( vrf );
   return found != vrfs_.end() && found->second.view.missing;
}

VrfEntries::Health & VrfEntries::healthOf( std::string const & vrf ) {
   auto & health = health_[ vrf ];
   if ( !health ) {
      health = std::make_unique< Health >( conditions_, vrf, scheduler_,
                                           [ this, vrf ] { retry( vrf ); } );
   }
   return *health;
}

void VrfEntries::failed( std::string const & vrf, std::string const & why ) {
   if ( vrf != Settings::defaultVrf && !vrfs_.contains( vrf ) ) {
      return;
   }
   auto & health = healthOf( vrf );
   health.failure = why;
   health.condition.raise( error( vrf ) );
   if ( !health.timer.running() ) { // the library tries each VRF twice while it starts
      health.timer.start( health.pause.take() );
   }
}

void VrfEntries::namespaceFailed( std::string const & netNs, std::string const & why ) {
   if ( netNs == Settings::defaultVrf ) {
      return failed( Settings::defaultVrf, why );
   }
   for ( auto const & [ vrf, state ] : vrfs_ ) {
      if ( state.netNs == netNs && state.owner.empty() ) {
         return failed( vrf, why );
      }
   }
}

// --- Attempts ------------------------------------------------------------------------------------

void VrfEntries::renew( std::set< std::string > vrfs ) {
   vrfs.merge( ownersUpdate() );
   for ( auto const & vrf : vrfs ) {
      attemptBegins( vrf );
   }
   for ( auto const & vrf : vrfs ) { // all are removed before the first is added, so that no two
      store_.allVrfStatusLocal->vrfDel( vrf ); // use the same namespace at any time
   }
   for ( auto const & vrf : vrfs ) {
      publish( vrf );
   }
   for ( auto const & vrf : vrfs ) {
      attemptEnds( vrf );
   }
}

// Decides which VRF uses a namespace that several refer to. Returns those for which that changed.
std::set< std::string > VrfEntries::ownersUpdate() {
   std::set< std::string > changed;
   std::map< std::string, std::string > owners{ { default_.identity, Settings::defaultVrf } };
   for ( auto & [ vrf, state ] : vrfs_ ) {
      std::string owner;
      if ( !state.view.identity.empty() ) {
         auto const [ first, isFirst ] = owners.emplace( state.view.identity, vrf );
         owner = isFirst ? "" : first->second;
      }
      if ( owner != state.owner ) {
         state.owner = owner;
         changed.insert( vrf );
      }
   }
   return changed;
}

void VrfEntries::publish( std::string const & vrf ) {
   auto const status = Quill::make< Ip::VrfStatusLocal >( L3::VrfName( vrf ) );
   status->networkNamespaceIs( vrfs_.at( vrf ).netNs );
   status->stateIs( namespaceError( vrf ).empty() ? Ip::VrfState::active
                                                  : Ip::VrfState::initializing );
   store_.allVrfStatusLocal->vrfAdd( status );
}

NamespaceView & VrfEntries::viewOf( std::string const & vrf ) {
   return vrf == Settings::defaultVrf ? default_ : vrfs_.at( vrf ).view;
}

// Only a VRF that failed, or whose namespace looks different, is disturbed.
void VrfEntries::retry( std::string const & vrf ) {
   bool const isDefault = vrf == Settings::defaultVrf;
   auto & health = healthOf( vrf );
   auto & view = viewOf( vrf );
   auto const before =
      std::exchange( view, namespaces_.look( isDefault ? vrf : vrfs_.at( vrf ).netNs ) );
   if ( view == before && health.failure.empty() ) {
      return health.timer.start( health.lookPause.take() );
   }
   if ( !isDefault ) {
      return renew( { vrf } );
   }
   attemptBegins( vrf );
   renewDefault_();
   attemptEnds( vrf );
}

void VrfEntries::attemptBegins( std::string const & vrf ) {
   auto const health = health_.find( vrf );
   if ( health != health_.end() ) {
      health->second->failure.clear();
      health->second->timer.stop(); // this attempt is the retry
   }
}

// Only now is the outcome known: the library calls failed() in the middle of an attempt.
void VrfEntries::attemptEnds( std::string const & vrf ) {
   auto const text = error( vrf );
   if ( text.empty() && !health_.contains( vrf ) ) {
      return;
   }
   auto & health = healthOf( vrf );
   if ( text != health.condition.text() ) {
      health.lookPause.reset();
   }
   health.condition.update( text );
   if ( health.failure.empty() ) {
      health.pause.reset();
   }
   if ( !namespaceError( vrf ).empty() && !health.timer.running() ) {
      health.timer.start( health.lookPause.take() );
   }
}

} // namespace Valend
