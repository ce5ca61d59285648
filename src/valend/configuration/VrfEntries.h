// The status entries of the configured VRFs: publishes them, follows their namespaces, and retries a
// VRF that the library could not set up. Errors are raised as the condition "vrf/NAME".
//
//   - The namespace of an entry never changes in place: the entry is removed and added again.
//   - An entry is active only while its namespace can be opened and no other VRF uses the namespace.
//     Two names can refer to the same namespace; the VRF whose name sorts first uses it.
//   - A namespace that cannot be used is looked at again, after pauses that grow from 1 s to 5 s: what
//     prevented it may have been short, and the text of its condition is to be true.
//   - The default VRF has no entry. An entry that is not active would remove its record for good.
#pragma once

#include "platform/gantry/TaskScheduler.h"
#include "valend/base/Conditions.h"
#include "valend/kernel/Namespaces.h"
#include "valend/store/Store.h"

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>

namespace Valend {

class VrfEntries {
 public:
   // Sets the default VRF up again: removes and adds what makes the library create its record.
   using RenewDefault = std::function< void() >;

   // All references must outlive this.
   VrfEntries( Store & store, Namespaces const & namespaces,
               Quill::Ptr< Gantry::TaskScheduler > scheduler, Conditions & conditions,
               RenewDefault renewDefault );
   ~VrfEntries();
   VrfEntries( VrfEntries const & ) = delete;
   VrfEntries & operator=( VrfEntries const & ) = delete;

   // Publishes entries for VRFs that have none; `netNss` maps each name to its namespace.
   void add( std::map< std::string, std::string > const & netNss );
   // Removes the entry of the VRF, its retry and its condition.
   void remove( std::string const & vrf );

   // The namespace was created or deleted, or was replaced by another one of the same name.
   void namespaceChanged( std::string const & netNs );

   // The library could not set the VRF up. It is retried after a pause that grows from 1 s to 60 s.
   // May be called inside a notification.
   void failed( std::string const & vrf, std::string const & why );

   // The same for the VRF of that namespace.
   void namespaceFailed( std::string const & netNs, std::string const & why );

   // Why the VRF does not work; empty when it does.
   std::string error( std::string const & vrf ) const;
   // Whether interfaces of the default VRF can be published: its namespace can be used.
   bool defaultUsable() const noexcept { return default_.error.empty(); }
   // Whether the namespace of the VRF does not exist.
   bool namespaceMissing( std::string const & vrf ) const;

 private:
   struct Vrf {
      std::string netNs;
      NamespaceView view;
      std::string owner; // of the namespace, when that is another VRF
   };
   struct Health;

   std::string namespaceError( std::string const & vrf ) const;
   void renew( std::set< std::string > vrfs );
   std::set< std::string > ownersUpdate();
   void publish( std::string const & vrf );
   void retry( std::string const & vrf );
   NamespaceView & viewOf( std::string const & vrf );
   void attemptBegins( std::string const & vrf );
   void attemptEnds( std::string const & vrf );
   Health & healthOf( std::string const & vrf );

   Store & store_;
   Namespaces const & namespaces_;
   Quill::Ptr< Gantry::TaskScheduler > const scheduler_;
   Conditions & conditions_;
   RenewDefault const renewDefault_;
   NamespaceView default_; // of the default VRF's namespace
   std::map< std::string, Vrf > vrfs_;
   std::map< std::string, std::unique_ptr< Health > > health_; // of VRFs that had an error
};

} // namespace Valend
