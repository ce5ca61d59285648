// The scheduler: which task runs when, and what handlers may do meanwhile.
#include "platform/gantry/TaskScheduler.h"
#include "platform/quill/Exception.h"

#include "tests/support/FaultRecorder.h"
#include "tests/support/LeakCheck.h"
#include "tests/support/OnChange.h"

#include <gmock/gmock.h>
#include <limits>
#include <list>
#include <map>
#include <random>
#include <stdexcept>

namespace Gantry {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using Names = std::vector< std::string >;

class HandClock final : public Clock {
 public:
   Time now() const noexcept override { return time; }
   Time time = 1h;
};

// A task whose runs are noted by name and may do something more.
class Timer {
 public:
   Timer( Quill::Ptr< TaskScheduler > scheduler, char const * name, U8 priority, Names & ran )
       : task( Quill::make< TimerTask >( std::move( scheduler ), TaskPriority( priority ), name ) ),
         watch_( task, TimerTask::taskRunAttr::id, [ this, &ran ] {
            ran.push_back( task->name().stdString() );
            if ( onRun ) {
               onRun();
            }
         } ) {}

   void in( Time delay ) const {
      task->scheduleTaskDelay( std::chrono::duration< double >( delay ).count() );
   }

   Quill::Ptr< TimerTask > task;
   std::function< void() > onRun;

 private:
   Valen::Test::OnChange< TimerTask > const watch_;
};

class TaskSchedulerTest : public testing::Test, protected Valen::Test::LeakCheck {
 protected:
   TaskSchedulerTest() { scheduler->schedulerClockIs( clock ); }

   Timer & timer( char const * name, U8 priority = 2 ) {
      return timers.emplace_back( scheduler, name, priority, ran );
   }
   // Advances the clock and runs what is due, once.
   U32 turn( Time forward = 0ns ) {
      clock.time += forward;
      return scheduler->runDue();
   }

