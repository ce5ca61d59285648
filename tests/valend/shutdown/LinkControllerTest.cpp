// Requests for several links, and several requests for one.
#include "tests/valend/shutdown/ShutdownFixture.h"

namespace Valend {
namespace {

using namespace Test;

class LinkControllerTest : public ShutdownFixture {};

// --- Shutdowns -----------------------------------------------------------------------------------

TEST_F( LinkControllerTest, NothingHappensBeforeTheLoopTurns ) {
   controller.shutdown( "Ethernet1", { "root" }, nullptr );
   EXPECT_THAT( sentFrames(), IsEmpty() );
   EXPECT_FALSE( flag( "Ethernet1" ) );
   EXPECT_TRUE( controller.running( "Ethernet1" ) );
   turn();
   EXPECT_EQ( sentFrames().size(), 2u );
}

TEST_F( LinkControllerTest, SeveralShutdownsBeginOnePerTurn ) {
   controller.shutdown( "Ethernet1", { "root" }, nullptr );
   controller.shutdown( "Ethernet2", { "root" }, nullptr );
   work.run();
   EXPECT_EQ( sentFrames().size(), 2u ) << "the loop runs due timers before the next one";
   turn();
   EXPECT_EQ( sentFrames().size(), 3u );
   advance( 500ms );
   EXPECT_THAT( kernel.actions, ElementsAre( "down default/et1", "down ns-red/et2" ) );
}

TEST_F( LinkControllerTest, AnUnknownInterfaceIsRefused ) {
   try {
      controller.shutdown( "Ethernet9", { "root" }, nullptr );
      FAIL();
   } catch ( Refusal const & e ) {
      EXPECT_EQ( e.name(), "NoSuchInterface" );
      EXPECT_STREQ( e.what(), "interface \"Ethernet9\" is not configured" );
   }
   EXPECT_THROW( enable( "Ethernet9" ), Refusal );
}

// --- Joining and aborting ------------------------------------------------------------------------

TEST_F( LinkControllerTest, ASecondShutdownJoinsTheFirst ) {
   shutdown( "Ethernet1" );
   advance( 100ms );
   steps.clear();
   shutdown( "Ethernet1", "uid 7" );
   EXPECT_THAT( steps, ElementsAre( "delayed" ) ) << "the last step";
   EXPECT_EQ( sentFrames().size(), 2u );
   advance( 400ms );
   EXPECT_THAT( steps, ElementsAre( "delayed", "down", "down" ) ) << "both observers are called";
   EXPECT_EQ( controller.history().size(), 1u );
   EXPECT_EQ( last().request.by, "root" );
}

TEST_F( LinkControllerTest, EnablingDuringTheDelayAbortsTheShutdown ) {
   shutdown( "Ethernet1" );
   advance( 120ms );
   EXPECT_EQ( enable( "Ethernet1", "uid 7" ), "aborted" );
   EXPECT_THAT( steps, ElementsAre( "sent", "delayed", "aborted" ) );
   EXPECT_FALSE( delayed( "Ethernet1" ) );
   EXPECT_FALSE( flag( "Ethernet1" ) );
   EXPECT_EQ( last().why, "enabled by uid 7 after 120 ms" );
   EXPECT_EQ( last().held, 120ms );
   EXPECT_EQ( last().total, 120ms );
   EXPECT_EQ( controller.totals( "Ethernet1" ).aborts, 1u );
   advance( 2000ms );
   EXPECT_THAT( kernel.actions, IsEmpty() ) << "the link does not go down later";
}

TEST_F( LinkControllerTest, EnablingBeforeTheDelaySendsNoFrames ) {
   controller.shutdown( "Ethernet1", { "root" }, nullptr );
   EXPECT_EQ( enable( "Ethernet1" ), "aborted" );
   advance( 1000ms );
   EXPECT_THAT( sentFrames(), IsEmpty() );
   EXPECT_THAT( kernel.actions, IsEmpty() );
   EXPECT_EQ( last().why, "enabled before the delay began" );
}

TEST_F( LinkControllerTest, EnablingWhileFramesLeaveTheSocketAbortsTheShutdown ) {
   kernel.outstanding = 100;
   shutdown( "Ethernet1" );
   advance( 510ms );
   ASSERT_TRUE( controller.running( "Ethernet1" ) );
   EXPECT_EQ( enable( "Ethernet1" ), "aborted" );
   advance( 1000ms );
   EXPECT_THAT( kernel.actions, IsEmpty() );
}

TEST_F( LinkControllerTest, AnObserverMayAbortTheShutdown ) {
   controller.shutdown( "Ethernet1", { "root" }, [ this ]( auto step, auto const & ) {
      if ( step == ShutdownStep::sent ) {
         enabling( controller, "Ethernet1", "the observer" );
      }
   } );
   advance( 1000ms );
   EXPECT_FALSE( delayed( "Ethernet1" ) );
   EXPECT_THAT( kernel.actions, IsEmpty() );
   EXPECT_EQ( last().ending, Ending::aborted );
}

TEST_F( LinkControllerTest, AShutdownRequestedAgainBeforeTheFirstBeganSendsOnce ) {
   controller.shutdown( "Ethernet1", { "root" }, nullptr );
   enable( "Ethernet1" );
   shutdown( "Ethernet1" );
   EXPECT_EQ( sentFrames().size(), 2u );
   advance( 500ms );
   EXPECT_THAT( kernel.actions, ElementsAre( "down default/et1" ) );
}

TEST_F( LinkControllerTest, AShutdownMayFollowAnAbortAtOnce ) {
   shutdown( "Ethernet1" );
   enable( "Ethernet1" );
   shutdown( "Ethernet1" );
   EXPECT_EQ( sentFrames().size(), 4u );
   advance( 500ms );
   EXPECT_THAT( kernel.actions, ElementsAre( "down default/et1" ) );
}

// --- Enabling ------------------------------------------------------------------------------------

TEST_F( LinkControllerTest, EnablingSetsTheLinkUpAndLowersTheFlag ) {
   shutdown( "Ethernet1" );
   advance( 500ms );
   EXPECT_EQ( enable( "Ethernet1" ), "up" );
   EXPECT_TRUE( kernel.at( "default", "et1" ).up );
   EXPECT_FALSE( flag( "Ethernet1" ) );
   EXPECT_EQ( enable( "Ethernet1" ), "already-up" );
   EXPECT_THAT( kernel.actions, ElementsAre( "down default/et1", "up default/et1" ) );
}

TEST_F( LinkControllerTest, EnablingWithoutADeviceIsRefused ) {
   kernel.deviceDel( "default", "et1" );
   EXPECT_EQ( enable( "Ethernet1" ), "NoDevice: no device et1" );
}

TEST_F( LinkControllerTest, EnablingIsRefusedWhenTheKernelRefuses ) {
   kernel.at( "default", "et1" ).up = false;
   kernel.setErrno = EPERM;
   EXPECT_EQ( enable( "Ethernet1" ), "LinkFailed: the kernel said 1" );
}

// --- What is left of them ------------------------------------------------------------------------

TEST_F( LinkControllerTest, EveryShutdownEndsWithASummary ) {
   std::vector< std::string > lines;
   controller.endedIs( [ & ]( auto const & record ) { lines.push_back( record.summary() ); } );
   shutdown( "Ethernet1" );
   advance( 500ms );
   enable( "Ethernet1" );
   sent.failingSends = { 2 };
   kernel.outstanding = 60;
   shutdown( "Ethernet1", "uid 7" );
   advance( 800ms );
   shutdown( "Ethernet1" );
   shutdown( "Ethernet2" );
   advance( 120ms );
   enable( "Ethernet2" );
   EXPECT_THAT(
      lines,
      ElementsAre( "Ethernet1: shutdown by root: 2 frames in 0.0 ms, held 500 ms, muted "
                   "a, b, link down, total 500 ms",
                   "Ethernet1: shutdown by uid 7: 1 frame in 0.0 ms, 1 not sent (Network "
                   "is down), held 500 ms, muted a, b, 60 bytes unflushed, link down, total "
                   "700 ms",
                   "Ethernet1: shutdown by root: already down; no frames sent",
                   "Ethernet2: shutdown aborted: enabled after 120 ms; muted c, greeted c" ) );
}

TEST_F( LinkControllerTest, HistoryIsBounded ) {
   kernel.at( "default", "et1" ).up = false;
   for ( std::size_t i = 0; i < History::interfaceLimit + 5; ++i ) {
      shutdown( "Ethernet1" );
   }
   EXPECT_EQ( controller.history().size(), History::interfaceLimit );
}

TEST_F( LinkControllerTest, DestroyingTheControllerChangesNoLink ) {
   {
      LinkController other( store, feeder.config(), kernel, speakers, journal, conditions,
                            clock.scheduler(), work );
      other.shutdown( "Ethernet1", { "root" }, nullptr );
      turn();
      EXPECT_TRUE( other.running( "Ethernet1" ) );
   }
   advance( 2000ms );
   EXPECT_THAT( kernel.actions, IsEmpty() );
}

TEST_F( LinkControllerTest, WhenValendStopsEachShutdownInProgressIsALine ) {
   EXPECT_THAT( controller.stop(), IsEmpty() );
   shutdown( "Ethernet1" );
   advance( 100ms );
   std::string const line =
      "Ethernet1: shutdown by root in progress, link held for another 400 ms; ";
   EXPECT_THAT( controller.stop(),
                ElementsAre( line + "resumed when valend starts, unless that is more than 10 s "
                                    "after its delay" ) );
   journal.read(); // fails
   EXPECT_THAT( controller.stop(),
                ElementsAre( line + "lost, link stays up: no state directory; a shutdown in "
                                    "progress would be lost on restart" ) );
}

} // namespace
} // namespace Valend
