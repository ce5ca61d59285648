// Keeps a KernelNetInfo::Status up to date with the network devices of one namespace.
//
// It subscribes to changes first, then requests a dump of all devices, then follows the changes. If
// messages are lost, it requests another dump, marks the devices in it, and removes the others.
#pragma once

#include "linux/EventLoop.h"
#include "linux/LinkSocket.h"
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
   // The kernel's default has room for only 92 link messages.
   static constexpr int receiveBufferBytes = 4 << 20;

   // Watches the devices of `netNs`, which may be closed after the call. The first dump removes devices
   // from `status` that do not exist. `loop` must outlive the watcher. Throws Quill::ErrnoException.
   //   receiveBuffer   size of the socket's receive buffer in bytes
   DeviceWatcher( EventLoop & loop, NetNs const & netNs, Quill::Ptr< KernelNetInfo::Status > status,
                  int receiveBuffer = receiveBufferBytes );
   ~DeviceWatcher();
   DeviceWatcher( DeviceWatcher const & ) = delete;
   DeviceWatcher & operator=( DeviceWatcher const & ) = delete;

   NetNsIdentity const & netNsIdentity() const noexcept { return identity_; }

   // The index of the device in the status that has the name; 0 if none has.
   U32 ifIndex( Quill::Name const & deviceName ) const noexcept;

   // Asks the kernel for the state of a device's link; throws as linkState does.
   LinkState state( LinkId const & link ) const;

   // Stops watching and leaves the status unchanged. If a notification of the status calls this, the
   // watcher must not be destroyed before the end of the loop's turn.
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
   void dumpRejected();
   void sweep();

   EventLoop & loop_;
   NetNsIdentity const identity_;
   Quill::Ptr< KernelNetInfo::Status > const status_;
   std::optional< RtnetlinkSocket > socket_;        // empty once closed
   std::unordered_map< std::string, U32 > indexes_; // of the devices in the status, by name
   std::unordered_set< U32 > marked_;               // seen since the dump began
   U32 dumpSequence_ = 0;                           // of the current dump, or the last one
   bool dumping_ = false;
   bool dumpAgain_ = false; // messages were lost since the dump began
   Gantry::Backoff pause_;
   Gantry::Timer retryTimer_; // after the kernel rejected a dump
};

} // namespace Valen::Linux
