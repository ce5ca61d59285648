// Asks the kernel for the state of a link, and changes it. For any thread: uses plain values only.
#pragma once

#include "linux/LinkControl.h"
#include "linux/RtnetlinkSocket.h"

#include <chrono>
#include <string>

namespace Valen::Linux {

// A device, by its index and the name that it must have.
struct LinkId {
   std::string netNs; // for texts
   std::string device;
   U32 ifIndex = 0;

   // "et1 (index 7) in network namespace \"ns-red\""
   std::string text() const;
};

// The state of the link, after verifying that the index still belongs to the name. Never waits: unlike
// rtnetlink, these two ioctls do not take the kernel's lock for changes of the network (rtnl), which
// others may hold for long. Throws Quill::ErrnoException: ENODEV if the index does not exist or belongs to another name.
//   socket   any socket in the device's namespace
LinkState linkState( int socket, LinkId const & link );

// A socket in a namespace by which links are set up and down.
class LinkSocket {
 public:
   // Throws Quill::ErrnoException.
   //   timeout   how long to wait for the kernel's answer
   LinkSocket( NetNs const & netNs, std::chrono::milliseconds timeout );

   NetNsIdentity const & netNsIdentity() const noexcept { return identity_; }

   // As the function above.
   LinkState state( LinkId const & link ) const { return linkState( socket_.fd(), link ); }
   // Sets the link up or down, after verifying that the index still belongs to the name, and returns
   // when the kernel has done it: that takes 0.1 ms, or 0.4 s beside a full IPv6 table. Returns whether
   // the link was in the other state. Throws as linkState does, ETIMEDOUT if the kernel does not answer,
   // and the kernel's error (EPERM without CAP_NET_ADMIN).
   bool stateIs( LinkId const & link, LinkState state );
   // Whether to open another socket: an answer may still come on this one.
   bool broken() const noexcept { return broken_; }

 private:
   int ask( std::vector< std::byte > const & request, LinkId const & link );
   std::optional< int > answerIn( std::span< std::byte const > datagram ) const;
   void await( LinkId const & link, std::chrono::steady_clock::time_point deadline );

   NetNsIdentity const identity_;
   std::chrono::milliseconds const timeout_;
   RtnetlinkSocket socket_;
   std::vector< std::byte > buffer_;
   U32 sequence_ = 0;
   bool broken_ = false;
};

} // namespace Valen::Linux
