// What is taken up from the journal of the previous run, piece by piece; the tests of ResumeFixture have the whole.
#include "valend/shutdown/Recovery.h"

#include "tests/support/WorkDirectory.h"
#include "tests/valend/DaemonFixture.h"

namespace Valend {
namespace {

using namespace Test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Ending = ShutdownRecord::Ending;

// --- The journal ---------------------------------------------------------------------------------

class RecoveryTest : public ::testing::Test {
 protected:
   // valend starts: returns what it takes up.
   Recovered start( std::string const & boot, std::chrono::nanoseconds uptime = 42ns ) {
      journal.reset();
      state.reset();
      state.emplace( work / "state", []( auto const & ) {} );
      journal.emplace( *state, clock.scheduler(),
                       Journal::Machine{ boot, [ uptime ] { return uptime; } }, conditions );
      return recover( *journal );
   }
   JournalEntry write( std::string const & interface, Phase phase ) {
      JournalEntry entry;
      entry.phase = phase;
      entry.hold = Hold{ 1ns, 2ns };
      entry.record.interface = interface;
      entry.record.ending = phase == Phase::ended ? Ending::down : Ending::running;
      journal->write( entry );
      return entry;
   }
   static std::string ending( ShutdownRecord const & record ) {
      return record.interface + " " + record.endingText();
   }
   static std::vector< std::string > endings( History const & history ) {
      std::vector< std::string > endings;
      for ( auto const & record : history.records() ) {
         endings.push_back( ending( record ) );
      }
      return endings;
   }
   static std::vector< std::string > endings( std::vector< JournalEntry > const & entries ) {
      std::vector< std::string > endings;
      for ( auto const & entry : entries ) {
         endings.push_back( ending( entry.record ) );
      }
      return endings;
   }

