// Closes descriptors in the background.
//
// Closing a packet socket blocks in the kernel for about 12 ms, so the event loop passes its packet
// sockets to the reaper. Several threads can wait at the same time without extra cost, so the reaper
// starts more threads, up to a limit, while descriptors are queued.
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
   ~DescriptorReaper(); // waits until all descriptors are closed, and joins the threads
   DescriptorReaper( DescriptorReaper const & ) = delete;
   DescriptorReaper & operator=( DescriptorReaper const & ) = delete;

   // Takes ownership of `fd` and returns at once. If no thread can be started, closes it here.
   void reap( Fd fd ) noexcept;
   // Waits until all descriptors passed so far are closed.
   void drain() noexcept;
   // Number of descriptors that are not closed yet.
   std::size_t pending() const noexcept;

 private:
   void addThread();
   void work() noexcept;

   mutable std::mutex mutex_;
   std::condition_variable queued_;  // signals a queued descriptor, or the end
   std::condition_variable drained_; // signals that all descriptors are closed
   std::vector< Fd > queue_;
   std::size_t closing_ = 0; // taken from the queue, not closed yet
   bool ending_ = false;
   std::vector< std::thread > threads_;
};

} // namespace Valen::Linux
