// One shutdown from its beginning to its end: the delay, the frames, the link.
#include "tests/valend/shutdown/ShutdownFixture.h"

namespace Valend {
namespace {

using namespace Test;

class ShutdownTest : public ShutdownFixture {};

// --- With delay ----------------------------------------------------------------------------------

TEST_F( ShutdownTest, TheLinkGoesDownWhenTheFramesAreSentAndTheDelayIsOver ) {
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

TEST_F( ShutdownTest, ARequestedDelayReplacesTheConfiguredOneOnce ) {
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

TEST_F( ShutdownTest, TheLinkGoesDownInItsOwnNamespace ) {
   shutdown( "Ethernet2" );
   advance( 500ms );
   EXPECT_THAT( kernel.actions, ElementsAre( "down ns-red/et2" ) );
}

TEST_F( ShutdownTest, ADelayOfZeroStillUsesTheTimer ) {
   auto config = twoInterfaces();
   config.shutdownDelayMs = 0;
   feeder.apply( config );
   shutdown( "Ethernet1" );
   EXPECT_THAT( steps, ElementsAre( "sent", "delayed" ) );
   advance( 1ms );
   EXPECT_THAT( steps, ElementsAre( "sent", "delayed", "down" ) );
}

TEST_F( ShutdownTest, AShutdownAfterEnablingSendsAgain ) {
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

TEST_F( ShutdownTest, ALinkThatSomebodyElseSetUpAgainIsHeldAgain ) {
   shutdown( "Ethernet1" );
   advance( 500ms );
   ASSERT_TRUE( flag( "Ethernet1" ) );
   kernel.at( "default", "et1" ).up = true;
   shutdown( "Ethernet1" );
   EXPECT_EQ( sentFrames().size(), 4u );
   EXPECT_TRUE( delayed( "Ethernet1" ) );
}

// --- Without delay -------------------------------------------------------------------------------

TEST_F( ShutdownTest, AnInterfaceThatIsNotReadyGoesDownAtOnce ) {
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

TEST_F( ShutdownTest, ALinkThatIsAlreadyDownIsLeftAlone ) {
   kernel.at( "default", "et1" ).up = false;
   shutdown( "Ethernet1" );
   EXPECT_THAT( steps, ElementsAre( "already-down" ) );
   EXPECT_THAT( kernel.actions, IsEmpty() );
   EXPECT_THAT( sentFrames(), IsEmpty() );
}

TEST_F( ShutdownTest, AShutdownWithoutADeviceEndsAtOnce ) {
   kernel.deviceDel( "default", "et1" );
   shutdown( "Ethernet1" );
   EXPECT_THAT( steps, ElementsAre( "no-device" ) );
   EXPECT_EQ( last().why, "no device et1" );
}

// --- Frames --------------------------------------------------------------------------------------

TEST_F( ShutdownTest, ARefusedFrameIsCountedWithItsErrorAndTheShutdownContinues ) {
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

TEST_F( ShutdownTest, FramesAreCountedByAgentAndError ) {
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

TEST_F( ShutdownTest, TheLinkGoesDownWhenTheFramesHaveLeftTheMachine ) {
   kernel.outstanding = 100;
   shutdown( "Ethernet1" );
   advance( 550ms );
   EXPECT_THAT( kernel.actions, IsEmpty() );
   kernel.outstanding = 0;
   advance( 2ms );
   EXPECT_THAT( kernel.actions, ElementsAre( "down default/et1" ) );
   EXPECT_EQ( last().unflushedBytes, 0u );
}

TEST_F( ShutdownTest, TheFramesOfOtherInterfacesDoNotDelayTheLink ) {
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

TEST_F( ShutdownTest, FramesThatDoNotLeaveDelayTheLinkForALimitedTime ) {
   kernel.outstanding = 100;
   shutdown( "Ethernet1" );
   advance( 500ms + ShutdownHold::flushTimeout + 2ms );
   EXPECT_THAT( kernel.actions, ElementsAre( "down default/et1" ) );
   EXPECT_EQ( last().unflushedBytes, 100u );
   EXPECT_EQ( last().held, 500ms );
}

} // namespace
} // namespace Valend
