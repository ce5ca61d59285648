#include "valend/base/Slices.h"

#include "tests/support/FaultRecorder.h"
#include "tests/support/SteppedClock.h"

#include <gmock/gmock.h>
#include <optional>
#include <stdexcept>

namespace Valend {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

class SlicesTest : public ::testing::Test {
 protected:
   // Turns until nothing is left. Returns how many turns it took.
   unsigned turns() {
      unsigned count = 0;
      for ( ; !work.empty(); ++count ) {
         work.run();
      }
      return count;
   }
   Slices::Step counting( char name, unsigned times ) {
      return [ this, name, times ]() mutable {
         calls += name;
         return --times > 0;
      };
   }

   Valen::Test::FaultRecorder faults;
   Valen::Test::SteppedClock clock;
   Gantry::WorkQueue work;
   std::optional< Slices > slices{ std::in_place, work, clock.scheduler(), "test" };
   std::string calls;
};

TEST_F( SlicesTest, StepsRunOneAfterTheOtherUntilTheyAreDone ) {
   slices->add( counting( 'a', 3 ) );
   slices->add( counting( 'b', 1 ) );
   EXPECT_EQ( calls, "" ) << "never in the turn that adds them";
   turns();
   EXPECT_EQ( calls, "aaab" );
   slices->add( counting( 'c', 2 ) );
   turns();
   EXPECT_EQ( calls, "aaabcc" );
}

TEST_F( SlicesTest, OtherWorkRunsBetweenTwoSlices ) {
   unsigned others = 0;
   unsigned left = 10;
   slices->add( [ & ] {
      clock.advance( Slices::longest ); // which ends the slice
      work.post( [ & ] { ++others; } );
      return --left > 0;
   } );
   while ( left ) {
      work.run();
      EXPECT_GE( others + left + 1, 10u );
   }
   turns();
   EXPECT_EQ( others, 10u );
}

TEST_F( SlicesTest, ASliceEndsByTimeOrBySteps ) {
   slices->add( counting( 'a', 2 * Slices::mostSteps ) );
   work.run();
   EXPECT_EQ( calls.size(), Slices::mostSteps );
   slices->begin();
   EXPECT_TRUE( slices->goesOn() );
   clock.advance( Gantry::Time( Slices::longest ) / 2 );
   EXPECT_TRUE( slices->goesOn() );
   clock.advance( Gantry::Time( Slices::longest ) / 2 );
   EXPECT_FALSE( slices->goesOn() );
   EXPECT_EQ( slices->spent(), Slices::longest );
   slices->begin();
   clock.advance( Slices::longest );
   EXPECT_TRUE( slices->goesOn() ) << "the first step always belongs to it";
}

TEST_F( SlicesTest, AStepMayAddSteps ) {
   slices->add( [ this ] {
      slices->add( counting( 'b', 2 ) );
      calls += 'a';
      return false;
   } );
   turns();
   EXPECT_EQ( calls, "abb" );
}

TEST_F( SlicesTest, AStepThatThrowsIsAFaultAndTheOthersRun ) {
   slices->add( []() -> bool { throw std::runtime_error( "a step failed" ); } );
   slices->add( counting( 'b', 2 ) );
   turns();
   EXPECT_THAT( faults.messages(), ElementsAre( HasSubstr( "a step failed" ) ) );
   EXPECT_EQ( calls, "bb" );
}

TEST_F( SlicesTest, TheirOwnerMayEndBeforeThem ) {
   slices->add( counting( 'a', 1 ) );
   slices.reset();
   turns();
   EXPECT_EQ( calls, "" );
}

} // namespace
} // namespace Valend
