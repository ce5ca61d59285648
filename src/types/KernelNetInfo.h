// KernelNetInfo: the kernel's network devices of one namespace. Published at the
// mount path "kni/ns/NAME/status" by a watcher of the namespace (rtnetlink on Linux).
#pragma once

#include "platform/corvid/NamespaceName.h"
#include "platform/quill/Attributes.h"

namespace KernelNetInfo {

// One network device.
class Interface final : public Quill::Entity {
   QUILL_ENTITY( KernelNetInfo::Interface )
 public:
   explicit Interface( U32 ifIndex ) : ifIndex_( ifIndex ) {}
   QUILL_PARAMETER( U32, ifIndex )
   QUILL_SINGLE( Quill::Name, deviceName ) // IFLA_IFNAME; set before the device is published
   QUILL_SINGLE( U32, flags )              // IFF_UP and the rest, as rtnetlink(7) has them
   QUILL_SINGLE( U32, mtu )                // IFLA_MTU, bytes after the link-layer header
   // Empty: the device carries Ethernet frames. Else what ip-link(8) shows after "link/": "none", "sit".
   // Set before the device is published.
   QUILL_SINGLE( Quill::Name, linkLayer )
   QUILL_SINGLE( U32, carrierUps ) // IFLA_CARRIER_UP_COUNT, how often its carrier came up
};

class Status final : public Quill::Entity {
   QUILL_ENTITY( KernelNetInfo::Status )
 public:
   explicit Status( Corvid::NamespaceName netNsName ) : netNsName_( std::move( netNsName ) ) {}
   QUILL_PARAMETER( Corvid::NamespaceName, netNsName )
   QUILL_SINGLE( bool,
                 synchronized ) // all devices have been read, and no notification was lost since
   QUILL_SINGLE( U32, resyncs ) // how often notifications were lost and all was read again
   QUILL_SINGLE( Quill::String, error ) // why the namespace cannot be watched; empty when it is
   // Keyed by index. A device is published complete: its entity is made outside and put in.
   QUILL_MEMBERS( Interface, interface, ifIndex )
};

} // namespace KernelNetInfo
