// Links that the kernel does not set down at once: it takes long, or refuses.
#include "tests/valend/shutdown/ShutdownFixture.h"

namespace Valend {
namespace {

using namespace Test;

class LinkChangeTest : public JournaledFixture {
 protected:
   // The phase in the last line of the journal.
   std::string recordedPhase() const {
      auto const content = files.content( "shutdowns" );
      auto const line = content.rfind( '\n', content.size() - 2 ) + 1;
      auto const entry = entryIn( content.substr( line, content.size() - 1 - line ) );
      return entry ? textOf( entry->phase ) : "none";
   }
   // The delay of Ethernet1 is over; the kernel is busy, and has not begun with its link.
   void waitForKernel() {
      kernel.busy = true;
      shutdown( "Ethernet1" );
      advance( 500ms );
      ASSERT_EQ( kernel.queued(), 1u );
      steps.clear();
   }
   std::string condition() const {
      auto const raised = conditions.raised();
      return raised.size() == 1 ? raised[ 0 ].name + ": " + raised[ 0 ].text : "";
   }
};

// --- It takes long -------------------------------------------------------------------------------

TEST_F( LinkChangeTest, AShutdownWaitsForTheKernelHoweverLong ) {
   waitForKernel();
   EXPECT_EQ( recordedPhase(), "setting-down" );
   advance( 5000ms );
   EXPECT_THAT( steps, IsEmpty() );
   EXPECT_EQ( kernel.queued(), 1u ) << "it is requested once";
   kernel.goOn();
   EXPECT_THAT( steps, ElementsAre( "down" ) );
   EXPECT_EQ( last().held, 500ms );
   EXPECT_EQ( last().total, 5500ms );
   EXPECT_EQ( last().why, "" );
   EXPECT_EQ( condition(), "" );
}

TEST_F( LinkChangeTest, OthersAreHeldAbortedAndSentMeanwhile ) {
   waitForKernel();
   shutdown( "Ethernet2" );
   EXPECT_THAT( steps, ElementsAre( "sent", "delayed" ) );
   advance( 100ms );
   EXPECT_EQ( enable( "Ethernet2" ), "aborted" );
   EXPECT_EQ( kernel.queued(), 1u );
}

TEST_F( LinkChangeTest, WhatWasDueFirstComesFirst ) {
   kernel.busy = true;
   controller.shutdown( "Ethernet2", { "root", "", "", 600ms }, nullptr );
   shutdown( "Ethernet1" );
   kernel.outstanding = 1; // both wait for their frames
   advance( 599ms );
   kernel.outstanding = 0;
   advance( 100ms );
   ASSERT_EQ( kernel.queued(), 2u );
   kernel.goOn();
   EXPECT_THAT( kernel.actions, ElementsAre( "down default/et1", "down ns-red/et2" ) );
}

TEST_F( LinkChangeTest, EnablingWithdrawsAChangeThatHasNotBegun ) {
   waitForKernel();
   EXPECT_EQ( enable( "Ethernet1" ), "aborted" );
   EXPECT_EQ( kernel.queued(), 0u );
   kernel.goOn();
   advance( 1000ms );
   EXPECT_THAT( kernel.actions, IsEmpty() );
   EXPECT_EQ( last().ending, Ending::aborted );
   EXPECT_EQ( last().why, "enabled after 500 ms" );
}

TEST_F( LinkChangeTest, EnablingWhileTheLinkIsSetDownSetsItUpAgain ) {
   waitForKernel();
   kernel.begin(); // and it is down
   auto const result = enabling( controller, "Ethernet1" );
   auto const other = enabling( controller, "Ethernet1", "uid 7" );
   turn();
   EXPECT_EQ( *result, "" ) << "it is not up";
   EXPECT_EQ( recordedPhase(), "setting-up" );
   kernel.answer();
   EXPECT_EQ( *result, "" );
   kernel.goOn();
   EXPECT_EQ( *result, "up" );
   EXPECT_EQ( *other, "up" );
   EXPECT_THAT( kernel.actions, ElementsAre( "down default/et1", "up default/et1" ) );
   EXPECT_THAT( steps, ElementsAre( "aborted" ) );
   EXPECT_EQ( last().why, "enabled after 500 ms; link was down, and set up again" );
   EXPECT_EQ( controller.totals( "Ethernet1" ).wentDown, 0u );
}

TEST_F( LinkChangeTest, EnablingALinkThatTheKernelDoesNotSetDownAborts ) {
   kernel.setErrno = EBUSY;
   waitForKernel();
   kernel.begin();
   auto const result = enabling( controller, "Ethernet1" );
   kernel.answer();
   EXPECT_EQ( *result, "aborted" );
   EXPECT_THAT( kernel.actions, IsEmpty() );
   EXPECT_EQ( last().ending, Ending::aborted );
}

TEST_F( LinkChangeTest, ALinkThatCannotBeSetUpAgainIsReportedAsDown ) {
   waitForKernel();
   kernel.begin();
   auto const result = enabling( controller, "Ethernet1" );
   kernel.setErrno = EBUSY;
   kernel.answer();
   kernel.goOn();
   advance( ShutdownLink::downTimeout + 20ms );
   EXPECT_EQ( *result, "LinkFailed: the kernel said 16" );
   EXPECT_EQ( last().ending, Ending::down );
   EXPECT_EQ( last().why, "enabled after 500 ms; the kernel said 16" );
   EXPECT_FALSE( controller.running( "Ethernet1" ) );
}

TEST_F( LinkChangeTest, ALinkIsEnabledWhenItIsUp ) {
   kernel.at( "default", "et1" ).up = false;
   kernel.busy = true;
   auto const result = enabling( controller, "Ethernet1" );
   auto const other = enabling( controller, "Ethernet1", "uid 7" );
   advance( 1000ms );
   EXPECT_EQ( *result, "" );
   EXPECT_EQ( kernel.queued(), 1u );
   kernel.goOn();
   EXPECT_EQ( *result, "up" );
   EXPECT_EQ( *other, "up" );
}

TEST_F( LinkChangeTest, AShutdownOfALinkThatIsBeingSetUpBeginsAfterThat ) {
   kernel.at( "default", "et1" ).up = false;
   kernel.busy = true;
   auto const result = enabling( controller, "Ethernet1" );
   shutdown( "Ethernet1" );
   EXPECT_THAT( steps, IsEmpty() ) << "it is not already down: it was enabled before";
   kernel.goOn();
   EXPECT_EQ( *result, "up" );
   advance( 500ms );
   EXPECT_THAT( steps, ElementsAre( "sent", "delayed", "down" ) );
   EXPECT_THAT( kernel.actions, ElementsAre( "up default/et1", "down default/et1" ) );
}

TEST_F( LinkChangeTest, AnInterfaceThatGetsAnotherDeviceMeanwhileIsSetDownThere ) {
   waitForKernel();
   kernel.deviceIs( "default", "et9", 9 );
   auto config = twoInterfaces();
   config.interfaces.at( "Ethernet1" ).device = "et9";
   feeder.apply( config );
   controller.configChanged();
   kernel.goOn();
   turn();
   EXPECT_THAT( kernel.actions, ElementsAre( "down default/et9" ) );
}

TEST_F( LinkChangeTest, WhenValendStopsWhatHasNotBegunIsDropped ) {
   waitForKernel();
   kernel.at( "ns-red", "et2" ).up = false;
   auto const result = enabling( controller, "Ethernet2" );
   EXPECT_THAT(
      controller.stop(),
      ElementsAre( "Ethernet1: shutdown by root in progress; resumed when valend starts, "
                   "unless that is more than 10 s after its delay",
                   "Ethernet2: request to set the link up dropped; link left unchanged" ) );
   kernel.goOn();
   advance( 1000ms );
   EXPECT_THAT( kernel.actions, IsEmpty() );
   EXPECT_EQ( *result, "" );
}

TEST_F( LinkChangeTest, WhenValendStopsWhatHasBegunIsSaid ) {
   waitForKernel();
   kernel.begin();
   EXPECT_THAT(
      controller.stop(),
      ElementsAre( HasSubstr( "in progress, link being set down at this moment; resumed" ) ) );
   enabling( controller, "Ethernet1" );
   EXPECT_THAT( controller.stop(),
                ElementsAre( HasSubstr( "link being set up again at this moment; resumed" ) ) );
   kernel.answer();
}

// --- It refuses ----------------------------------------------------------------------------------

TEST_F( LinkChangeTest, TheAttemptGoesOnUntilTheKernelSetsTheLinkDown ) {
   kernel.setErrno = EPERM;
   shutdown( "Ethernet1" );
   advance( 500ms );
   EXPECT_EQ( controller.whyRetrying( "Ethernet1" ), "the kernel said 1" );
   advance( 900ms );
   EXPECT_THAT( steps, ElementsAre( "sent", "delayed" ) );
   EXPECT_EQ( condition(), "" ) << "it may be over in a moment";
   advance( 400ms ); // the first attempt after one second is made after 1270 ms
   EXPECT_THAT( steps, ElementsAre( "sent", "delayed", "retrying: the kernel said 1" ) );
   advance( 9600ms );
   EXPECT_THAT( steps, ElementsAre( "sent", "delayed", "retrying: the kernel said 1" ) ) << "once";
   EXPECT_EQ( condition(), "link/Ethernet1: the kernel said 1; trying again until the link is down "
                           "or enabled" );
   EXPECT_TRUE( controller.running( "Ethernet1" ) );
   EXPECT_EQ( recordedPhase(), "setting-down" );
   kernel.setErrno = 0;
   advance( 1000ms );
   EXPECT_EQ( steps.back(), "down" );
   EXPECT_THAT( kernel.actions, ElementsAre( "down default/et1" ) );
   EXPECT_THAT( last().why, ::testing::MatchesRegex( "the kernel said 1; link set down at attempt "
                                                     "1[0-9], after 1[01][0-9]+ ms" ) );
   EXPECT_EQ( condition(), "" );
   EXPECT_EQ( controller.whyRetrying( "Ethernet1" ), "" );
}

TEST_F( LinkChangeTest, TheReasonIsTheNewestAndEachIsNoted ) {
   kernel.setErrno = EMFILE;
   shutdown( "Ethernet1" );
   advance( 3000ms );
   kernel.setErrno = EBUSY;
   advance( 2000ms );
   EXPECT_EQ( controller.whyRetrying( "Ethernet1" ), "the kernel said 16" );
   EXPECT_THAT( condition(), HasSubstr( "the kernel said 16" ) );
   kernel.setErrno = 0;
   advance( 1000ms );
   EXPECT_THAT( last().why,
                ::testing::StartsWith( "the kernel said 24; the kernel said 16; link set down" ) );
}

TEST_F( LinkChangeTest, EnablingEndsTheAttempts ) {
   kernel.setErrno = EPERM;
   shutdown( "Ethernet1" );
   advance( 3000ms );
   EXPECT_EQ( enable( "Ethernet1" ), "aborted" );
   EXPECT_EQ( condition(), "" );
   kernel.setErrno = 0;
   advance( 3000ms );
   EXPECT_THAT( kernel.actions, IsEmpty() );
   EXPECT_EQ( last().ending, Ending::aborted );
}

// Whatever refused it before: a device that was just recreated is waited for.
TEST_F( LinkChangeTest, ADeviceThatGoesMeanwhileEndsTheShutdown ) {
   kernel.setErrno = EBUSY;
   shutdown( "Ethernet1" );
   advance( 3000ms );
   kernel.setErrno = 0;
   kernel.deviceDel( "default", "et1" );
   advance( 2000ms );
   EXPECT_EQ( last().ending, Ending::noDevice );
}

} // namespace
} // namespace Valend
