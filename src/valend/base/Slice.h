// The part of a longer work that one turn of the loop does, so that others wait for a short time only.
#pragma once

#include "platform/gantry/TaskScheduler.h"

namespace Valend {

class Slice {
 public:
   static constexpr std::chrono::milliseconds longest{ 2 };
   static constexpr int mostSteps = 200; // for a clock that does not move

   explicit Slice( Gantry::TaskScheduler const & scheduler )
       : scheduler_( scheduler ), begin_( scheduler.now() ) {}

   // Whether the next step belongs to the slice. The first one always does.
   bool goesOn() noexcept {
      ++steps_;
      return steps_ == 1 || ( steps_ <= mostSteps && spent() < longest );
   }
   Gantry::Time spent() const noexcept { return scheduler_.now() - begin_; }

 private:
   Gantry::TaskScheduler const & scheduler_;
   Gantry::Time const begin_;
   int steps_ = 0;
};

} // namespace Valend
