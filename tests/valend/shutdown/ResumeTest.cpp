// Shutdowns of a previous run, continued where they were.
#include "tests/valend/shutdown/ResumeFixture.h"

namespace Valend {
namespace {

using namespace Test;

class ResumeTest : public ResumeFixture {};

TEST_F( ResumeTest, AfterACrashInAnyPhaseTheLinkGoesDownAndRecordedFramesAreNotSentAgain ) {
   for ( std::size_t lines = 1; lines < wholeLines; ++lines ) {
      SCOPED_TRACE( "crash after line " + std::to_string( lines ) );
      crashAfterLine( lines );
      DaemonRun run( directory, 700ms );
      run.startAndResume();
      run.advance( 600ms );
      EXPECT_THAT( run.kernel.actions, ElementsAre( "down default/et1" ) );
      EXPECT_EQ( run.sentFrames().size(), lines < 3 ? 2u : 0u );
      ASSERT_EQ( run.controller.history().size(), 1u );
      EXPECT_EQ( run.last().ending, Ending::down );
      EXPECT_TRUE( run.last().resumed );
      EXPECT_EQ( run.last().request.by, "root" );
      EXPECT_EQ( run.last().sent, 2u );
      EXPECT_FALSE( run.controller.running( "Ethernet1" ) );
   }
}

TEST_F( ResumeTest, SpeakersThatWereMutedAreMutedAgainUntilTheLinkIsDown ) {
   crash( 100ms );
   DaemonRun run( directory, 200ms );
   run.speakers.heldBack = 2;
   run.startAndResume();
   EXPECT_THAT( run.speakers.calls, ElementsAre( "mute again default/et1 a b for 1300 ms" ) );
   run.advance( 300ms );
   EXPECT_THAT( run.kernel.actions, ElementsAre( "down default/et1" ) );
   EXPECT_EQ( run.speakers.calls.back(), "unmute default/et1" );
   EXPECT_EQ( run.last().muted,
              ( std::vector< MutedSpeaker >{ { "a", "", 2, false }, { "b", "", 2, false } } ) );
   EXPECT_EQ( run.last().notMuted, "" );
}

TEST_F( ResumeTest, SpeakersThatWereMutedAgainAreGreetedAfterAnAbort ) {
   crash( 100ms );
   DaemonRun run( directory, 200ms );
   run.startAndResume();
   run.enable( "Ethernet1" );
   run.turn();
   EXPECT_EQ( run.last().ending, Ending::aborted );
   EXPECT_EQ( run.speakers.calls.back(), "unmute default/et1 and greet" );
}

TEST_F( ResumeTest, ASecondCrashDoesNotForgetWhoWasMuted ) {
   crash( 100ms );
   { DaemonRun( directory, 200ms ).startAndResume(); }
   DaemonRun run( directory, 300ms );
   run.startAndResume();
   EXPECT_THAT( run.speakers.calls, ElementsAre( "mute again default/et1 a b for 1200 ms" ) );
}

TEST_F( ResumeTest, WhySpeakersCouldNotBeMutedAgainIsInTheRecord ) {
   crash( 100ms );
   DaemonRun run( directory, 200ms );
   run.speakers.whyNot = "its filter is not attached yet";
   run.startAndResume();
   run.advance( 300ms );
   EXPECT_EQ( run.last().ending, Ending::down );
   EXPECT_EQ( run.last().notMuted, run.speakers.whyNot );
}

TEST_F( ResumeTest, AtItsEndNobodyIsRecordedAsMutedNow ) {
   crash( 600ms );
   auto const lines = work.content( "shutdowns" );
   auto const begin = lines.rfind( '\n', lines.size() - 2 ) + 1;
   auto const end = entryIn( std::string_view( lines ).substr( begin, lines.size() - begin - 1 ) );
   ASSERT_TRUE( end );
   EXPECT_EQ( end->phase, Phase::ended );
   EXPECT_THAT( end->muted, IsEmpty() );
}

// The operator enabled it while the kernel set it down.
TEST_F( ResumeTest, ALinkThatWasBeingSetUpAgainIsSetUp ) {
   {
      DaemonRun run( directory, 0ms );
      run.startAndResume();
      run.kernel.busy = true;
      run.controller.shutdown( "Ethernet1", { "root" }, nullptr );
      run.advance( 500ms );
      run.kernel.begin();
      run.enabling( run.controller, "Ethernet1" );
   }
   DaemonRun run( directory, 600ms );
   run.start( run.twoInterfaces() );
   run.kernel.at( "default", "et1" ).up = false;
   run.controller.resume( recover( run.journal ) );
   run.advance( 100ms );
   EXPECT_THAT( run.kernel.actions, ElementsAre( "up default/et1" ) );
   ASSERT_FALSE( run.controller.history().empty() );
   EXPECT_EQ( run.last().ending, Ending::aborted );
   EXPECT_EQ( run.last().why, "enabled after 500 ms; link was down, and set up again" );
   EXPECT_FALSE( run.controller.running( "Ethernet1" ) );
}

TEST_F( ResumeTest, AnEndedShutdownIsHistory ) {
   crash( 600ms );
   DaemonRun run( directory, 700ms );
   run.startAndResume();
   run.advance( 1000ms );
   EXPECT_THAT( run.kernel.actions, IsEmpty() );
   ASSERT_EQ( run.controller.history().size(), 1u );
   EXPECT_EQ( run.last().summary(), "Ethernet1: shutdown by root: 2 frames in 0.0 ms, held 500 "
                                    "ms, muted a, b, link down, total 500 ms" );
   EXPECT_FALSE( run.last().resumed );
   EXPECT_EQ( run.controller.totals( "Ethernet1" ).shutdowns, 0u ) << "counters start at 0";
}

TEST_F( ResumeTest, AHeldLinkIsHeldToItsDeadline ) {
   crash( 100ms );
   DaemonRun run( directory, 200ms );
   run.startAndResume();
   EXPECT_EQ( run.controller.remaining( "Ethernet1" ), 300ms );
   run.advance( 299ms );
   EXPECT_THAT( run.kernel.actions, IsEmpty() );
   run.advance( 1ms );
   EXPECT_THAT( run.kernel.actions, ElementsAre( "down default/et1" ) );
   EXPECT_EQ( run.last().why, "valend restarted 200 ms into the delay" );
   EXPECT_EQ( run.last().held, 500ms );
   EXPECT_EQ( run.last().total, 500ms );
   EXPECT_EQ( run.last().agents, ( std::vector< AgentFrames >{ { "lldp", 2, {} } } ) );
}

TEST_F( ResumeTest, ADeadlineInThePastEndsTheDelayAtOnce ) {
   crash( 100ms );
   DaemonRun run( directory, 10'000ms );
   run.startAndResume();
   run.advance( 1ms );
   EXPECT_THAT( run.kernel.actions, ElementsAre( "down default/et1" ) );
}

TEST_F( ResumeTest, ARequestThatHadNotBegunGetsTheWholeDelay ) {
   crash( 100ms );
   keepLines( 1 );
   DaemonRun run( directory, 10'000ms );
   run.startAndResume();
   EXPECT_THAT( run.sentFrames(), ElementsAre( "default/7:a", "default/7:b" ) );
   EXPECT_TRUE( run.delayed( "Ethernet1" ) );
   run.advance( 499ms );
   EXPECT_THAT( run.kernel.actions, IsEmpty() );
   run.advance( 1ms );
   EXPECT_THAT( run.kernel.actions, ElementsAre( "down default/et1" ) );
   EXPECT_EQ( run.last().why, "" );
}

TEST_F( ResumeTest, FramesThatMayNotHaveLeftAreSentAgainAndTheFirstDeadlineCounts ) {
   crash( 100ms );
   keepLines( 2 );
   DaemonRun run( directory, 200ms );
   run.startAndResume();
   EXPECT_EQ( run.sentFrames().size(), 2u );
   run.advance( 299ms );
   EXPECT_THAT( run.kernel.actions, IsEmpty() );
   run.advance( 1ms );
   EXPECT_THAT( run.kernel.actions, ElementsAre( "down default/et1" ) );
   EXPECT_EQ( run.last().why, "frames sent again: valend restarted while sending" );
}

TEST_F( ResumeTest, ARequestedDelayIsKept ) {
   {
      DaemonRun run( directory, 0ms );
      run.startAndResume();
      run.controller.shutdown( "Ethernet1", { "root", "alice", "new optics", 2000ms }, nullptr );
      run.advance( 100ms );
   }
   for ( std::size_t const lines : { 3, 1 } ) {
      keepLines( lines );
      DaemonRun run( directory, 200ms );
      run.startAndResume();
      EXPECT_EQ( run.controller.remaining( "Ethernet1" ), lines == 3 ? 1800ms : 2000ms );
      run.enable( "Ethernet1" );
      EXPECT_EQ( run.last().request, ( Request{ "root", "alice", "new optics", 2000ms } ) );
   }
}

TEST_F( ResumeTest, EnablingAbortsAResumedShutdown ) {
   for ( std::size_t const lines : { 1, 2, 3 } ) {
      work.remove( "shutdowns" );
      crash( 0ms );
      keepLines( lines );
      DaemonRun run( directory, 120ms );
      run.startAndResume();
      EXPECT_EQ( run.enable( "Ethernet1" ), "aborted" );
      run.advance( 5000ms );
      EXPECT_THAT( run.kernel.actions, IsEmpty() );
      EXPECT_EQ( run.last().ending, Ending::aborted );
      EXPECT_FALSE( run.delayed( "Ethernet1" ) );
   }
}

TEST_F( ResumeTest, AnAbortedShutdownIsNotResumed ) {
   {
      DaemonRun run( directory, 0ms );
      run.startAndResume();
      run.controller.shutdown( "Ethernet1", { "root" }, nullptr );
      run.advance( 120ms );
      run.enable( "Ethernet1" );
   }
   DaemonRun run( directory, 200ms );
   run.startAndResume();
   run.advance( 5000ms );
   EXPECT_THAT( run.kernel.actions, IsEmpty() );
   EXPECT_EQ( run.last().summary(),
              "Ethernet1: shutdown aborted: enabled after 120 ms; muted a, b, greeted a, b" );
}

// The journal has its device: that link was to go down.
TEST_F( ResumeTest, AResumedShutdownOfARemovedInterfaceCanBeAborted ) {
   crash( 100ms );
   DaemonRun run( directory, 200ms );
   run.startAndResume( Settings::Config() );
   EXPECT_EQ( run.enable( "Ethernet1" ), "aborted" );
   run.advance( 1000ms );
   EXPECT_THAT( run.kernel.actions, IsEmpty() );
}

TEST_F( ResumeTest, ARequestJoinsAResumedShutdown ) {
   crash( 100ms );
   DaemonRun run( directory, 200ms );
   run.startAndResume();
   std::vector< ShutdownStep > steps;
   run.controller.shutdown( "Ethernet1", { "root" },
                            [ & ]( auto step, auto const & ) { steps.push_back( step ); } );
   run.advance( 300ms );
   EXPECT_THAT( steps, ElementsAre( ShutdownStep::delayed, ShutdownStep::ended ) );
   EXPECT_THAT( run.sentFrames(), IsEmpty() );
}

TEST_F( ResumeTest, ASecondCrashChangesNothing ) {
   crash( 100ms );
   for ( auto const uptime : { 200ms, 300ms } ) {
      DaemonRun run( directory, uptime );
      run.startAndResume();
      run.advance( 50ms );
   }
   DaemonRun run( directory, 400ms );
   run.startAndResume();
   run.advance( 100ms );
   EXPECT_THAT( run.kernel.actions, ElementsAre( "down default/et1" ) );
   EXPECT_THAT( run.sentFrames(), IsEmpty() );
}

TEST_F( ResumeTest, WithoutAJournalShutdownsWork ) {
   work.write( "state", "a file" );
   DaemonRun run( work / "state", 0ms );
   run.startAndResume();
   ASSERT_EQ( run.conditions.raised().size(), 1u );
   EXPECT_EQ( run.conditions.raised()[ 0 ].text,
              "cannot open " + work / "state" +
                 ": Not a directory; a shutdown in progress would be lost on restart" );
   run.controller.shutdown( "Ethernet1", { "root" }, nullptr );
   run.advance( 500ms );
   EXPECT_THAT( run.kernel.actions, ElementsAre( "down default/et1" ) );
   EXPECT_EQ( run.sentFrames().size(), 2u );
}

} // namespace
} // namespace Valend
