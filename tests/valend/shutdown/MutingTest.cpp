// Which speakers a shutdown mutes, for how long, and which it greets.
#include "tests/valend/shutdown/ShutdownFixture.h"

namespace Valend {
namespace {

using namespace Test;

class ShutdownMutingTest : public ShutdownFixture {};

TEST_F( ShutdownMutingTest, TheSpeakersAreMutedFromTheGoodbyeUntilTheLinkIsDown ) {
   speakers.heldBack = 3;
   shutdown( "Ethernet1" );
   EXPECT_THAT( speakers.calls, ElementsAre( "mute default/et1 a b for 1500 ms" ) );
   advance( 500ms );
   EXPECT_THAT( kernel.actions, ElementsAre( "down default/et1" ) );
   EXPECT_THAT( speakers.calls,
                ElementsAre( "mute default/et1 a b for 1500 ms", "unmute default/et1" ) );
   EXPECT_EQ( last().muted,
              ( std::vector< MutedSpeaker >{ { "a", "", 3, false }, { "b", "", 3, false } } ) );
   EXPECT_EQ( last().notMuted, "" );
}

TEST_F( ShutdownMutingTest, AfterAnAbortTheSpeakersAreHeardAgainAndGreet ) {
   shutdown( "Ethernet1" );
   advance( 100ms );
   enable( "Ethernet1" );
   turn();
   EXPECT_EQ( last().ending, Ending::aborted );
   EXPECT_EQ( speakers.calls.back(), "unmute default/et1 and greet" );
   EXPECT_TRUE( last().muted.at( 0 ).greeted );
}

TEST_F( ShutdownMutingTest, WhyNoSpeakerIsMutedIsInTheRecord ) {
   speakers.whyNot = "the kernel does not accept the egress filter";
   shutdown( "Ethernet1" );
   advance( 500ms );
   EXPECT_EQ( last().ending, Ending::down );
   EXPECT_EQ( last().notMuted, speakers.whyNot );
   EXPECT_EQ( last().why, "" );
}

TEST_F( ShutdownMutingTest, ASpeakerWhoseGoodbyeWasRejectedStaysHeard ) {
   sent.failingSends = { 1 };
   shutdown( "Ethernet1" );
   EXPECT_THAT( speakers.calls, ElementsAre( "mute default/et1 a b for 1500 ms",
                                             "mute default/et1 a for 1500 ms" ) );
}

TEST_F( ShutdownMutingTest, AShutdownWithoutAGoodbyeMutesNobody ) {
   kernel.at( "default", "et1" ).up = false;
   shutdown( "Ethernet1" );
   EXPECT_EQ( last().ending, Ending::alreadyDown );
   EXPECT_THAT( speakers.calls, IsEmpty() );
}

TEST_F( ShutdownMutingTest, ADeviceThatTheInterfaceLeavesMeanwhileIsHeardAgain ) {
   shutdown( "Ethernet1" );
   auto changed = twoInterfaces();
   changed.interfaces[ "Ethernet1" ].device = "et9";
   kernel.deviceIs( "default", "et9", 19 );
   feeder.apply( changed );
   controller.configChanged();
   advance( 2s );
   EXPECT_EQ( speakers.calls.back(), "unmute default/et1" );
}

} // namespace
} // namespace Valend
