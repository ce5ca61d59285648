// The process's scheduler on a clock that only the test moves.
#pragma once

#include "platform/gantry/TaskScheduler.h"

namespace Valen::Test {

// Holds the process's scheduler while it exists, so that all that ask get this one. Must
// outlive everything that arms timers on it.
class SteppedClock final : public Gantry::Clock {
 public:
   SteppedClock() : scheduler_( Gantry::TaskSchedulerRoot::findOrCreateScheduler() ) {
      scheduler_->schedulerClockIs( *this );
   }

   Gantry::Time now() const noexcept override { return now_; }
   Quill::Ptr< Gantry::TaskSchedulerRoot > const & scheduler() const { return scheduler_; }

   // Moves the clock forward by `duration`, stopping at each deadline on the way to run what is
   // due. Returns how many tasks ran.
   U32 advance( Gantry::Time duration ) {
      auto const target = now_ + duration;
      U32 ran = 0;
      for ( auto next = scheduler_->nextDeadline(); next && *next <= target;
            next = scheduler_->nextDeadline() ) {
         now_ = std::max( now_, *next );
         ran += scheduler_->runDue();
      }
      now_ = target;
      return ran;
   }

 private:
   Gantry::Time now_{ std::chrono::hours( 1 ) };
   Quill::Ptr< Gantry::TaskSchedulerRoot > const scheduler_;
};

} // namespace Valen::Test
