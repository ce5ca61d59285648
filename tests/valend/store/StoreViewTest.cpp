#include "valend/store/StoreView.h"

#include "tests/linux/SystemCalls.h"
#include "tests/support/LeakCheck.h"
#include "tests/support/SteppedClock.h"
#include "valend/base/Refusal.h"
#include "valend/store/Store.h"

#include <nlohmann/json.hpp>

namespace Valend {
namespace {

using namespace std::chrono_literals;
using Json = nlohmann::json;

// A clock on which everything takes time.
class TickingClock final : public Gantry::Clock {
 public:
   static constexpr Gantry::Time tick = 10us;

   explicit TickingClock( Gantry::Time now ) : now_( now ) {}
   Gantry::Time now() const noexcept override { return now_ += tick; }
   void advance( Gantry::Time duration ) { now_ += duration; }

 private:
   Gantry::Time mutable now_;
};

class StoreViewTest : public ::testing::Test {
 protected:
   std::unique_ptr< StoreView > view( std::string const & path ) {
      return std::make_unique< StoreView >( *store.entityManager, texts, path,
                                            [ this ] { ++changes; } );
   }
   // Runs the posted work to its end. Returns how many turns it took.
   int turns() {
      int turns = 0;
      for ( ; !work.empty(); ++turns ) {
         work.run();
      }
      return turns;
   }
   void statusesAre( int count ) {
      for ( int i = 0; i < count; ++i ) {
         store.statusDir->intfStatusIs( "Ethernet" + std::to_string( i ) );
      }
   }
   // How many allocations it takes to look at the text.
   static unsigned long allocationsOf( StoreView & view ) {
      auto const before = Valen::Test::allocations();
      view.text();
      return Valen::Test::allocations() - before;
   }
   auto status( std::string const & name ) const { return store.statusDir->intfStatus( name ); }