   HandClock clock;
   Quill::Ptr< TaskSchedulerRoot > scheduler = TaskSchedulerRoot::findOrCreateScheduler();
   Names ran;
   std::list< Timer > timers;
};

// --- Order ---------------------------------------------------------------------------------------

TEST_F( TaskSchedulerTest, TasksRunByDeadlineThenPriorityThenArming ) {
   timer( "late", 0 ).in( 3ms );
   timer( "second", 2 ).in( 2ms );
   timer( "third", 2 ).in( 2ms );
   timer( "first", 1 ).in( 2ms );
   timer( "early", 9 ).in( 1ms );
   EXPECT_EQ( turn( 5ms ), 5u );
   EXPECT_THAT( ran, ElementsAre( "early", "first", "second", "third", "late" ) );
}

TEST_F( TaskSchedulerTest, RearmedTaskRunsAfterTasksOfTheSameTimeAndPriority ) {
   auto & first = timer( "first" );
   first.in( 1ms );
   timer( "second" ).in( 1ms );
   first.in( 1ms );
   EXPECT_EQ( scheduler->armedTasks(), 2u );
   turn( 1ms );
   EXPECT_THAT( ran, ElementsAre( "second", "first" ) );
}

TEST_F( TaskSchedulerTest, TasksAreDueWhenTheClockSaysSo ) {
   auto & one = timer( "one" );
   one.in( 10ms );
   EXPECT_EQ( one.task->deadline(), clock.time + 10ms );
   EXPECT_EQ( turn( 10ms - 1ns ), 0u );
   EXPECT_TRUE( one.task->taskScheduled() );
   EXPECT_EQ( turn( 1ns ), 1u );
   EXPECT_FALSE( one.task->taskScheduled() );
   EXPECT_EQ( turn( 1h ), 0u ) << "it runs once";
   EXPECT_EQ( one.task->taskRun(), 1u );
}

TEST_F( TaskSchedulerTest, NextDeadlineIsTheEarliestArmedOne ) {
   EXPECT_EQ( scheduler->nextDeadline(), std::nullopt );
   auto & one = timer( "one" );
   auto & two = timer( "two" );
   one.in( 2ms );
   two.in( 1ms );
   EXPECT_EQ( scheduler->nextDeadline(), clock.time + 1ms );
   two.task->unscheduleTask();
   EXPECT_EQ( scheduler->nextDeadline(), clock.time + 2ms );
   one.in( 7ms );
   EXPECT_EQ( scheduler->nextDeadline(), clock.time + 7ms );
   one.task->unscheduleTask();
   EXPECT_EQ( scheduler->nextDeadline(), std::nullopt );
}

TEST_F( TaskSchedulerTest, DisarmedTaskDoesNotRun ) {
   auto & one = timer( "one" );
   one.task->unscheduleTask(); // not armed: no effect
   one.in( 1ms );
   one.task->unscheduleTask();
   EXPECT_FALSE( one.task->taskScheduled() );
   EXPECT_EQ( scheduler->armedTasks(), 0u );
   EXPECT_EQ( turn( 1h ), 0u );
}

// --- From within handlers ------------------------------------------------------------------------

TEST_F( TaskSchedulerTest, TaskIsRunningWhileItsHandlersAre ) {
   auto & one = timer( "one" );
   auto & two = timer( "two" );
   one.onRun = [ & ] {
      EXPECT_TRUE( one.task->taskCurrentlyRunning() );
      EXPECT_FALSE( one.task->taskScheduled() );
      EXPECT_FALSE( two.task->taskCurrentlyRunning() );
   };
   EXPECT_FALSE( one.task->taskCurrentlyRunning() );
   one.in( 1ms );
   two.in( 1ms );
   EXPECT_FALSE( one.task->taskCurrentlyRunning() );
   EXPECT_EQ( turn( 1ms ), 2u );
   EXPECT_FALSE( one.task->taskCurrentlyRunning() );
}

TEST_F( TaskSchedulerTest, HandlerMayCancelATaskThatIsDue ) {
   auto & one = timer( "one" );
   auto & two = timer( "two" );
   one.onRun = [ & ] { two.task->unscheduleTask(); };
   one.in( 1ms );
   two.in( 1ms );
   EXPECT_EQ( turn( 1ms ), 1u );
   EXPECT_THAT( ran, ElementsAre( "one" ) );
}

TEST_F( TaskSchedulerTest, HandlerMayPutOffATaskThatIsDue ) {
   auto & one = timer( "one" );
   auto & two = timer( "two" );
   one.onRun = [ & ] { two.in( 5ms ); };
   one.in( 1ms );
   two.in( 1ms );
   EXPECT_EQ( turn( 1ms ), 1u );
   EXPECT_EQ( scheduler->nextDeadline(), clock.time + 5ms );
   EXPECT_EQ( turn( 5ms ), 1u );
}

TEST_F( TaskSchedulerTest, TaskArmedWithNoDelayByItsOwnHandlerWaitsForTheNextTurn ) {
   auto & one = timer( "one" );
   one.onRun = [ & ] { one.in( 0ns ); };
   one.in( 0ns );
   EXPECT_EQ( turn(), 1u );
   EXPECT_EQ( scheduler->nextDeadline(), clock.time + 1ns ) << "after this turn, and no later";
   EXPECT_EQ( turn(), 0u ) << "nothing more runs while the clock does not advance";
   EXPECT_EQ( turn( 1ns ), 1u );
   one.task->unscheduleTask();
}

TEST_F( TaskSchedulerTest, TaskArmedWithNoDelayOutsideATurnRunsInTheNext ) {
   turn( 1ms ); // the turn before does not delay this one
   timer( "one" ).in( 0ns );
   EXPECT_EQ( scheduler->nextDeadline(), clock.time );
   EXPECT_EQ( turn(), 1u );
}

TEST_F( TaskSchedulerTest, TaskThatAlwaysRearmsItselfDoesNotBlockTheLoop ) {
   // It is of higher priority than the other one, and has been due for as long.
   auto & restless = timer( "restless", 0 );
   restless.onRun = [ & ] { restless.in( 0ns ); };
   restless.in( 1ms );
   timer( "patient", 9 ).in( 1ms );
   EXPECT_EQ( turn( 1ms ), 2u );
   EXPECT_THAT( ran, ElementsAre( "restless", "patient" ) );
   restless.task->unscheduleTask();
}

TEST_F( TaskSchedulerTest, TasksArmedInATurnRunInTheNextByPriority ) {
   auto & low = timer( "low", 5 );
   auto & high = timer( "high", 1 );
   auto & one = timer( "one" );
   one.onRun = [ & ] {
      low.in( 0ns );
      high.in( 0ns );
   };
   one.in( 1ms );
   EXPECT_EQ( turn( 1ms ), 1u );
   EXPECT_EQ( turn( 1ns ), 2u );
   EXPECT_THAT( ran, ElementsAre( "one", "high", "low" ) );
}

TEST_F( TaskSchedulerTest, ClockThatAdvancesInAHandlerDoesNotLengthenTheTurn ) {
   auto & one = timer( "one" );
   one.onRun = [ & ] { clock.time += 10ms; };
   one.in( 1ms );
   timer( "two" ).in( 2ms );
   EXPECT_EQ( turn( 1ms ), 1u );
   EXPECT_EQ( turn(), 1u );
}

TEST_F( TaskSchedulerTest, HandlerMayTakeATurnOfItsOwn ) {
   auto & outer = timer( "outer" );
   auto & inner = timer( "inner" );
   auto & later = timer( "later" );
   outer.onRun = [ & ] {
      clock.time += 1ms;
      EXPECT_EQ( scheduler->runDue(), 1u );
      later.in( 0ns ); // the clock has advanced since the outer turn began
      EXPECT_EQ( later.task->deadline(), clock.time );
   };
   outer.in( 1ms );
   inner.in( 2ms );
   EXPECT_EQ( turn( 1ms ), 1u );
   EXPECT_THAT( ran, ElementsAre( "outer", "inner" ) );
   EXPECT_EQ( turn(), 1u );
}

// --- Lifetimes and faults ------------------------------------------------------------------------

TEST_F( TaskSchedulerTest, TaskDestroyedWhileArmedDoesNotRun ) {
   timer( "one" ).in( 2ms );
   timer( "two" ).in( 1ms );
   timers.pop_front();
   EXPECT_EQ( scheduler->armedTasks(), 1u );
   EXPECT_EQ( turn( 2ms ), 1u );
   EXPECT_THAT( ran, ElementsAre( "two" ) );
}

TEST_F( TaskSchedulerTest, TaskReleasedWhileItRunsStaysAliveUntilItHasRun ) {
   auto task = Quill::make< TimerTask >( scheduler, TaskPriority( 2 ), "one" );
   auto * const raw = task.get();
   auto const live = TimerTask::quillAllocation.live;
   auto const watch = Valen::Test::onChange< TimerTask::taskRunAttr >( task, [ & ] {
      task = nullptr;
      EXPECT_TRUE( raw->taskCurrentlyRunning() );
   } );
   task->scheduleTaskDelay( 0 );
   EXPECT_EQ( turn(), 1u );
   EXPECT_EQ( TimerTask::quillAllocation.live, live ) << "its watcher has a handle";
}

TEST_F( TaskSchedulerTest, TaskWhoseLastHandleIsReleasedWhileItRunsIsDestroyedAfterwards ) {
   auto const live = TimerTask::quillAllocation.live;
   auto & one = timer( "one" );
   one.onRun = [ & ] { timers.clear(); }; // destroys the watcher, too
   one.in( 0ns );
   EXPECT_EQ( turn(), 1u );
   EXPECT_EQ( TimerTask::quillAllocation.live, live );
}

TEST_F( TaskSchedulerTest, SchedulerMayGoWithItsLastTaskInATurn ) {
   auto & one = timer( "one" );
   one.in( 0ns );
   auto * const raw = scheduler.get();
   scheduler = nullptr; // the task holds it
   one.onRun = [ & ] { timers.clear(); };
   EXPECT_EQ( raw->runDue(), 1u );
}

TEST_F( TaskSchedulerTest, HandlerThatThrowsIsReportedAndTheOthersRun ) {
   Valen::Test::FaultRecorder faults;
   auto & one = timer( "one" );
   one.onRun = [] { throw std::runtime_error( "no more" ); };
   one.in( 1ms );
   timer( "two" ).in( 1ms );
   EXPECT_EQ( turn( 1ms ), 2u );
   EXPECT_THAT( ran, ElementsAre( "one", "two" ) );
   EXPECT_THAT( faults.messages(), ElementsAre( "fault in notifiee: no more" ) );
   EXPECT_FALSE( one.task->taskCurrentlyRunning() );
   one.onRun = nullptr;
   one.in( 0ns );
   EXPECT_EQ( turn(), 1u ) << "and it can be used again";
}

// --- Delays --------------------------------------------------------------------------------------

// The delay in the scheduler's time that a task armed with `seconds` has.
class TaskDelayTest : public TaskSchedulerTest {
 protected:
   Time delay( double seconds ) {
      one.task->scheduleTaskDelay( seconds );
      return one.task->deadline() - clock.time;
   }
   ~TaskDelayTest() override { one.task->unscheduleTask(); }

