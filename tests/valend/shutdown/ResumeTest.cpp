// An agent that is started after a crash finishes what the one before began. Each life of the agent
// has its own store, library and clock; the journal is what they have in common.
#include "tests/support/WorkDirectory.h"
#include "tests/valend/DaemonFixture.h"

namespace Valend {
namespace {

using namespace Test;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using Enabled = LinkController::Enabled;
using Ending = ShutdownRecord::Ending;

// One life. A crash is its end: nothing is tidied up in the journal.
class Life final : public DaemonFixture {
 public:
   // `uptime`: how long after the first life's beginning this one begins.
   Life( std::string const & directory, std::chrono::milliseconds uptime )
       : DaemonFixture( directory ) {
      clock.advance( uptime );
   }
   void TestBody() override {}

   // Starts on two interfaces and takes up what was begun.
   void startAndResume( Settings::Config const & config = twoInterfaces() ) {
      start( config );
      controller.resume( journal.read() );
      turn();
   }
   ShutdownRecord const & last() const { return controller.history().back(); }

   using DaemonFixture::advance;
   using DaemonFixture::clock;
   using DaemonFixture::controller;
   using DaemonFixture::delayed;
   using DaemonFixture::feeder;
   using DaemonFixture::journal;
   using DaemonFixture::kernel;
   using DaemonFixture::libraryStart;
   using DaemonFixture::sent;
   using DaemonFixture::sentFrames;
   using DaemonFixture::start;
   using DaemonFixture::turn;
   using DaemonFixture::twoInterfaces;
};

class ResumeTest : public ::testing::Test {
 protected:
   // The first agent begins a shutdown of Ethernet1 and is killed `into` it.
   void crash( std::chrono::milliseconds into ) {
      Life life( directory, 0ms );
      life.startAndResume();
      life.controller.shutdown( "Ethernet1", "root", nullptr );
      life.advance( into );
   }
   // Leaves the journal as it was when `count` lines were written.
   void keepLines( std::size_t count ) {
      auto const content = work.content( "shutdowns" );
      std::size_t end = content.find( '\n' ) + 1; // the header
      for ( std::size_t i = 0; i < count; ++i ) {
         end = content.find( '\n', end ) + 1;
      }
      work.write( "shutdowns", content.substr( 0, end ) );
   }

