// Closes descriptors in the background.
//
// The kernel makes whoever closes a packet socket wait for some 12 ms. The event loop hands its
// packet sockets over instead. Waiting in several threads at once is no dearer than in one, so the
// reaper starts more of them, up to a limit, while descriptors queue up.
#pragma once

#include "linux/Fd.h"

#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace Valen::Linux {

class DescriptorReaper {
 public:
   static constexpr std::size_t maxThreads = 32;

   DescriptorReaper() = default;
   ~DescriptorReaper(); // waits until all is closed, and joins the threads
   DescriptorReaper( DescriptorReaper const & ) = delete;
   DescriptorReaper & operator=( DescriptorReaper const & ) = delete;

   // Takes `fd` over and returns at once. A process that can have no thread closes it here.
   void reap( Fd fd ) noexcept;
   // Waits until everything handed over so far is closed.
   void drain() noexcept;
   // Descriptors handed over and not yet closed.
   std::size_t pending() const noexcept;

 private:
   void startThread();
   void work() noexcept;

   mutable std::mutex mutex_;
   std::condition_variable queued_;  // something to close, or the end
   std::condition_variable drained_; // nothing left to close
   std::vector< Fd > queue_;
   std::size_t closing_ = 0; // taken from the queue, not yet closed
   bool ending_ = false;
   std::vector< std::thread > threads_;
};

} // namespace Valen::Linux
