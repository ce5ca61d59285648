// The only writer of configuration entities. Applies a configuration as a difference to the previous
// one, in an order in which the library allows every state on the way.
//
//   - The configuration entity of an interface is never exchanged, and its "supported" flag never
//     changes in place: the entity is removed and added again.
//   - The frames of agents follow the rules of FrameEntries.h, the status entries of VRFs those of VrfEntries.h.
//   - When the last message of an interface is removed, or anything but its messages and its goodbyes changes, its
//     L3 status is removed before and added after, so that nothing stays bound to the old record.
//
// A large configuration is applied in steps, between which the loop does other work. On the way, config() is what
// the store has: every interface is, with its frames, either as before or as after. First the interfaces that
// change their device or VRF, or lose them, are withdrawn from the library one after the other. Then config() has the
// new places of all of them at once, so that no device ever belongs to two. Then come the VRFs, and at last the
// interfaces, each of which is set right in one step.
//
// Never called inside a notification.
#pragma once

#include "valend/configuration/FrameEntries.h"
#include "valend/configuration/Plan.h"
#include "valend/configuration/VrfEntries.h"
#include "valend/store/Store.h"

#include <functional>
#include <map>
#include <set>
#include <string>

namespace Valend {

class Feeder {
 public:
   // All references must outlive the feeder.
   Feeder( Store & store, Namespaces const & namespaces,
           Quill::Ptr< Gantry::TaskScheduler > scheduler, Conditions & conditions );
   Feeder( Feeder const & ) = delete;
   Feeder & operator=( Feeder const & ) = delete;

   // Frames for an interface besides those of the configuration, by agent. No agent has both.
   using Additional = std::function< FrameEntries::ByAgent( std::string const & interface ) >;
   void additionalIs( Additional additional ) { additional_ = std::move( additional ); }

   // Applies `config`, which must be valid, in one go. What it does not change is not disturbed.
   void apply( Settings::Config config );
   // Begins to apply `plan`, whose configuration must be valid. Requires that none is being applied. Call step()
   // until it returns false.
   void begin( PlanPtr plan );
   // Takes a small step. Returns whether more are left.
   bool step();
   bool applying() const noexcept { return phase_ != Phase::done; }
   // Applies what has changed in the additional frames for the interface. While a configuration is being applied, its
   // turn may still come.
   void framesChanged( std::string const & interface );

   // What is in the store.
   Settings::Config const & config() const noexcept { return config_; }

   // The namespace was created or deleted, or was replaced by another one of the same name.
   void namespaceChanged( std::string const & name ) { vrfs_.namespaceChanged( name ); }
   // The library could not set the VRF up: see VrfEntries. May be called inside a notification.
   void vrfFailed( std::string const & vrf, std::string const & why ) { vrfs_.failed( vrf, why ); }
   // The same, by the VRF's namespace.
   void namespaceFailed( std::string const & netNs, std::string const & why ) {
      vrfs_.namespaceFailed( netNs, why );
   }

   // Why the VRF does not work; empty when it does.
   std::string vrfError( std::string const & vrf ) const { return vrfs_.error( vrf ); }
   // Whether the namespace of the VRF does not exist.
   bool namespaceMissing( std::string const & vrf ) const { return vrfs_.namespaceMissing( vrf ); }

 private:
   enum class Phase : U8 { withdrawing, removingVrfs, addingVrfs, interfaces, agents, done };

   void next( Phase phase );
   bool leavesItsPlace( Settings::InterfaceConfig const & interface ) const;

   void withdrawNext();
   void placesSwitch();
   void vrfRemoveNext();
   void vrfAddNext();
   void interfaceNext();
   void agentNext();
   void finish();

   void interfaceIs( std::string const & name );
   FrameEntries::ByAgent wantedFrames( std::string const & interface ) const;
   void entitiesRemove( std::string const & name, Settings::InterfaceConfig const * wanted );
   void entitiesAdd( Settings::InterfaceConfig const & interface );
   void l3Remove( std::string const & interface );
   void l3Add( Settings::InterfaceConfig const & interface );

   void defaultVrfRenew();

   Store & store_;
   Additional additional_;
   Settings::Config config_;
   FrameEntries frames_;
   VrfEntries vrfs_;

   PlanPtr plan_; // never null
   Phase phase_ = Phase::done;
   std::string cursor_;                // the name that was handled last in this phase
   std::set< std::string > vrfsLeft_;  // to be removed, or added, in this phase
   std::set< std::string > newVrfs_;   // to be added
   std::set< std::string > withdrawn_; // interfaces that are to be set right in this application
};

} // namespace Valend
