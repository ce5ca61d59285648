// Sets kernel devices up and down, and waits for it. That may take a while: 0.4 s beside a full IPv6 table.
#pragma once

#include "linux/NetNs.h"

#include <chrono>

namespace Valen::Linux {

// The administrative state of a device (IFF_UP).
enum class LinkState : U8 { down, up };

class LinkControl {
 public:
   //   timeout   how long to wait for the kernel's answer
   explicit LinkControl( NetNsDirectories directories = NetNsDirectories(),
                         std::chrono::milliseconds timeout = std::chrono::seconds( 1 ) );

   // Sets the device with index `ifIndex` in namespace `netNs` up or down, and waits until the kernel
   // has done it. Verifies first that the index belongs to `deviceName`. No effect if the device is in
   // that state already. Throws Quill::ErrnoException: ENODEV if the index does not exist or belongs to
   // another name, ETIMEDOUT if the kernel does not answer, the errors of NetNsDirectories::open, and the
   // kernel's (EPERM without CAP_NET_ADMIN).
   void stateIs( Corvid::NamespaceName const & netNs, U32 ifIndex, Quill::Name const & deviceName,
                 LinkState state );

   // The state of that device. Throws as stateIs does.
   LinkState state( Corvid::NamespaceName const & netNs, U32 ifIndex,
                    Quill::Name const & deviceName );

 private:
   NetNsDirectories const directories_;
   std::chrono::milliseconds const timeout_;
};

} // namespace Valen::Linux
