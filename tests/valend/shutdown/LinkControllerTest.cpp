#include "tests/valend/DaemonFixture.h"

namespace Valend {
namespace {

using namespace Test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Ending = ShutdownRecord::Ending;

class LinkControllerTest : public DaemonFixture {
 protected:
   LinkControllerTest() { start( twoInterfaces() ); }

   // Requests a shutdown, and records its steps in `steps`.
   void shutdown( std::string const & interface, std::string const & by = "root" ) {
      controller.shutdown( interface, { by }, [ this ]( auto step, auto const & record ) {
         steps.push_back( step == ShutdownStep::sent       ? "sent"
                          : step == ShutdownStep::delayed  ? "delayed"
                          : step == ShutdownStep::retrying ? "retrying"
                                                           : record.endingText() );
      } );
      turn();
   }
   ShutdownRecord const & last() const { return controller.history().back(); }
   bool flag( std::string const & interface ) const {
      return store.allIntfConfigDir->intfConfig( interface )->adminShutdownDelayed();
   }

   std::vector< std::string > steps;
};

// --- With delay ----------------------------------------------------------------------------------

TEST_F( LinkControllerTest, TheLinkGoesDownWhenTheFramesAreSentAndTheDelayIsOver ) {
   shutdown( "Ethernet1" );
   EXPECT_THAT( steps, ElementsAre( "sent", "delayed" ) );
   EXPECT_THAT( sentFrames(), ElementsAre( "default/7:a", "default/7:b" ) );
   EXPECT_EQ( controller.remaining( "Ethernet1" ), 500ms );
   advance( 499ms );
   EXPECT_THAT( kernel.actions, IsEmpty() );
   EXPECT_EQ( controller.remaining( "Ethernet1" ), 1ms );
   advance( 1ms );
   EXPECT_THAT( kernel.actions, ElementsAre( "down default/et1" ) );
   EXPECT_THAT( steps, ElementsAre( "sent", "delayed", "down" ) );
   EXPECT_EQ( controller.remaining( "Ethernet1" ), std::nullopt );
   EXPECT_FALSE( controller.running( "Ethernet1" ) );
   EXPECT_EQ( last().interface, "Ethernet1" );
   EXPECT_EQ( last().request.by, "root" );
   EXPECT_EQ( last().sent, 2u );
   EXPECT_EQ( last().failed, 0u );
   EXPECT_EQ( last().held, 500ms );
   EXPECT_EQ( last().ending, Ending::down );
   EXPECT_EQ( last().why, "" );
   EXPECT_TRUE( last().withDelay );
}

TEST_F( LinkControllerTest, ARequestedDelayReplacesTheConfiguredOneOnce ) {
   controller.shutdown( "Ethernet1", { "root", "", "", 1200ms }, nullptr );
   turn();
   EXPECT_EQ( controller.remaining( "Ethernet1" ), 1200ms );
   advance( 1199ms );
   EXPECT_THAT( kernel.actions, IsEmpty() );
   advance( 1ms );
   EXPECT_THAT( kernel.actions, ElementsAre( "down default/et1" ) );
   EXPECT_EQ( last().held, 1200ms );
   EXPECT_EQ( last().why, "" );
   controller.shutdown( "Ethernet2", { "root", "", "", 0ms }, nullptr );
   advance( 1ms );
   EXPECT_THAT( kernel.actions, ElementsAre( "down default/et1", "down ns-red/et2" ) );
   enable( "Ethernet1" );
   shutdown( "Ethernet1" );
   EXPECT_EQ( controller.remaining( "Ethernet1" ), 500ms );
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

TEST_F( LinkControllerTest, TheLinkGoesDownInItsOwnNamespace ) {
   shutdown( "Ethernet2" );
   advance( 500ms );
   EXPECT_THAT( kernel.actions, ElementsAre( "down ns-red/et2" ) );
}

TEST_F( LinkControllerTest, NothingHappensBeforeTheLoopTurns ) {
   controller.shutdown( "Ethernet1", { "root" }, nullptr );
   EXPECT_THAT( sentFrames(), IsEmpty() );
   EXPECT_FALSE( flag( "Ethernet1" ) );
   EXPECT_TRUE( controller.running( "Ethernet1" ) );
   turn();
   EXPECT_EQ( sentFrames().size(), 2u );
}

TEST_F( LinkControllerTest, ADelayOfZeroStillUsesTheTimer ) {
   auto config = twoInterfaces();
   config.shutdownDelayMs = 0;
   feeder.apply( config );
   shutdown( "Ethernet1" );
   EXPECT_THAT( steps, ElementsAre( "sent", "delayed" ) );
   advance( 1ms );
   EXPECT_THAT( steps, ElementsAre( "sent", "delayed", "down" ) );
}

TEST_F( LinkControllerTest, AShutdownAfterEnablingSendsAgain ) {
   for ( int i = 0; i < 3; ++i ) {
      shutdown( "Ethernet1" );
      advance( 500ms );
      EXPECT_EQ( enable( "Ethernet1" ), "up" );
   }
   EXPECT_EQ( sentFrames().size(), 6u );
   EXPECT_EQ( controller.totals( "Ethernet1" ).shutdowns, 3u );
   EXPECT_EQ( controller.totals( "Ethernet1" ).sent, 6u );
   EXPECT_EQ( controller.totals( "Ethernet2" ).shutdowns, 0u );
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

TEST_F( LinkControllerTest, ALinkThatSomebodyElseSetUpAgainIsHeldAgain ) {
   shutdown( "Ethernet1" );
   advance( 500ms );
   ASSERT_TRUE( flag( "Ethernet1" ) );
   kernel.at( "default", "et1" ).up = true;
   shutdown( "Ethernet1" );
   EXPECT_EQ( sentFrames().size(), 4u );
   EXPECT_TRUE( delayed( "Ethernet1" ) );
}

// --- Without delay -------------------------------------------------------------------------------

TEST_F( LinkControllerTest, AnInterfaceThatIsNotReadyGoesDownAtOnce ) {
   auto config = twoInterfaces();
   config.interfaces.at( "Ethernet1" ).shutdownDelay = false;
   feeder.apply( config );
   shutdown( "Ethernet1" );
   EXPECT_THAT( steps, ElementsAre( "down" ) );
   EXPECT_THAT( kernel.actions, ElementsAre( "down default/et1" ) );
   EXPECT_THAT( sentFrames(), IsEmpty() );
   EXPECT_FALSE( flag( "Ethernet1" ) );
   EXPECT_FALSE( last().withDelay );
}

TEST_F( LinkControllerTest, ALinkThatIsAlreadyDownIsLeftAlone ) {
   kernel.at( "default", "et1" ).up = false;
   shutdown( "Ethernet1" );
   EXPECT_THAT( steps, ElementsAre( "already-down" ) );
   EXPECT_THAT( kernel.actions, IsEmpty() );
   EXPECT_THAT( sentFrames(), IsEmpty() );
}

TEST_F( LinkControllerTest, AShutdownWithoutADeviceEndsAtOnce ) {
   kernel.deviceDel( "default", "et1" );
   shutdown( "Ethernet1" );
   EXPECT_THAT( steps, ElementsAre( "no-device" ) );
   EXPECT_EQ( last().why, "no device et1" );
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

// --- Frames --------------------------------------------------------------------------------------

TEST_F( LinkControllerTest, ARefusedFrameIsCountedWithItsErrorAndTheShutdownContinues ) {
   sent.failingSends = { 0 };
   shutdown( "Ethernet1" );
   advance( 500ms );
   EXPECT_EQ( last().sent, 1u );
   EXPECT_EQ( last().failed, 1u );
   EXPECT_EQ( last().failReason, "Network is down" );
   EXPECT_EQ( last().ending, Ending::down );
   EXPECT_EQ( controller.totals( "Ethernet1" ).failed, 1u );
   EXPECT_EQ( controller.totals( "Ethernet1" ).failReason, "Network is down" );
}

TEST_F( LinkControllerTest, FramesAreCountedByAgentAndError ) {
   auto config = twoInterfaces();
   config.agents[ "bfd" ][ "Ethernet1" ] = { frame( 'x' ) };
   config.agents[ "ospf" ][ "Ethernet1" ] = { frame( 'y' ), frame( 'z' ) };
   feeder.apply( config );
   sent.failingSends = { 1, 3, 4 };
   shutdown( "Ethernet1" );
   advance( 500ms );
   EXPECT_EQ( last().sent, 2u );
   EXPECT_EQ( last().failed, 3u );
   std::map< std::string, AgentFrames > agents;
   for ( auto const & frames : last().agents ) {
      agents[ frames.agent ] = frames;
   }
   // Whatever the order of the agents, the second, fourth and fifth frame failed.
   std::map< std::string, std::pair< U64, U64 > > expected; // sent, refused
   std::map< std::string, std::string > const agentOf{
      { "a", "lldp" }, { "b", "lldp" }, { "x", "bfd" }, { "y", "ospf" }, { "z", "ospf" } };
   for ( auto const & each : sentFrames() ) {
      ++expected[ agentOf.at( each.substr( each.size() - 1 ) ) ].first;
   }
   for ( auto const & [ agent, count ] :
         std::map< std::string, U64 >{ { "bfd", 1 }, { "lldp", 2 }, { "ospf", 2 } } ) {
      EXPECT_EQ( controller.statistics().agents().at( agent ), agents[ agent ] ) << agent;
      EXPECT_EQ( agents[ agent ].sent, expected[ agent ].first ) << agent;
      EXPECT_EQ( agents[ agent ].refused[ ENETDOWN ], count - expected[ agent ].first ) << agent;
   }
}

TEST_F( LinkControllerTest, TheLinkGoesDownWhenTheFramesHaveLeftTheMachine ) {
   kernel.outstanding = 100;
   shutdown( "Ethernet1" );
   advance( 550ms );
   EXPECT_THAT( kernel.actions, IsEmpty() );
   kernel.outstanding = 0;
   advance( 2ms );
   EXPECT_THAT( kernel.actions, ElementsAre( "down default/et1" ) );
   EXPECT_EQ( last().unflushedBytes, 0u );
}

TEST_F( LinkControllerTest, TheFramesOfOtherInterfacesDoNotDelayTheLink ) {
   kernel.outstandingOf[ { "default", "et9" } ] = 100;
   kernel.outstandingOf[ { "ns-red", "et1" } ] = 100;
   shutdown( "Ethernet1" );
   advance( 500ms );
   EXPECT_THAT( kernel.actions, ElementsAre( "down default/et1" ) );
   EXPECT_EQ( last().unflushedBytes, 0u );
   kernel.outstandingOf[ { "ns-red", "et2" } ] = 100;
   shutdown( "Ethernet2" );
   advance( 550ms );
   EXPECT_EQ( kernel.actions.size(), 1u ) << "its own do";
}

TEST_F( LinkControllerTest, FramesThatDoNotLeaveDelayTheLinkForALimitedTime ) {
   kernel.outstanding = 100;
   shutdown( "Ethernet1" );
   advance( 500ms + Shutdown::flushTimeout + 2ms );
   EXPECT_THAT( kernel.actions, ElementsAre( "down default/et1" ) );
   EXPECT_EQ( last().unflushedBytes, 100u );
   EXPECT_EQ( last().held, 500ms );
}

// --- When something goes wrong -------------------------------------------------------------------

TEST_F( LinkControllerTest, ADelayThatTheLibraryDoesNotEndTimesOut ) {
   shutdown( "Ethernet1" );
   auto const status = store.statusDir->intfStatus( "Ethernet1" );
   advance( 499ms );
   // `delayed` is raised again as soon as the library clears it.
   clock.advance( 1ms );
   status->delayedIs( true );
   turn();
   advance( Shutdown::margin - 1ms );
   EXPECT_THAT( kernel.actions, IsEmpty() );
   advance( 1ms );
   EXPECT_THAT( kernel.actions, ElementsAre( "down default/et1" ) );
   EXPECT_EQ( last().why, "the delay did not end in time" );
}

TEST_F( LinkControllerTest, AVrfThatFlapsDoesNotEndTheDelay ) {
   shutdown( "Ethernet2" );
   advance( 100ms );
   feeder.namespaceChanged( "ns-red" );
   ASSERT_FALSE( delayed( "Ethernet2" ) );
   advance( 399ms );
   EXPECT_THAT( kernel.actions, IsEmpty() );
   advance( 1ms );
   EXPECT_THAT( kernel.actions, ElementsAre( "down ns-red/et2" ) );
   EXPECT_EQ( last().why, "readiness lost 100 ms into the delay" );
   EXPECT_THAT( sentFrames(), ElementsAre( "ns-red/7:c" ) ) << "no frame is sent twice";
}

TEST_F( LinkControllerTest, ARecreatedDeviceIsHeldUntilTheDeadline ) {
   shutdown( "Ethernet1" );
   advance( 100ms );
   kernel.deviceDel( "default", "et1" );
   advance( 100ms );
   kernel.deviceIs( "default", "et1", 8 );
   advance( 299ms );
   EXPECT_THAT( kernel.actions, IsEmpty() );
   advance( 1ms );
   EXPECT_THAT( kernel.actions, ElementsAre( "down default/et1" ) );
}

TEST_F( LinkControllerTest, ADeviceThatIsGoneForGoodEndsTheShutdown ) {
   shutdown( "Ethernet1" );
   advance( 100ms );
   kernel.deviceDel( "default", "et1" );
   advance( 400ms + Shutdown::downTimeout + 10ms );
   EXPECT_EQ( last().ending, Ending::noDevice );
   EXPECT_EQ( last().why, "readiness lost 100 ms into the delay; no device et1" );
   EXPECT_FALSE( controller.running( "Ethernet1" ) );
}

TEST_F( LinkControllerTest, ADeviceRecreatedAtTheEndIsWaitedFor ) {
   shutdown( "Ethernet1" );
   advance( 490ms );
   kernel.deviceDel( "default", "et1" );
   advance( 50ms );
   EXPECT_TRUE( controller.running( "Ethernet1" ) );
   kernel.deviceIs( "default", "et1", 9 );
   advance( 20ms );
   EXPECT_THAT( kernel.actions, ElementsAre( "down default/et1" ) );
}

TEST_F( LinkControllerTest, DisablingTheDelayEndsIt ) {
   shutdown( "Ethernet1" );
   advance( 100ms );
   auto off = twoInterfaces();
   off.shutdownDelayMs.reset();
   feeder.apply( off );
   turn();
   EXPECT_THAT( kernel.actions, ElementsAre( "down default/et1" ) );
   EXPECT_EQ( last().why, "readiness lost 100 ms into the delay: delay disabled" );
   EXPECT_EQ( last().held, 100ms );
}

TEST_F( LinkControllerTest, DisablingTheDelayOfTheInterfaceEndsIt ) {
   shutdown( "Ethernet1" );
   advance( 100ms );
   auto config = twoInterfaces();
   config.interfaces.at( "Ethernet1" ).shutdownDelay = false;
   feeder.apply( config );
   turn();
   EXPECT_THAT( kernel.actions, ElementsAre( "down default/et1" ) );
   EXPECT_EQ( last().why,
              "readiness lost 100 ms into the delay: delay disabled for this interface" );
}

TEST_F( LinkControllerTest, DisablingTheDelayEndsItEvenAfterReadinessWasLost ) {
   shutdown( "Ethernet2" );
   advance( 100ms );
   feeder.namespaceChanged( "ns-red" );
   advance( 100ms );
   auto off = twoInterfaces();
   off.shutdownDelayMs.reset();
   feeder.apply( off );
   turn();
   EXPECT_THAT( kernel.actions, ElementsAre( "down ns-red/et2" ) );
   EXPECT_EQ( last().why, "readiness lost 100 ms into the delay; delay disabled" );
   EXPECT_EQ( last().held, 200ms );
}

TEST_F( LinkControllerTest, ADelayThatTheLibraryDoesNotStartIsNotWaitedFor ) {
   controller.shutdown( "Ethernet1", { "root" }, [ this ]( auto step, auto const & ) {
      if ( step == ShutdownStep::sent ) {
         store.statusDir->intfStatus( "Ethernet1" )->delayedIs( false );
      }
   } );
   turn();
   EXPECT_THAT( kernel.actions, ElementsAre( "down default/et1" ) );
   EXPECT_EQ( last().why, "the library did not start the delay" );
}

TEST_F( LinkControllerTest, AnInterfaceRemovedFromTheConfigurationStillGoesDown ) {
   shutdown( "Ethernet1" );
   advance( 100ms );
   feeder.apply( Settings::Config() );
   turn();
   EXPECT_THAT( kernel.actions, ElementsAre( "down default/et1" ) );
   EXPECT_THAT( last().why, ::testing::StartsWith( "readiness lost 100 ms into the delay" ) );
}

TEST_F( LinkControllerTest, ALinkWhoseStateIsUnknownGoesDown ) {
   kernel.upErrno = ETIMEDOUT;
   shutdown( "Ethernet1" );
   advance( 500ms );
   EXPECT_THAT( steps, ElementsAre( "sent", "delayed", "down" ) );
   EXPECT_EQ( last().why, "the kernel said 110" );
}

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
   EXPECT_THAT( lines,
                ElementsAre( "Ethernet1: shutdown by root: 2 frames in 0.0 ms, held 500 ms, link "
                             "down, total 500 ms",
                             "Ethernet1: shutdown by uid 7: 1 frame in 0.0 ms, 1 not sent (Network "
                             "is down), held 500 ms, 60 bytes unflushed, link down, total 700 ms",
                             "Ethernet1: shutdown by root: already down; no frames sent",
                             "Ethernet2: shutdown aborted: enabled after 120 ms" ) );
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
      LinkController other( store, feeder.config(), kernel, journal, conditions, clock.scheduler(),
                            work );
      other.shutdown( "Ethernet1", { "root" }, nullptr );
      turn();
      EXPECT_TRUE( other.running( "Ethernet1" ) );
   }
   advance( 2000ms );
   EXPECT_THAT( kernel.actions, IsEmpty() );
}

} // namespace
} // namespace Valend
