// A thread for jobs that may block, such as reading and writing files. The loop hands them over, and gets
// their results.
//
// Only plain values may pass between the threads: entities, handles and names belong to the loop's.
#pragma once

#include "linux/Inbox.h"

#include <condition_variable>
#include <deque>
#include <optional>
#include <thread>

namespace Valen::Linux {

class Worker {
 public:
   using Work = Inbox::Work;
   // Runs in the thread. What it returns, if not empty, runs on the loop afterwards. An exception that
   // leaves it goes to the fault sink, from the loop.
   using Job = std::function< Work() >;

   // `loop` must outlive this. `name` is for faults, and for ps(1): "valen-files".
   Worker( EventLoop & loop, std::string name );
   // Runs the jobs that are still queued, and drops their results.
   ~Worker();
   Worker( Worker const & ) = delete;
   Worker & operator=( Worker const & ) = delete;

   // Queues a job; they run one after the other. Returns at once, unless no thread can be started: then
   // the job runs here.
   void run( Job job );

 private:
   bool startThreadOnce();
   void work() noexcept;
   void execute( Job const & job );

   std::string const name_;
   Inbox inbox_;
   std::mutex mutex_;
   std::condition_variable queued_; // signals a queued job, or the end
   std::deque< Job > jobs_;         // guarded by the mutex
   bool ending_ = false;            // guarded by the mutex
   std::optional< std::thread > thread_;
};

} // namespace Valen::Linux
