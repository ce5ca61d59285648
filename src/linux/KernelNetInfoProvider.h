// Publishes the devices of namespaces at the mount paths "kni/ns/NAME/status".
//
// A namespace that cannot be watched has a status without devices whose `error` says why. It mends
// itself: the provider looks again after growing pauses, and at once when told to refresh.
#pragma once

#include "linux/EventLoop.h"
#include "linux/NetNs.h"
#include "platform/orrery/EntityManager.h"
#include "types/KernelNetInfo.h"

#include <map>
#include <memory>

namespace Valen::Linux {

class KernelNetInfoProvider final : public Orrery::MountProvider {
 public:
   static constexpr char const * prefix = "kni/ns/"; // for EntityManager::mountProviderIs

   // `loop` must outlive the provider.
   explicit KernelNetInfoProvider( EventLoop & loop, NetNsFolders folders = NetNsFolders() );
   ~KernelNetInfoProvider() override;

   // The KernelNetInfo::Status of the namespace that the path names; null for any other path. The
   // devices come in from the loop. Never throws for a namespace that cannot be watched.
   Quill::Ptr< Quill::Entity > mount( std::string_view path ) override;
   // Stops watching. The status that was handed out empties and stays.
   void unmount( std::string_view path ) override;

   // The namespace appeared, went, or was made anew under the same name: looks at it again. No
   // effect when it is not mounted.
   void refresh( Corvid::NamespaceName const & name );

   // The published status; null when the namespace is not mounted.
   Quill::Ptr< KernelNetInfo::Status > status( Corvid::NamespaceName const & name ) const noexcept;

   // "kni/ns/ns-blue/status"
   static std::string path( Corvid::NamespaceName const & name );

 private:
   struct Entry;

   static std::optional< Corvid::NamespaceName > nameIn( std::string_view path );
   void watch( Entry & entry );
   void drop( Entry & entry, Quill::String error );

   EventLoop & loop_;
   NetNsFolders const folders_;
   std::map< Corvid::NamespaceName, std::shared_ptr< Entry > > entries_;
};

} // namespace Valen::Linux
