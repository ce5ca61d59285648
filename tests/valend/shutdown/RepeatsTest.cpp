// How often records that are repeated are written to the journal.
#include "valend/shutdown/Repeats.h"

#include "tests/support/SteppedClock.h"
#include "tests/support/WorkDirectory.h"

#include <algorithm>
#include <gmock/gmock.h>

namespace Valend {
namespace {

using namespace std::chrono_literals;

class RepeatsTest : public ::testing::Test {
 protected:
   RepeatsTest() {
      journal.read();
      repeats.emplace( journal, clock.scheduler() );
   }
   void repeat( U64 id, U64 count, std::string const & interface = "Ethernet1" ) {
      ShutdownRecord record;
      record.interface = interface;
      record.ending = ShutdownRecord::Ending::wentDown;
      record.count = count;
      repeats->repeated( { id, record } );
   }
   // The counts in the journal, line by line.
   std::vector< U64 > written() const {
      std::vector< U64 > counts;
      std::istringstream lines( work.content( "state/shutdowns" ) );
      for ( std::string line; std::getline( lines, line ); ) {
         if ( auto const entry = entryIn( line ) ) {
            EXPECT_EQ( entry->phase, Phase::ended );
            counts.push_back( entry->record.count );
         }
      }
      return counts;
   }

   Valen::Test::SteppedClock clock;
   Valen::Test::WorkDirectory const work;
   Conditions conditions{ []( auto, auto const & ) {} };
   StateDirectory state{ work / "state" };
   Journal journal{ state, clock.scheduler(), { "b1", [] { return 42ns; } }, conditions };
   std::optional< Repeats > repeats;
};

TEST_F( RepeatsTest, ThoseOfAWhileAreWrittenTogether ) {
   for ( U64 i = 2; i <= 100; ++i ) {
      repeat( 7, i );
   }
   clock.advance( Repeats::firstPause - 1ms );
   EXPECT_EQ( written(), std::vector< U64 >() );
   clock.advance( 1ms );
   EXPECT_EQ( written(), std::vector< U64 >{ 100 } );
   clock.advance( 24h );
   EXPECT_EQ( written(), std::vector< U64 >{ 100 } ) << "nothing is new";
}

TEST_F( RepeatsTest, APauseGrowsWithEachLine ) {
   U64 count = 1;
   for ( auto second = 0s; second < 24h; second += 1s ) {
      repeat( 7, ++count );
      clock.advance( 1s );
   }
   auto const lines = written();
   EXPECT_LT( lines.size(), 310u );
   EXPECT_GT( lines.size(), 250u );
   EXPECT_GE( lines.back(), count - 310 ) << "a crash loses five minutes";
}

TEST_F( RepeatsTest, ANewRecordIsNotHeldUpByTheOneBefore ) {
   for ( int i = 0; i < 20; ++i ) {
      repeat( 7, 2 );
      clock.advance( Repeats::lastPause );
   }
   auto const before = written().size();
   repeat( 7, 3 );
   repeat( 8, 2 );
   EXPECT_EQ( written().size(), before + 1 ) << "the count of the old one is complete";
   clock.advance( Repeats::firstPause );
   EXPECT_EQ( written().size(), before + 2 );
}

TEST_F( RepeatsTest, WhatIsNotWrittenYetIsWrittenAtTheEnd ) {
   repeat( 7, 2 );
   repeat( 8, 3, "Ethernet2" );
   repeats.reset();
   EXPECT_EQ( written(), ( std::vector< U64 >{ 2, 3 } ) );
}

} // namespace
} // namespace Valend
