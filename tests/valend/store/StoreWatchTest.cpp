#include "valend/store/StoreWatch.h"

#include "tests/support/LeakCheck.h"
#include "tests/support/SteppedClock.h"
#include "types/ValenTypes.h"

namespace Valend {
namespace {

using namespace std::chrono_literals;

class StoreWatchTest : public ::testing::Test {
 protected:
   StoreWatchTest() { watch.emplace( clock.scheduler(), work, look() ); }

   StoreWatch::Look look() {
      return [ this ]( StoreVisits & visits ) {
         ++looks;
         clock.advance( lookTakes );
         visits.assign( followed.begin(), followed.end() );
         return answer;
      };
   }
   // How many looks the posted work makes.
   int looksNow() {
      auto const before = looks;
      while ( !work.empty() ) {
         work.run();
      }
      return looks - before;
   }
   void change() { first->delayedIs( !first->delayed() ); }

   Valen::Test::LeakCheck leaks;
   Valen::Test::SteppedClock clock;
   Gantry::WorkQueue work;
   Quill::Ptr< Valen::Status::IntfStatus > const first =
      Quill::make< Valen::Status::IntfStatus >( "Ethernet1" );
   std::vector< Quill::Ptr< Quill::Entity const > > followed{ first };
   StoreWatch::Looked answer;
   std::chrono::milliseconds lookTakes{ 0 };
   int looks = 0;
   std::optional< StoreWatch > watch;
};

TEST_F( StoreWatchTest, ItLooksFirstWhenTheWorkRuns ) {
   EXPECT_EQ( looks, 0 );
   EXPECT_EQ( looksNow(), 1 );
   EXPECT_EQ( watch->followed(), 1u );
}

TEST_F( StoreWatchTest, ManyChangesLeadToOneLook ) {
   looksNow();
   change();
   change();
   watch->changed();
   EXPECT_EQ( looksNow(), 1 );
   EXPECT_EQ( looksNow(), 0 ) << "nothing has changed since";
}

TEST_F( StoreWatchTest, OnlyTheEntitiesOfTheLastLookAreFollowed ) {
   looksNow();
   followed = { Quill::make< Valen::Status::IntfStatus >( "Ethernet2" ) };
   change();
   EXPECT_EQ( looksNow(), 1 );
   EXPECT_EQ( watch->followed(), 1u );
   change();
   EXPECT_EQ( looksNow(), 0 );
}

TEST_F( StoreWatchTest, ASkippedLookKeepsTheEntities ) {
   looksNow();
   followed.clear();
   answer.skipped = true;
   watch->changed();
   looksNow();
   EXPECT_EQ( watch->followed(), 1u );
}

TEST_F( StoreWatchTest, ALookThatTakesLongIsFollowedByARest ) {
   lookTakes = 5ms;
   EXPECT_EQ( looksNow(), 1 );
   change();
   EXPECT_EQ( looksNow(), 0 ) << "at rest";
   clock.advance( 49ms );
   EXPECT_EQ( looksNow(), 0 );
   clock.advance( 1ms );
   EXPECT_EQ( looksNow(), 1 ) << "the change is not lost";
}

TEST_F( StoreWatchTest, ItLooksAgainAtTheRequestedTime ) {
   answer.next = 100ms;
   looksNow();
   answer.next = std::nullopt;
   clock.advance( 99ms );
   EXPECT_EQ( looksNow(), 0 );
   clock.advance( 1ms );
   EXPECT_EQ( looksNow(), 1 );
   clock.advance( 1h );
   EXPECT_EQ( looksNow(), 0 );
}

TEST_F( StoreWatchTest, WhenItIsOverItFollowsNothing ) {
   answer.over = true;
   looksNow();
   EXPECT_TRUE( watch->over() );
   EXPECT_EQ( watch->followed(), 0u );
   watch->changed();
   EXPECT_EQ( looksNow(), 0 );
}

} // namespace
} // namespace Valend
