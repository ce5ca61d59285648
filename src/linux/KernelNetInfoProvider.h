// Publishes the devices of namespaces at the mount paths "kni/ns/NAME/status".
//
// The status of a namespace that cannot be watched has no devices, and its `error` has the reason. The
// provider tries again after increasing pauses, and at once when refresh() is called.
#pragma once

#include "linux/EventLoop.h"
#include "linux/LinkControl.h"
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
   explicit KernelNetInfoProvider( EventLoop & loop,
                                   NetNsDirectories directories = NetNsDirectories() );
   ~KernelNetInfoProvider() override;

   // Returns the KernelNetInfo::Status of the namespace in the path; null for any other path. The
   // event loop adds the devices. Does not throw if the namespace cannot be watched.
   Quill::Ptr< Quill::Entity > mount( std::string_view path ) override;
   // Stops watching. The returned status remains valid and becomes empty.
   void unmount( std::string_view path ) override;

   // Call this when the namespace was created, deleted or recreated under the same name. No effect if
   // it is not mounted.
   void refresh( Corvid::NamespaceName const & name );

   // The published status; null if the namespace is not mounted.
   Quill::Ptr< KernelNetInfo::Status > status( Corvid::NamespaceName const & name ) const noexcept;

   // The published device of that name; null if it does not exist, or the namespace is not watched.
   Quill::Ptr< KernelNetInfo::Interface > device( Corvid::NamespaceName const & name,
                                                  Quill::Name const & deviceName ) const noexcept;

   // Asks the kernel for the state of a device's link, and never waits for it. Throws
   // Quill::ErrnoException: ENODEV if the index does not exist, or belongs to another name, or the
   // namespace is not watched.
   LinkState state( Corvid::NamespaceName const & name, U32 ifIndex,
                    Quill::Name const & deviceName ) const;

   // "kni/ns/ns-blue/status"
   static std::string path( Corvid::NamespaceName const & name );

 private:
   struct Entry;

   static std::optional< Corvid::NamespaceName > nameIn( std::string_view path );
   void watch( Entry & entry );
   void drop( Entry & entry, Quill::String error );

   EventLoop & loop_;
   NetNsDirectories const directories_;
   std::map< Corvid::NamespaceName, std::shared_ptr< Entry > > entries_;
};

} // namespace Valen::Linux
