// Work that is put off to the end of the loop's turn.
//
// A handler that is called inside a notification must not act there: it posts what is to be done. The
// loop owns the queue and runs it; tests run it by hand.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Gantry {

class WorkQueue {
 public:
   using Work = std::function< void() >;

   WorkQueue() = default;
   WorkQueue( WorkQueue const & ) = delete;
   WorkQueue & operator=( WorkQueue const & ) = delete;

   // Adds work that stays in the queue until it has run. An owner that may be destroyed earlier posts
   // through its own PostedWork.
   void post( Work work );
   // Runs what was posted before the call, in order; what is posted meanwhile waits for the next call.
   // An exception that leaves the work goes to the fault sink, and the rest is still run.
   //   after   called after each, if given: for what must not wait for the rest
   void run( Work const & after = nullptr );
   bool empty() const noexcept { return entries_.empty(); }

 private:
   friend class PostedWork;
   struct Owner {
      std::string const name; // for faults
   };
   struct Entry {
      Work work;
      bool owned;
      std::weak_ptr< Owner const > owner;
   };

   static void run( Entry const & entry );

   std::vector< Entry > entries_;
};

// The work that one owner has posted: a member of the owner, whose destruction drops what has not run.
class PostedWork {
 public:
   // `queue` must outlive this. `name` is for faults: "link controller".
   PostedWork( WorkQueue & queue, std::string name );

   void post( WorkQueue::Work work );

 private:
   WorkQueue & queue_;
   std::shared_ptr< WorkQueue::Owner const > const owner_;
};

} // namespace Gantry