   WorkDirectory work;
   std::string const directory = work / "";
};

// The lines of a whole shutdown: asked, sending, held, flushing, lowering, ended.
constexpr std::size_t wholeLines = 6;

TEST_F( ResumeTest, AfterACrashAtAnyPhaseTheLinkGoesDownAndWhatIsRecordedAsSentIsNotSentAgain ) {
   for ( std::size_t lines = 1; lines < wholeLines; ++lines ) {
      SCOPED_TRACE( "crash after line " + std::to_string( lines ) );
      work.remove( "shutdowns" );
      crash( 600ms );
      keepLines( lines );
      Life life( directory, 700ms );
      life.startAndResume();
      life.advance( 600ms );
      EXPECT_THAT( life.kernel.actions, ElementsAre( "down default/et1" ) );
      EXPECT_EQ( life.sentFrames().size(), lines < 3 ? 2u : 0u );
      ASSERT_EQ( life.controller.history().size(), 1u );
      EXPECT_EQ( life.last().ending, Ending::down );
      EXPECT_TRUE( life.last().resumed );
      EXPECT_EQ( life.last().by, "root" );
      EXPECT_EQ( life.last().sent, 2u );
      EXPECT_FALSE( life.controller.running( "Ethernet1" ) );
   }
}

TEST_F( ResumeTest, WhatHasEndedIsHistory ) {
   crash( 600ms );
   Life life( directory, 700ms );
   life.startAndResume();
   life.advance( 1000ms );
   EXPECT_THAT( life.kernel.actions, IsEmpty() );
   ASSERT_EQ( life.controller.history().size(), 1u );
   EXPECT_EQ( life.last().summary(), "Ethernet1: shutdown by root: 2 frames in 0.0 ms, held 500 "
                                     "ms, link down, total 500 ms" );
   EXPECT_FALSE( life.last().resumed );
   EXPECT_EQ( life.controller.totals( "Ethernet1" ).shutdowns, 0u ) << "counters begin anew";
}

TEST_F( ResumeTest, AHeldLinkIsHeldToTheFirstDeadline ) {
   crash( 100ms );
   Life life( directory, 200ms );
   life.startAndResume();
   EXPECT_EQ( life.controller.remaining( "Ethernet1" ), 300ms );
   life.advance( 299ms );
   EXPECT_THAT( life.kernel.actions, IsEmpty() );
   life.advance( 1ms );
   EXPECT_THAT( life.kernel.actions, ElementsAre( "down default/et1" ) );
   EXPECT_EQ( life.last().why, "the agent was started anew 200 ms into the delay" );
   EXPECT_EQ( life.last().held, 500ms );
   EXPECT_EQ( life.last().total, 500ms );
   EXPECT_EQ( life.last().agents, ( std::vector< AgentFrames >{ { "lldp", 2, {} } } ) );
}

TEST_F( ResumeTest, ADeadlineThatIsOverIsNotWaitedFor ) {
   crash( 100ms );
   Life life( directory, 10'000ms );
   life.startAndResume();
   life.advance( 1ms );
   EXPECT_THAT( life.kernel.actions, ElementsAre( "down default/et1" ) );
}

TEST_F( ResumeTest, WhatWasOnlyAskedForIsHeldInFull ) {
   crash( 100ms );
   keepLines( 1 );
   Life life( directory, 10'000ms );
   life.startAndResume();
   EXPECT_THAT( life.sentFrames(), ElementsAre( "default/7:a", "default/7:b" ) );
   EXPECT_TRUE( life.delayed( "Ethernet1" ) );
   life.advance( 499ms );
   EXPECT_THAT( life.kernel.actions, IsEmpty() );
   life.advance( 1ms );
   EXPECT_THAT( life.kernel.actions, ElementsAre( "down default/et1" ) );
   EXPECT_EQ( life.last().why, "" );
}

TEST_F( ResumeTest, WhatWasBeingSentIsSentAgainAndHeldToTheFirstDeadline ) {
   crash( 100ms );
   keepLines( 2 );
   Life life( directory, 200ms );
   life.startAndResume();
   EXPECT_EQ( life.sentFrames().size(), 2u );
   life.advance( 299ms );
   EXPECT_THAT( life.kernel.actions, IsEmpty() );
   life.advance( 1ms );
   EXPECT_THAT( life.kernel.actions, ElementsAre( "down default/et1" ) );
   EXPECT_EQ( life.last().why, "sent again: the agent was started anew while it sent" );
}

// After a start the devices, and so the interfaces, take a moment.
TEST_F( ResumeTest, AnInterfaceThatIsNotReadyYetIsWaitedFor ) {
   crash( 100ms );
   keepLines( 1 );
   Life life( directory, 200ms );
   life.kernel.netNsIs( "ns-red", "1:2" );
   life.feeder.apply( Life::twoInterfaces() );
   life.libraryStart();
   life.controller.resume( life.journal.read() );
   life.advance( 1000ms );
   EXPECT_TRUE( life.controller.running( "Ethernet1" ) );
   life.kernel.deviceIs( "default", "et1", 9 );
   life.advance( 10ms );
   EXPECT_THAT( life.sentFrames(), ElementsAre( "default/9:a", "default/9:b" ) );
   life.advance( 500ms );
   EXPECT_THAT( life.kernel.actions, ElementsAre( "down default/et1" ) );
}

TEST_F( ResumeTest, ADeviceThatDoesNotComeEndsTheShutdown ) {
   for ( std::size_t const lines : { 1, 5 } ) {
      work.remove( "shutdowns" );
      crash( 600ms );
      keepLines( lines );
      Life life( directory, 700ms );
      life.feeder.apply( Life::twoInterfaces() );
      life.libraryStart();
      life.controller.resume( life.journal.read() );
      life.advance( Shutdown::startPatience + 20ms );
      ASSERT_EQ( life.controller.history().size(), 1u );
      EXPECT_EQ( life.last().ending, Ending::noDevice );
      EXPECT_EQ( life.last().why, "no device et1" );
   }
}

TEST_F( ResumeTest, AnInterfaceThatDoesNotBecomeReadyGoesDownAndTheRecordSaysWhy ) {
   crash( 0ms );
   keepLines( 1 );
   auto config = Life::twoInterfaces();
   config.agents.clear();
   Life life( directory, 200ms );
   life.startAndResume( config );
   life.advance( Shutdown::startPatience + 10ms );
   EXPECT_THAT( life.kernel.actions, ElementsAre( "down default/et1" ) );
   EXPECT_EQ( life.last().why,
              "nothing was sent after the agent was started anew: the interface is not ready" );
}

TEST_F( ResumeTest, AnInterfaceThatCannotBecomeReadyGoesDownAtOnce ) {
   crash( 0ms );
   keepLines( 1 );
   Life life( directory, 200ms );
   life.startAndResume( Settings::Config() );
   life.advance( 10ms );
   EXPECT_THAT( life.kernel.actions, ElementsAre( "down default/et1" ) );
   EXPECT_EQ( life.last().why, "nothing was sent after the agent was started anew: the feature was "
                               "switched off" );
}

TEST_F( ResumeTest, EnablingWinsAlsoAfterACrash ) {
   for ( std::size_t const lines : { 1, 2, 3 } ) {
      work.remove( "shutdowns" );
      crash( 0ms );
      keepLines( lines );
      Life life( directory, 120ms );
      life.startAndResume();
      EXPECT_EQ( life.controller.enable( "Ethernet1", "root" ), Enabled::aborted );
      life.advance( 5000ms );
      EXPECT_THAT( life.kernel.actions, IsEmpty() );
      EXPECT_EQ( life.last().ending, Ending::aborted );
      EXPECT_FALSE( life.delayed( "Ethernet1" ) );
   }
}

TEST_F( ResumeTest, WhatWasCalledOffStaysCalledOff ) {
   {
      Life life( directory, 0ms );
      life.startAndResume();
      life.controller.shutdown( "Ethernet1", "root", nullptr );
      life.advance( 120ms );
      life.controller.enable( "Ethernet1", "root" );
   }
   Life life( directory, 200ms );
   life.startAndResume();
   life.advance( 5000ms );
   EXPECT_THAT( life.kernel.actions, IsEmpty() );
   EXPECT_EQ( life.last().summary(), "Ethernet1: will not go down: enabled 120 ms into the delay" );
}

// By its place: the operator asked for that link.
TEST_F( ResumeTest, AnInterfaceThatIsNotConfiguredAnyMoreCanBeCalledOffToo ) {
   crash( 100ms );
   Life life( directory, 200ms );
   life.startAndResume( Settings::Config() );
   EXPECT_EQ( life.controller.enable( "Ethernet1", "root" ), Enabled::aborted );
   life.advance( 1000ms );
   EXPECT_THAT( life.kernel.actions, IsEmpty() );
}

TEST_F( ResumeTest, WhoAsksAgainJoins ) {
   crash( 100ms );
   Life life( directory, 200ms );
   life.startAndResume();
   std::vector< ShutdownStep > steps;
   life.controller.shutdown( "Ethernet1", "root",
                             [ & ]( auto step, auto const & ) { steps.push_back( step ); } );
   life.advance( 300ms );
   EXPECT_THAT( steps, ElementsAre( ShutdownStep::delayed, ShutdownStep::ended ) );
   EXPECT_THAT( life.sentFrames(), IsEmpty() );
}

TEST_F( ResumeTest, ASecondCrashChangesNothing ) {
   crash( 100ms );
   for ( auto const uptime : { 200ms, 300ms } ) {
      Life life( directory, uptime );
      life.startAndResume();
      life.advance( 50ms );
   }
   Life life( directory, 400ms );
   life.startAndResume();
   life.advance( 100ms );
   EXPECT_THAT( life.kernel.actions, ElementsAre( "down default/et1" ) );
   EXPECT_THAT( life.sentFrames(), IsEmpty() );
}

TEST_F( ResumeTest, WithoutAJournalShutdownsWork ) {
   work.write( "state", "no directory" );
   Life life( work / "state", 0ms );
   life.startAndResume();
   EXPECT_EQ( life.controller.trouble(), work / "state" + ": Not a directory" );
   life.controller.shutdown( "Ethernet1", "root", nullptr );
   life.advance( 500ms );
   EXPECT_THAT( life.kernel.actions, ElementsAre( "down default/et1" ) );
   EXPECT_EQ( life.sentFrames().size(), 2u );
}

} // namespace
} // namespace Valend
