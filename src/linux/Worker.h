// A thread for jobs that may block, such as reading and writing files. The loop hands them over, and gets
// their results.
//
// Only plain values may pass between the threads: entities, handles and names belong to the loop's.
#pragma once

#include "linux/Inbox.h"

#include <chrono>
#include <memory>
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
   //   endTimeout   how long the destructor waits for the jobs; by default until they have ended. A job that is
   //              left behind may use what it owns only: shared plain values.
   Worker( EventLoop & loop, std::string name,
           std::optional< std::chrono::milliseconds > endTimeout = std::nullopt );
   // Runs the jobs that are still queued, and drops their results. When `endTimeout` is over, drops the jobs that
   // have not begun, and leaves the one that runs behind: it ends with the process at the latest.
   ~Worker();
   Worker( Worker const & ) = delete;
   Worker & operator=( Worker const & ) = delete;

   // Queues a job; they run one after the other. Returns at once, unless no thread can be started: then
   // the job runs here.
   void run( Job job );

 private:
   struct Queue;

   bool startThreadOnce();
   bool allEnded();

   std::string const name_;
   std::optional< std::chrono::milliseconds > const endTimeout_;
   Inbox inbox_;
   std::shared_ptr< Queue > const queue_;
   std::optional< std::thread > thread_;
};

} // namespace Valen::Linux