   Valen::Test::LeakCheck leaks;
   Valen::Test::SteppedClock clock;
   Gantry::WorkQueue work;
   Store store;
   StoreTexts texts{ clock.scheduler(), work };
   int changes = 0;
};

TEST_F( StoreViewTest, TheTextIsTheSameUntilSomethingBelowChanges ) {
   statusesAre( 3 );
   auto const status = view( "status" );
   auto const first = status->text();
   EXPECT_EQ( status->text(), first );
   store.globalConfig->shutdownDelayMsIs( 7 );
   EXPECT_EQ( changes, 0 );
   EXPECT_EQ( status->text(), first ) << "what is elsewhere does not matter";
   this->status( "Ethernet1" )->delayedIs( true );
   EXPECT_EQ( changes, 1 );
   auto const second = Json::parse( *status->text() );
   EXPECT_EQ( second[ "intfStatus" ][ "Ethernet1" ][ "delayed" ], true );
   EXPECT_EQ( second[ "intfStatus" ][ "Ethernet2" ][ "delayed" ], false );
}

TEST_F( StoreViewTest, ManyChangesAreReportedOnceAndThoseThatCancelOutGiveTheSameText ) {
   statusesAre( 1 );
   auto const status = view( "status" );
   auto const first = status->text();
   for ( int i = 0; i < 10; ++i ) {
      this->status( "Ethernet0" )->delayedIs( i % 2 == 0 );
   }
   EXPECT_EQ( changes, 1 );
   EXPECT_EQ( status->text(), first );
   this->status( "Ethernet0" )->delayedIs( true );
   EXPECT_EQ( changes, 2 );
}

TEST_F( StoreViewTest, WhatIsAddedAndRemovedIsSeen ) {
   auto const status = view( "status/intfStatus" );
   auto const one = view( "status/intfStatus/Ethernet0" );
   EXPECT_EQ( *status->text(), "{}" );
   EXPECT_EQ( one->text(), nullptr );
   statusesAre( 1 );
   EXPECT_EQ( Json::parse( *status->text() ).size(), 1u );
   EXPECT_EQ( Json::parse( *one->text() )[ "intfId" ], "Ethernet0" );
   store.statusDir->intfStatusDel( "Ethernet0" );
   EXPECT_EQ( *status->text(), "{}" );
   EXPECT_EQ( one->text(), nullptr );
}

TEST_F( StoreViewTest, AChangeAlongThePathIsToldOnceUntilTheNextLook ) {
   auto const one = view( "status/intfStatus/Ethernet0" );
   EXPECT_EQ( one->text(), nullptr );
   statusesAre( 2 );
   EXPECT_EQ( changes, 1 );
   EXPECT_NE( one->text(), nullptr );
   store.statusDir->intfStatusDel( "Ethernet0" );
   EXPECT_EQ( changes, 2 );
}

TEST_F( StoreViewTest, AnAttributeAndAPlainValueAreFollowed ) {
   statusesAre( 1 );
   auto const delayed = view( "status/intfStatus/Ethernet0/delayed" );
   auto const active = view( "status/agentActive" );
   EXPECT_EQ( *delayed->text(), "false" );
   EXPECT_EQ( *active->text(), "false" );
   status( "Ethernet0" )->delayedIs( true );
   store.statusDir->agentActiveIs( true );
   EXPECT_EQ( *delayed->text(), "true" );
   EXPECT_EQ( *active->text(), "true" );
}

TEST_F( StoreViewTest, ViewsOfTheSameEntitiesShareThem ) {
   statusesAre( 10 );
   std::vector< std::unique_ptr< StoreView > > views;
   for ( int i = 0; i < 64; ++i ) {
      views.push_back( view( i % 2 ? "status" : "" ) );
      views.back()->text();
   }
   auto const nodes = texts.nodes();
   EXPECT_LT( nodes, 50u );
   status( "Ethernet1" )->delayedIs( true );
   EXPECT_EQ( changes, 64 );
   for ( auto const & each : views ) {
      EXPECT_NE( each->text()->find( "\"delayed\":true" ), std::string::npos );
   }
   views.clear();
   EXPECT_EQ( texts.nodes(), 0u );
   EXPECT_FALSE( store.statusDir->hasNotifiees() );
}

TEST_F( StoreViewTest, OnlyWhatHasChangedIsMadeAgain ) {
   constexpr unsigned few = 100;
   statusesAre( 1000 );
   auto const status = view( "status" );
   EXPECT_GT( allocationsOf( *status ), 1000u );
   EXPECT_EQ( allocationsOf( *status ), 0u );
   EXPECT_LT( allocationsOf( *view( "status" ) ), few ) << "of the same entities";
   this->status( "Ethernet1" )->delayedIs( true );
   EXPECT_LT( allocationsOf( *status ), few );
}

TEST_F( StoreViewTest, AnAttributeIsNotMadeAgainForAnother ) {
   statusesAre( 1000 );
   auto const attribute = view( "status/intfStatus" );
   EXPECT_GT( allocationsOf( *attribute ), 1000u );
   store.statusDir->agentActiveIs( true );
   EXPECT_LT( allocationsOf( *attribute ), 100u );
}

TEST_F( StoreViewTest, ManyEntitiesAreReadInSlices ) {
   statusesAre( 5000 );
   auto const status = view( "status" );
   EXPECT_FALSE( status->ready() );
   EXPECT_GT( turns(), 20 );
   EXPECT_EQ( changes, 1 );
   EXPECT_TRUE( status->ready() );
   EXPECT_EQ( Json::parse( *status->text() )[ "intfStatus" ].size(), 5000u );
   this->status( "Ethernet77" )->delayedIs( true );
   EXPECT_FALSE( status->ready() );
   EXPECT_LE( turns(), 3 ) << "only what has changed is read again";
   EXPECT_TRUE( status->ready() );
   EXPECT_NE( status->text()->find( "\"delayed\":true" ), std::string::npos );
}

TEST_F( StoreViewTest, WhoAsksOftenIsToldOnce ) {
   statusesAre( 1000 );
   auto const status = view( "status" );
   EXPECT_FALSE( status->ready() );
   EXPECT_FALSE( status->ready() );
   turns();
   EXPECT_EQ( changes, 1 );
}

TEST_F( StoreViewTest, AfterManyEntitiesWereReadItRestsFourTimesAsLong ) {
   statusesAre( 1000 );
   TickingClock ticking( clock.now() );
   clock.scheduler()->schedulerClockIs( ticking );
   auto const status = view( "status" );
   EXPECT_FALSE( status->ready() );
   turns(); // 10 ms, and little more
   EXPECT_TRUE( status->ready() );
   status->text();
   this->status( "Ethernet1" )->delayedIs( true );
   EXPECT_FALSE( status->ready() );
   EXPECT_TRUE( work.empty() );
   ticking.advance( 38ms );
   EXPECT_EQ( clock.scheduler()->runDue(), 0u );
   changes = 0;
   ticking.advance( 7ms );
   EXPECT_EQ( clock.scheduler()->runDue(), 1u );
   EXPECT_EQ( changes, 1 );
   EXPECT_TRUE( status->ready() );
   ticking.advance( 1h ); // no timer may be left when the clock changes
   clock.scheduler()->runDue();
   clock.scheduler()->schedulerClockIs( clock );
}

TEST_F( StoreViewTest, AFewEntitiesDoNotWaitForManyOthers ) {
   statusesAre( 5000 );
   auto const status = view( "status" );
   EXPECT_FALSE( status->ready() );
   auto const config = view( "config/valen" );
   EXPECT_TRUE( config->ready() );
   EXPECT_FALSE( status->ready() );
}

TEST_F( StoreViewTest, AViewMayEndWhileItsEntitiesAreRead ) {
   statusesAre( 5000 );
   auto status = view( "status" );
   EXPECT_FALSE( status->ready() );
   work.run();
   status = nullptr;
   turns();
   EXPECT_EQ( changes, 0 );
   EXPECT_EQ( texts.nodes(), 0u );
}

TEST_F( StoreViewTest, TooManyValuesAreRefused ) {
   statusesAre( 70'000 ); // of three values each
   auto const status = view( "status" );
   EXPECT_THROW( status->text(), Refusal );
   auto const one = view( "status/intfStatus/Ethernet1" );
   EXPECT_NO_THROW( one->text() );
}

} // namespace
} // namespace Valend
