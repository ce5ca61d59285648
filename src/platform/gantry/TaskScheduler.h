// Gantry: one-shot timer tasks on an explicit clock.
//
// The scheduler is plain C++ and never sleeps: an event loop asks for nextDeadline(), waits by its
// own means, and calls runDue(). Tests set the clock by hand.
#pragma once

#include "platform/quill/Attributes.h"

#include <chrono>
#include <limits>
#include <optional>
#include <vector>

namespace Gantry {

// Time on the scheduler's clock, since that clock's own start.
using Time = std::chrono::nanoseconds;

class Clock {
 public:
   virtual ~Clock() = default;
   virtual Time now() const noexcept = 0; // never goes back
};

// Tasks due at the same time run in order of priority, the lowest number first; then in the order
// in which they were armed.
enum class TaskPriority : U8 {
   library = 2, // ends of shutdown delays
   process = 5, // the process's own timers: they see what the library's have changed
};

class TimerTask;

// Runs timer tasks.
class TaskScheduler : public Quill::PtrInterface {
   QUILL_TRACKED( Gantry::TaskScheduler )
 public:
   // `clock` must outlive the scheduler.
   explicit TaskScheduler( Clock const & clock ) : clock_( &clock ) {}

   Time now() const noexcept { return clock_->now(); }
   // When the earliest armed task is due; empty if no task is armed.
   std::optional< Time > nextDeadline() const noexcept;
   // Runs every task whose deadline is not after the clock's time at the call, by deadline, then by
   // priority. A task armed meanwhile is due after that time, so a task that arms itself without
   // delay cannot block the loop. Returns how many ran: `most`, if there were more.
   U32 runDue( U32 most = std::numeric_limits< U32 >::max() );
   U32 armedTasks() const noexcept { return static_cast< U32 >( heap_.size() ); }

 protected:
   ~TaskScheduler() override;
   void clockIs( Clock const & clock ) noexcept { clock_ = &clock; }

 private:
   friend class TimerTask;

   static bool before( TimerTask const & a, TimerTask const & b ) noexcept;
   void arm( TimerTask & task, Time deadline );
   void disarm( TimerTask & task ) noexcept;
   void place( TimerTask & task, U32 position ) noexcept;
   void siftUp( U32 position ) noexcept;
   void siftDown( U32 position ) noexcept;

   Clock const * clock_;
   std::vector< TimerTask * > heap_; // earliest first; each task knows its position
   U64 armings_ = 0;
   Time earliest_{}; // while tasks run: the first moment after this turn; no deadline is before it
};

// The process's scheduler.
class TaskSchedulerRoot final : public TaskScheduler {
 public:
   // The only scheduler of the process, made at the first call and kept alive by its handles. Uses
   // the monotonic clock until another one is set.
   static Quill::Ptr< TaskSchedulerRoot > findOrCreateScheduler();

   // Switches to another clock, which must outlive the scheduler. Only while no task is armed.
   void schedulerClockIs( Clock const & clock );

 private:
   friend Quill::Ptr< TaskSchedulerRoot > Quill::make< TaskSchedulerRoot >();
   TaskSchedulerRoot();
   ~TaskSchedulerRoot() override;
};

// A one-shot timer. An entity: its run is notified as a change of `taskRun`, on the thread of the
// event loop, while taskCurrentlyRunning() is true.
class TimerTask final : public Quill::Entity {
   QUILL_ENTITY( Gantry::TimerTask )
 public:
   TimerTask( Quill::Ptr< TaskScheduler > scheduler, TaskPriority priority, Quill::String name );
   ~TimerTask() override; // unschedules

   QUILL_PARAMETER( Quill::Ptr< TaskScheduler >, scheduler )
   QUILL_PARAMETER( TaskPriority, priority )
   QUILL_PARAMETER( Quill::String, name )
   QUILL_SINGLE( U32, taskRun ) // how often the task ran

 public:
   // Arms the task to run once, `seconds` from now, to the nearest nanosecond. 0, a negative number
   // and NaN mean immediately: in the next turn, and inside a turn right after it. A task that is
   // armed already is rearmed.
   void scheduleTaskDelay( double seconds );
   // Disarms; no effect on a task that is not armed.
   void unscheduleTask() noexcept;

   bool taskScheduled() const noexcept { return position_ != idle; }
   // When the task is due; meaningful only while taskScheduled().
   Time deadline() const noexcept { return deadline_; }
   // Whether the handlers of its run are on the stack.
   bool taskCurrentlyRunning() const noexcept { return running_; }

 private:
   friend class TaskScheduler;
   static constexpr U32 idle = ~0u;

   void run();

   Time deadline_{};
   U64 arming_ = 0;
   U32 position_ = idle; // in the scheduler's heap
   bool running_ = false;
};

} // namespace Gantry
