#include "platform/gantry/TaskScheduler.h"

#include "platform/quill/EntityTables.h"

#include <algorithm>
#include <utility>

namespace Gantry {

namespace {

class MonotonicClock final : public Clock {
 public:
   Time now() const noexcept override {
      return std::chrono::duration_cast< Time >(
         std::chrono::steady_clock::now().time_since_epoch() );
   }
};

MonotonicClock const monotonicClock;
TaskSchedulerRoot * root = nullptr;

// Rounded to the nanosecond. NaN is 0; a huge number becomes a time that can still be added to that
// of any clock.
Time secondsToTime( double seconds ) noexcept {
   constexpr double longest = 4e9; // well over a century
   if ( !( seconds > 0 ) ) {
      return Time( 0 );
   }
   return Time( static_cast< S64 >( std::min( seconds, longest ) * 1e9 + 0.5 ) );
}

} // namespace

// --- TaskScheduler: a binary heap whose tasks know their positions -------------------------------

TaskScheduler::~TaskScheduler() {
   VALEN_ASSERT( heap_.empty() ); // every task holds its scheduler
}

std::optional< Time > TaskScheduler::nextDeadline() const noexcept {
   return heap_.empty() ? std::nullopt : std::optional( heap_.front()->deadline_ );
}

U32 TaskScheduler::runDue( U32 most ) {
   Quill::Ptr< TaskScheduler > const self( this );
   auto const until = now();
   auto const outer = std::exchange( earliest_, until + Time( 1 ) );
   U32 ran = 0;
   while ( ran < most && !heap_.empty() && heap_.front()->deadline_ <= until ) {
      Quill::Ptr< TimerTask > const task( heap_.front() );
      disarm( *task );
      task->run();
      ++ran;
   }
   earliest_ = outer;
   return ran;
}

bool TaskScheduler::before( TimerTask const & a, TimerTask const & b ) noexcept {
   if ( a.deadline_ != b.deadline_ ) {
      return a.deadline_ < b.deadline_;
   }
   if ( a.priority() != b.priority() ) {
      return a.priority() < b.priority();
   }
   return a.arming_ < b.arming_;
}

void TaskScheduler::arm( TimerTask & task, Time deadline ) {
   disarm( task );
   heap_.push_back( &task );
   task.deadline_ = std::max( deadline, earliest_ );
   task.arming_ = ++armings_;
   task.position_ = static_cast< U32 >( heap_.size() - 1 );
   siftUp( task.position_ );
}

void TaskScheduler::disarm( TimerTask & task ) noexcept {
   if ( task.position_ == TimerTask::idle ) {
      return;
   }
   auto const position = std::exchange( task.position_, TimerTask::idle );
   auto & last = *heap_.back();
   heap_.pop_back();
   if ( &last != &task ) {
      place( last, position );
      siftUp( position );
      siftDown( last.position_ );
   }
}

void TaskScheduler::place( TimerTask & task, U32 position ) noexcept {
   heap_[ position ] = &task;
   task.position_ = position;
}

void TaskScheduler::siftUp( U32 position ) noexcept {
   auto & task = *heap_[ position ];
   while ( position > 0 ) {
      auto const parent = ( position - 1 ) / 2;
      if ( !before( task, *heap_[ parent ] ) ) {
         break;
      }
      place( *heap_[ parent ], position );
      position = parent;
   }
   place( task, position );
}

void TaskScheduler::siftDown( U32 position ) noexcept {
   auto & task = *heap_[ position ];
   auto const size = static_cast< U32 >( heap_.size() );
   for ( ;; ) {
      auto child = 2 * position + 1;
      if ( child >= size ) {
         break;
      }
      if ( child + 1 < size && before( *heap_[ child + 1 ], *heap_[ child ] ) ) {
         ++child;
      }
      if ( !before( *heap_[ child ], task ) ) {
         break;
      }
      place( *heap_[ child ], position );
      position = child;
   }
   place( task, position );
}

// --- TaskSchedulerRoot ---------------------------------------------------------------------------

TaskSchedulerRoot::TaskSchedulerRoot() : TaskScheduler( monotonicClock ) {
   root = this;
}

TaskSchedulerRoot::~TaskSchedulerRoot() {
   root = nullptr;
}

Quill::Ptr< TaskSchedulerRoot > TaskSchedulerRoot::findOrCreateScheduler() {
   return root ? Quill::Ptr< TaskSchedulerRoot >( root ) : Quill::make< TaskSchedulerRoot >();
}

void TaskSchedulerRoot::schedulerClockIs( Clock const & clock ) {
   VALEN_ASSERT( armedTasks() == 0 );
   clockIs( clock );
}

// --- TimerTask -----------------------------------------------------------------------------------

TimerTask::TimerTask( Quill::Ptr< TaskScheduler > scheduler, TaskPriority priority,
                      Quill::String name )
    : scheduler_( std::move( scheduler ) ), priority_( priority ), name_( std::move( name ) ) {}

TimerTask::~TimerTask() {
   unscheduleTask();
}

void TimerTask::scheduleTaskDelay( double seconds ) {
   scheduler()->arm( *this, scheduler()->now() + secondsToTime( seconds ) );
}

void TimerTask::unscheduleTask() noexcept {
   scheduler()->disarm( *this );
}

void TimerTask::run() {
   running_ = true;
   taskRunIs( taskRun() + 1 );
   running_ = false;
}

} // namespace Gantry

QUILL_ENTITY_TABLES( Gantry::TimerTask )
