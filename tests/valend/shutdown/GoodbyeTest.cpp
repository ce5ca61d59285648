// Frames that say goodbye while the link stays up.
#include "valend/shutdown/Goodbye.h"

#include "tests/valend/DaemonFixture.h"

namespace Valend {
namespace {

using namespace Test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Ending = ShutdownRecord::Ending;

class GoodbyeTest : public DaemonFixture {
 protected:
   GoodbyeTest() { start( twoInterfaces() ); }

   std::string goodbye( std::string const & interface ) {
      auto const whyNot = controller.goodbye(
         interface, { "root", "", "ports move" },
         [ this ]( auto, auto const & record ) { ended.push_back( record.summary() ); } );
      turn();
      return whyNot;
   }
   bool flag( std::string const & interface ) const {
      return store.allIntfConfigDir->intfConfig( interface )->adminShutdownDelayed();
   }

   std::vector< std::string > ended;
};

TEST_F( GoodbyeTest, TheFramesAreSentAndTheLinkStaysUp ) {
   EXPECT_EQ( goodbye( "Ethernet1" ), "" );
   EXPECT_THAT( sentFrames(), ElementsAre( "default/7:a", "default/7:b" ) );
   EXPECT_THAT( ended,
                ElementsAre( "Ethernet1: goodbye by root, reason \"ports move\": 2 frames in "
                             "0.0 ms, link unchanged" ) );
   EXPECT_FALSE( flag( "Ethernet1" ) );
   EXPECT_FALSE( delayed( "Ethernet1" ) );
   advance( 1000ms );
   EXPECT_THAT( kernel.actions, IsEmpty() );
   EXPECT_TRUE( kernel.at( "default", "et1" ).up );
}

TEST_F( GoodbyeTest, ItIsInTheHistoryAndNotAShutdown ) {
   std::vector< Ending > logged;
   controller.endedIs( [ & ]( auto const & record ) { logged.push_back( record.ending ); } );
   goodbye( "Ethernet1" );
   EXPECT_THAT( logged, ElementsAre( Ending::goodbye ) );
   ASSERT_EQ( controller.history().size(), 1u );
   auto const & record = controller.history().back();
   EXPECT_EQ( record.place, ( LinkPlace{ "default", "et1" } ) );
   EXPECT_EQ( record.agents, ( std::vector< AgentFrames >{ { "lldp", 2, {} } } ) );
   EXPECT_FALSE( record.withDelay );
   EXPECT_EQ( controller.statistics().goodbyes(), 1u );
   EXPECT_THAT( controller.statistics().endings(), IsEmpty() );
   EXPECT_EQ( controller.totals( "Ethernet1" ).shutdowns, 0u );
   EXPECT_EQ( controller.totals( "Ethernet1" ).aborts, 0u );
   EXPECT_EQ( controller.totals( "Ethernet1" ).sent, 2u );
}

TEST_F( GoodbyeTest, ItEndsWhenTheFramesHaveLeftTheSocket ) {
   kernel.outstanding = 64;
   goodbye( "Ethernet1" );
   advance( 50ms );
   EXPECT_THAT( ended, IsEmpty() );
   goodbye( "Ethernet1" ); // joins
   kernel.outstanding = 0;
   advance( 5ms );
   EXPECT_EQ( ended.size(), 2u );
   EXPECT_EQ( sentFrames().size(), 2u );
   EXPECT_EQ( controller.history().back().unflushedBytes, 0u );
}

TEST_F( GoodbyeTest, ItDoesNotWaitForTheFramesOfOtherInterfaces ) {
   kernel.outstandingOf[ { "default", "et9" } ] = 64;
   goodbye( "Ethernet1" );
   turn();
   EXPECT_EQ( ended.size(), 1u );
}

TEST_F( GoodbyeTest, FramesThatDoNotLeaveAreRecorded ) {
   kernel.outstanding = 64;
   goodbye( "Ethernet1" );
   advance( Goodbye::flushTimeout );
   ASSERT_EQ( ended.size(), 1u );
   EXPECT_EQ( controller.history().back().unflushedBytes, 64u );
}

TEST_F( GoodbyeTest, AnInterfaceThatIsNotReadyHasNothingToSay ) {
   kernel.deviceDel( "default", "et1" );
   EXPECT_EQ( goodbye( "Ethernet1" ), "interface not ready" );
   EXPECT_THAT( controller.history(), IsEmpty() );
   auto config = twoInterfaces();
   config.shutdownDelayMs.reset();
   feeder.apply( config );
   EXPECT_EQ( goodbye( "Ethernet2" ), "delay disabled" );
   EXPECT_THROW( goodbye( "Ethernet9" ), Refusal );
}

TEST_F( GoodbyeTest, AShutdownInProgressSaysItsOwn ) {
   controller.shutdown( "Ethernet1", { "root" }, nullptr );
   EXPECT_EQ( goodbye( "Ethernet1" ), "shutdown in progress" );
   advance( 600ms );
   EXPECT_EQ( sentFrames().size(), 2u );
}

TEST_F( GoodbyeTest, AShutdownAfterItIsDelayedAsAlways ) {
   kernel.outstanding = 64;
   goodbye( "Ethernet1" );
   controller.shutdown( "Ethernet1", { "root" }, nullptr );
   turn();
   EXPECT_TRUE( delayed( "Ethernet1" ) );
   kernel.outstanding = 0;
   advance( 499ms );
   EXPECT_TRUE( delayed( "Ethernet1" ) ) << "the end of the goodbye does not end the delay";
   EXPECT_THAT( kernel.actions, IsEmpty() );
   advance( 1ms );
   EXPECT_THAT( kernel.actions, ElementsAre( "down default/et1" ) );
}

// One that is not ready any more when its turn comes.
TEST_F( GoodbyeTest, ReadinessThatIsLostMeanwhileIsRecorded ) {
   auto const whyNot = controller.goodbye(
      "Ethernet1", { "root" }, [ this ]( auto, auto const & ) { ended.push_back( "ended" ); } );
   EXPECT_EQ( whyNot, "" );
   kernel.deviceDel( "default", "et1" );
   turn();
   EXPECT_EQ( ended.size(), 1u );
   EXPECT_EQ( controller.history().back().why, "interface not ready" );
   EXPECT_EQ( controller.history().back().sent, 0u );
}

} // namespace
} // namespace Valend
