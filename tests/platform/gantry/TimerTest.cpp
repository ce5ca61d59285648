#include "platform/gantry/Timer.h"

#include "tests/support/FaultRecorder.h"
#include "tests/support/LeakCheck.h"
#include "tests/support/SteppedClock.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>

namespace Gantry {
namespace {

using namespace std::chrono_literals;

class TimerTest : public ::testing::Test {
 protected:
   Valen::Test::LeakCheck leaks;
   Valen::Test::SteppedClock clock;
   int ran = 0;
   Timer timer{ clock.scheduler(), "test", [ this ] { ++ran; } };
};

TEST_F( TimerTest, RunsOnceWhenItIsDue ) {
   timer.start( 10ms );
   clock.advance( 9ms );
   EXPECT_TRUE( timer.running() );
   EXPECT_EQ( ran, 0 );
   clock.advance( 1ms );
   EXPECT_FALSE( timer.running() );
   clock.advance( 1h );
   EXPECT_EQ( ran, 1 );
}

TEST_F( TimerTest, StartRestartsARunningTimer ) {
   timer.start( 10ms );
   clock.advance( 9ms );
   timer.start( 10ms );
   clock.advance( 9ms );
   EXPECT_EQ( ran, 0 );
   clock.advance( 1ms );
   EXPECT_EQ( ran, 1 );
}

TEST_F( TimerTest, AStoppedOrDestroyedTimerDoesNotRun ) {
   std::optional< Timer > other( std::in_place, clock.scheduler(), "other", [ this ] { ++ran; } );
   timer.start( 10ms );
   other->start( 10ms );
   timer.stop();
   other.reset();
   clock.advance( 1h );
   EXPECT_EQ( ran, 0 );
}

TEST_F( TimerTest, ItsWorkMayStartItAgainAndDestroyIt ) {
   std::optional< Timer > other;
   other.emplace( clock.scheduler(), "other", [ & ] {
      if ( ++ran == 3 ) {
         other.reset();
      } else {
         other->start( 1ms );
      }
   } );
   other->start( 1ms );
   for ( int i = 0; i < 10; ++i ) {
      clock.advance( 1ms );
   }
   EXPECT_EQ( ran, 3 );
}

TEST_F( TimerTest, AFaultIsReportedWithTheTimersName ) {
   Valen::Test::FaultRecorder faults;
   Timer failing( clock.scheduler(), "failing", [] { throw std::runtime_error( "no luck" ); } );
   failing.start( 1ms );
   clock.advance( 1ms );
   EXPECT_THAT( faults.messages(), ::testing::ElementsAre( "fault in Timer failing: no luck" ) );
}

TEST_F( TimerTest, RunsAfterTheLibrarysTasksOfTheSameMoment ) {
   std::vector< std::string > order;
   Timer own( clock.scheduler(), "own", [ & ] { order.push_back( "process" ); } );
   auto const task =
      Quill::make< TimerTask >( clock.scheduler(), TaskPriority::library, Quill::String( "task" ) );
   struct OnRun final : Quill::NotifieeOf< TimerTask > {
      OnRun( Quill::Ptr< TimerTask > task, std::vector< std::string > & list ) : order( list ) {
         notifierIs( std::move( task ) );
      }
      void onAttribute( Quill::AttrId, void const * ) override { order.push_back( "library" ); }
      std::vector< std::string > & order;
   } onRun( task, order );
   own.start( 1ms );
   task->scheduleTaskDelay( 0.001 );
   clock.advance( 1ms );
   EXPECT_THAT( order, ::testing::ElementsAre( "library", "process" ) );
}

} // namespace
} // namespace Gantry
