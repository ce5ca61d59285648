// Work for the loop that other threads hand in.
#pragma once

#include "linux/EventLoop.h"

#include <mutex>

namespace Valen::Linux {

class Inbox {
 public:
   using Work = Gantry::WorkQueue::Work;

   // `loop` must outlive this. `name` is for faults: "link worker". Throws Quill::ErrnoException if the
   // kernel does not provide a descriptor.
   Inbox( EventLoop & loop, std::string name );
   ~Inbox(); // drops what has not run; no other thread may use the inbox any more
   Inbox( Inbox const & ) = delete;
   Inbox & operator=( Inbox const & ) = delete;

   // Runs `work` on the loop's thread, in the order of the calls. May be called by any thread. The copies
   // and the destruction of `work` must be harmless in both threads: it may hold plain values only.
   void put( Work work );

 private:
   void take();

   EventLoop & loop_;
   Fd const wakeUp_; // an eventfd
   Gantry::PostedWork posted_;
   std::mutex mutex_;
   std::vector< Work > entries_; // guarded by the mutex
};

} // namespace Valen::Linux