   Timer & one = timer( "one" );
};

TEST_F( TaskDelayTest, EveryWholeMillisecondIsExact ) {
   for ( int ms = 0; ms <= 65535; ++ms ) {
      ASSERT_EQ( delay( ms / 1000.0 ), std::chrono::milliseconds( ms ) );
   }
}

TEST_F( TaskDelayTest, SecondsAreRoundedToTheNearestNanosecond ) {
   EXPECT_EQ( delay( 1.4e-9 ), 1ns );
   EXPECT_EQ( delay( 1.6e-9 ), 2ns );
   EXPECT_EQ( delay( 0.4e-9 ), 0ns );
   EXPECT_EQ( delay( 1.0 / 3 ), 333333333ns );
}

TEST_F( TaskDelayTest, NoTimeAtAllAndNoNumberAreNoDelay ) {
   EXPECT_EQ( delay( 0 ), 0ns );
   EXPECT_EQ( delay( -0.0 ), 0ns );
   EXPECT_EQ( delay( -5 ), 0ns );
   EXPECT_EQ( delay( -std::numeric_limits< double >::infinity() ), 0ns );
   EXPECT_EQ( delay( std::numeric_limits< double >::quiet_NaN() ), 0ns );
}

TEST_F( TaskDelayTest, ForEverIsMoreThanACentury ) {
   constexpr auto century = 100 * 366 * 24h;
   for ( double const seconds : { 1e10, 1e19, std::numeric_limits< double >::max(),
                                  std::numeric_limits< double >::infinity() } ) {
      EXPECT_GT( delay( seconds ), century ) << seconds;
      EXPECT_EQ( turn( 1h ), 0u );
   }
   EXPECT_EQ( delay( 3e9 ), 3000000000s ) << "a shorter delay is not limited";
}

// --- The process's scheduler ---------------------------------------------------------------------

TEST_F( TaskSchedulerTest, ProcessHasOneSchedulerWhileItHasAHandle ) {
   EXPECT_EQ( TaskSchedulerRoot::findOrCreateScheduler(), scheduler );
   auto const before = TaskScheduler::quillAllocation.total;
   scheduler = nullptr;
   scheduler = TaskSchedulerRoot::findOrCreateScheduler();
   EXPECT_EQ( TaskScheduler::quillAllocation.total, before + 1 );
   EXPECT_NE( scheduler->now(), clock.time ) << "a new one is on the monotonic clock";
   auto const now = scheduler->now();
   EXPECT_LE( now, std::chrono::steady_clock::now().time_since_epoch() );
   EXPECT_GE( scheduler->now(), now );
}

TEST_F( TaskSchedulerTest, AnotherClockIsRejectedWhileATaskIsArmed ) {
   timer( "one" ).in( 1ms );
   HandClock other;
   EXPECT_DEATH( scheduler->schedulerClockIs( other ), "armedTasks\\(\\) == 0" );
   timers.clear();
   scheduler->schedulerClockIs( other );
   EXPECT_EQ( scheduler->now(), other.time );
   scheduler->schedulerClockIs( clock );
}

// --- Against a plain model -----------------------------------------------------------------------

// The scheduler's contents as a sorted map, which is slow and easy to understand.
class SchedulerModel {
 public:
   using Key = std::tuple< Time, U8, U64 >; // deadline, priority, arming
   void arm( std::size_t task, Time deadline, U8 priority ) {
      disarm( task );
      armed_.emplace( Key( deadline, priority, ++armings_ ), task );
   }
   void disarm( std::size_t task ) {
      std::erase_if( armed_, [ task ]( auto const & entry ) { return entry.second == task; } );
   }
   std::optional< Time > next() const {
      return armed_.empty() ? std::nullopt
                            : std::optional( std::get< 0 >( armed_.begin()->first ) );
   }
   std::size_t count() const { return armed_.size(); }
   // Removes what is due at `now`, in order.
   Names run( Time now ) {
      Names names;
      while ( next() && *next() <= now ) {
         names.push_back( std::to_string( armed_.begin()->second ) );
         armed_.erase( armed_.begin() );
      }
      return names;
   }

