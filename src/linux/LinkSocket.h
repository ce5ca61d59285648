// Asks the kernel for the state of a link, and changes it. For any thread: uses plain values only.
#pragma once

#include "linux/LinkControl.h"
#include "linux/RtnetlinkSocket.h"

#include <chrono>
#include <span>
#include <string>
#include <vector>

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

// What is asked of the kernel.
struct LinkSetting {
   LinkId link;
   LinkState state = LinkState::down;
};

// What became of it.
struct LinkResult {
   int error = 0;        // errno; 0 when the link is in the requested state
   std::string why;      // of the error
   bool changed = false; // it was in the other state before
};

// A socket in a namespace by which links are set up and down.
class LinkSocket {
 public:
   // Throws Quill::ErrnoException.
   //   timeout   how long to wait for an answer of the kernel
   LinkSocket( NetNs const & netNs, std::chrono::milliseconds timeout );

   NetNsIdentity const & netNsIdentity() const noexcept { return identity_; }

   // As the function above.
   LinkState state( LinkId const & link ) const { return linkState( socket_.fd(), link ); }
   // Sets different links up or down, after verifying that each index still belongs to the name, and returns
   // when the kernel has done it: that takes 0.1 ms for each, or 0.4 s beside a full IPv6 table. The kernel is
   // asked once, and makes the changes one after the other; what fails with one does not end the others. The
   // results are in the order of the settings. Their errors are those of linkState, ETIMEDOUT if the kernel
   // does not answer, and the kernel's (EPERM without CAP_NET_ADMIN).
   std::vector< LinkResult > statesAre( std::span< LinkSetting const > settings );
   // One link. Returns whether it was in the other state. Throws Quill::ErrnoException.
   bool stateIs( LinkId const & link, LinkState state );
   // Whether to open another socket: an answer may still come on this one.
   bool broken() const noexcept { return broken_; }

 private:
   // A request that was sent and its result.
   struct Asked {
      LinkSetting const & setting;
      LinkResult & result;
      bool answered = false;
   };

   bool isToAsk( LinkSetting const & setting, LinkResult & result ) const;
   void ask( std::vector< Asked > & asked );
   void awaitAnswers( std::vector< Asked > & asked, U32 first );
   std::size_t takeAnswers( std::span< std::byte const > datagram, std::vector< Asked > & asked,
                            U32 first ) const;
   bool await( std::chrono::steady_clock::time_point deadline ) const;

   NetNsIdentity const identity_;
   std::chrono::milliseconds const timeout_;
   RtnetlinkSocket socket_;
   std::vector< std::byte > buffer_;
   U32 sequence_ = 0;
   bool broken_ = false;
};

} // namespace Valen::Linux