   Valen::Test::WorkDirectory work;
   Conditions conditions{ []( LogLevel, auto const & ) {} };
   Valen::Test::SteppedClock clock;
   std::optional< StateDirectory > state;
   std::optional< Journal > journal;
};

TEST_F( RecoveryTest, ShutdownsOfThisBootAreUnfinished ) {
   start( "b1" );
   auto const one = write( "Ethernet1", Phase::held );
   write( "Ethernet2", Phase::ended );
   auto const recovered = start( "b1" );
   EXPECT_THAT( recovered.unfinished, ElementsAre( one ) );
   EXPECT_THAT( endings( recovered.history ), ElementsAre( "Ethernet2 down" ) );
   EXPECT_THAT( recovered.ended, IsEmpty() );
}

TEST_F( RecoveryTest, ShutdownsOfAnotherBootEndAsRebooted ) {
   start( "b1" );
   for ( auto const & row : enumTexts( Phase() ) ) {
      if ( row.value != Phase::ended ) {
         write( row.text, row.value );
      }
   }
   auto const lines =
      ElementsAre( "requested rebooted", "waiting rebooted", "sending rebooted", "held rebooted",
                   "held-to-deadline rebooted", "flushing rebooted", "setting-down rebooted",
                   "setting-up rebooted" );
   auto const first = start( "b2" );
   EXPECT_THAT( first.unfinished, IsEmpty() );
   EXPECT_THAT( endings( first.ended ), lines );
   EXPECT_TRUE( first.ended.front().record.resumed );
   auto const second = start( "b2" ); // reads what the first has recorded
   EXPECT_THAT( second.unfinished, IsEmpty() );
   EXPECT_THAT( second.ended, IsEmpty() );
   EXPECT_THAT( endings( second.history ), lines );
}

TEST_F( RecoveryTest, AShutdownWhoseDelayEndedLongAgoExpires ) {
   start( "b1" );
   write( "Ethernet1", Phase::held ); // until 2 ns
   EXPECT_THAT( start( "b1", 2ns + expiry ).ended, IsEmpty() );
   auto const late = start( "b1", 3ns + expiry );
   EXPECT_THAT( late.unfinished, IsEmpty() );
   ASSERT_THAT( endings( late.ended ), ElementsAre( "Ethernet1 expired" ) );
   EXPECT_EQ( late.ended[ 0 ].record.why, "valend started 10 s after the end of the delay" );
   EXPECT_TRUE( late.ended[ 0 ].record.resumed );
   EXPECT_THAT( endings( start( "b1" ).history ), ElementsAre( "Ethernet1 expired" ) );
}

// The disk was full when it ended; then the interface was enabled, and shut down again.
TEST_F( RecoveryTest, AShutdownExpiresWhenItsInterfaceHasANewerEntry ) {
   for ( auto const newer : { Phase::held, Phase::ended } ) {
      work.remove( "state/shutdowns" );
      start( "b1" );
      write( "Ethernet1", Phase::held );
      write( "Ethernet2", Phase::held );
      write( "Ethernet1", newer );
      auto const recovered = start( "b1" );
      EXPECT_THAT( endings( recovered.ended ), ElementsAre( "Ethernet1 expired" ) );
      ASSERT_EQ( recovered.unfinished.size(), newer == Phase::held ? 2u : 1u );
      EXPECT_EQ( recovered.unfinished[ 0 ].record.interface, "Ethernet2" );
      EXPECT_THAT( start( "b1" ).ended, IsEmpty() ) << "it is recorded now";
   }
}

TEST_F( RecoveryTest, AGoodbyeThatEndsDuringAShutdownDoesNotEndIt ) {
   start( "b1" );
   auto const held = write( "Ethernet1", Phase::held );
   JournalEntry goodbye;
   goodbye.phase = Phase::ended;
   goodbye.record.interface = "Ethernet1";
   goodbye.record.ending = Ending::goodbye;
   journal->write( goodbye );
   auto const recovered = start( "b1" );
   EXPECT_THAT( recovered.unfinished, ElementsAre( held ) );
   EXPECT_THAT( recovered.ended, IsEmpty() );
}

TEST_F( RecoveryTest, ARequestOfLongAgoExpires ) {
   start( "b1" );
   JournalEntry entry;
   entry.requestedAt = 5ns;
   journal->write( entry );
   EXPECT_THAT( start( "b1", 5ns + expiry ).ended, IsEmpty() );
   auto const late = start( "b1", 1h );
   ASSERT_EQ( late.ended.size(), 1u );
   EXPECT_EQ( late.ended[ 0 ].record.why, "valend started 3599 s after the request" );
}

TEST( ChangeSinceTest, AnotherDeviceOrALinkThatCameUpIsAChange ) {
   LinkMark const mark{ 7, 3 };
   EXPECT_EQ( changeSince( mark, { 7, true, true, 1500, 3 } ), "" );
   EXPECT_EQ( changeSince( mark, { 7, true, false, 1500, 3 } ), "" ) << "its carrier is lost";
   EXPECT_EQ( changeSince( mark, { 7, false, false, 1500, 4 } ), "" ) << "it is down";
   EXPECT_EQ( changeSince( mark, { 7, true, true, 1500, 4 } ), "link set up since valend stopped" );
   EXPECT_EQ( changeSince( mark, { 8, true, true, 1500, 3 } ),
              "device recreated since valend stopped" );
}

// --- Where a shutdown continues ------------------------------------------------------------------

TEST( PhaseAfterRestartTest, EachRecordedPhaseContinuesInOne ) {
   EXPECT_EQ( phaseAfterRestart( Phase::requested ), Phase::waiting );
   EXPECT_EQ( phaseAfterRestart( Phase::waiting ), Phase::waiting );
   EXPECT_EQ( phaseAfterRestart( Phase::sending ), Phase::waiting );
   EXPECT_EQ( phaseAfterRestart( Phase::held ), Phase::heldToDeadline );
   EXPECT_EQ( phaseAfterRestart( Phase::heldToDeadline ), Phase::heldToDeadline );
   EXPECT_EQ( phaseAfterRestart( Phase::flushing ), Phase::settingDown );
   EXPECT_EQ( phaseAfterRestart( Phase::settingDown ), Phase::settingDown );
   EXPECT_EQ( phaseAfterRestart( Phase::ended ), Phase::ended );
}

TEST( PhaseAfterRestartTest, ASecondRestartChangesNothing ) {
   for ( auto const & row : enumTexts( Phase() ) ) {
      auto const once = phaseAfterRestart( row.value );
      EXPECT_EQ( phaseAfterRestart( once ), once ) << row.text;
   }
}

TEST( HoldAfterRestartTest, ADeadlineStaysWhereItWas ) {
   auto const hold = holdAfterRestart( { 100s, 105s }, 103s, 7s );
   EXPECT_EQ( hold, ( Hold{ 4s, 9s } ) );
}

TEST( HoldAfterRestartTest, ADeadlineMayBeInThePast ) {
   EXPECT_EQ( holdAfterRestart( { 100s, 105s }, 110s, 7s ).until, 2s );
}

// Whatever a file says, no link is held longer than a delay can be.
TEST( HoldAfterRestartTest, ADeadlineIsLimited ) {
   EXPECT_EQ( holdAfterRestart( { 100s, 100'000s }, 100s, 7s ).until, 7s + 65535ms );
}

// --- Waiting for the interface -------------------------------------------------------------------

class CheckInterfaceTest : public DaemonFixture {
 protected:
   void expect( bool settled, std::string const & whyNoFrames ) const {
      auto const check =
         checkInterface( InterfaceDelay( store, "Ethernet1" ), kernel, { "default", "et1" } );
      EXPECT_EQ( check.settled, settled );
      EXPECT_EQ( check.whyNoFrames, whyNoFrames );
   }
};

TEST_F( CheckInterfaceTest, AReadyInterfaceIsNotWaitedFor ) {
   start( twoInterfaces() );
   expect( true, "" );
}

TEST_F( CheckInterfaceTest, AMissingDeviceIsWaitedFor ) {
   start( twoInterfaces() );
   kernel.deviceDel( "default", "et1" );
   expect( false, "" );
}

TEST_F( CheckInterfaceTest, ALinkThatIsDownIsNotWaitedFor ) {
   auto config = twoInterfaces();
   config.agents.clear();
   start( config );
   kernel.at( "default", "et1" ).up = false;
   expect( true, "" );
}

TEST_F( CheckInterfaceTest, AnInterfaceThatIsNotReadyIsWaitedFor ) {
   auto config = twoInterfaces();
   config.agents.clear();
   start( config );
   expect( false, "interface not ready" );
}

TEST_F( CheckInterfaceTest, AnInterfaceThatCannotBecomeReadyIsNotWaitedFor ) {
   auto config = twoInterfaces();
   config.interfaces.at( "Ethernet1" ).shutdownDelay = false;
   start( config );
   expect( true, "delay disabled for this interface" );
}

} // namespace
} // namespace Valend