 private:
   std::multimap< Key, std::size_t > armed_;
   U64 armings_ = 0;
};

TEST_F( TaskSchedulerTest, RandomArmingsRunAsInASortedMap ) {
   std::mt19937 random( 20240607 );
   SchedulerModel model;
   std::vector< Timer * > all;
   for ( std::size_t i = 0; i < 60; ++i ) {
      all.push_back( &timer( std::to_string( i ).c_str(), static_cast< U8 >( random() % 3 ) ) );
   }
   std::size_t runs = 0;
   for ( int step = 0; step < 20000; ++step ) {
      auto const which = random() % all.size();
      auto & task = *all[ which ]->task;
      switch ( random() % 8 ) {
      case 0:
         task.unscheduleTask();
         model.disarm( which );
         break;
      case 1: {
         ran.clear();
         turn( std::chrono::milliseconds( random() % 3 ) );
         auto const expected = model.run( clock.time );
         ASSERT_EQ( ran, expected ) << "step " << step;
         runs += expected.size();
         break;
      }
      default: { // few different delays, so that many deadlines are equal
         auto const delay = std::chrono::milliseconds( random() % 20 );
         all[ which ]->in( delay );
         model.arm( which, clock.time + delay, static_cast< U8 >( task.priority() ) );
      }
      }
      ASSERT_EQ( scheduler->nextDeadline(), model.next() ) << "step " << step;
      ASSERT_EQ( scheduler->armedTasks(), model.count() ) << "step " << step;
   }
   EXPECT_GT( runs, 2000u );
}

} // namespace
} // namespace Gantry
