// Keeps a KernelNetInfo::Status in step with the network devices of one namespace.
//
// It subscribes first, then asks for all devices, then follows the changes. When messages are lost
// it asks for all devices again, marks those that it hears of and sweeps the others.
#pragma once

#include "linux/EventLoop.h"
#include "linux/Rtnetlink.h"
#include "linux/RtnetlinkSocket.h"
#include "platform/gantry/Backoff.h"
#include "platform/gantry/Timer.h"
#include "types/KernelNetInfo.h"

#include <unordered_map>
#include <unordered_set>

namespace Valen::Linux {

class DeviceWatcher {
 public:
   // The kernel's own choice holds 92 link messages.
   static constexpr int receiveBufferBytes = 4 << 20;

   // Watches the devices of `netNs`, which needs to be open for the call only. Devices that stand in
   // `status` and are not there are removed by the first picture. `loop` must outlive the watcher.
   // Throws Quill::ErrnoException.
   DeviceWatcher( EventLoop & loop, NetNs const & netNs, Quill::Ptr< KernelNetInfo::Status > status,
                  int receiveBuffer = receiveBufferBytes );
   ~DeviceWatcher();
   DeviceWatcher( DeviceWatcher const & ) = delete;
   DeviceWatcher & operator=( DeviceWatcher const & ) = delete;

   NetNsIdentity const & netNsIdentity() const noexcept { return identity_; }

   // Stops watching; the status stays as it is. A watcher that a notification of its own status
   // stops must live on until the loop's turn ends.
   void close() noexcept;

 private:
   void readable();
   void datagram( std::span< std::byte const > bytes );
   void message( Rtnetlink::Message const & message );
   void link( Rtnetlink::Message const & message );
   void linkDel( U32 ifIndex );
   void startDump();
   void resync();
   void dumpDone();
   void dumpRefused();
   void sweep();

   EventLoop & loop_;
   NetNsIdentity const identity_;
   Quill::Ptr< KernelNetInfo::Status > const status_;
   std::optional< RtnetlinkSocket > socket_;        // none once closed
   std::unordered_map< std::string, U32 > indexes_; // of the devices in the status, by name
   std::unordered_set< U32 > marked_;               // heard of since the dump began
   U32 dumpSequence_ = 0;                           // of the dump under way, or the last one
   bool dumping_ = false;
   bool dumpAgain_ = false; // something was lost since the dump began
   Gantry::Backoff pause_;
   Gantry::Timer retryTimer_; // for a dump that the kernel refused
};

} // namespace Valen::Linux
