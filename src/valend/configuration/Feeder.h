// The only writer of configuration entities. Applies a configuration as a difference to the previous
// one, in an order in which the library allows every state on the way.
//
//   - The configuration entity of an interface is never exchanged, and its "supported" flag never
//     changes in place: the entity is removed and added again.
//   - A message is filled before it is published and never emptied; a changed one is a new entity.
//   - The directory of an agent has exactly one message directory, "messages".
//   - The status entries of VRFs follow the rules of VrfEntries.h.
//   - When the last message of an interface is removed, or anything but its messages changes, its L3
//     status is removed before and added after, so that nothing stays bound to the old record.
//
// Never called inside a notification.
#pragma once

#include "settings/Config.h"
#include "valend/configuration/VrfEntries.h"
#include "valend/store/Store.h"

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

   // Applies `config`, which must be valid. What it does not change is not disturbed.
   void apply( Settings::Config config );
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
   struct Difference;

   Difference differenceTo( Settings::Config const & next ) const;

   void remove( Difference const & difference, Settings::Config const & next );
   void agentsRemove( Settings::Config const & next );
   void interfaceRemove( Settings::InterfaceConfig const & interface,
                         Settings::Config const & next );
   void l3Remove( std::string const & interface );

   void add( Difference const & difference );
   void agentsAdd( Settings::Config const & before );
   void messagesAdd( std::string const & agent,
                     std::map< std::string, Settings::Frames > const & messages,
                     std::map< std::string, Settings::Frames > const * before );
   void interfaceAdd( Settings::InterfaceConfig const & interface );
   void l3Add( std::string const & interface );
   void globalAdd();

   void defaultVrfRenew();

   Store & store_;
   Settings::Config config_;
   VrfEntries vrfs_;
};

} // namespace Valend
