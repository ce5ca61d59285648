// What is taken up from the journal of the previous run, piece by piece; ResumeTest has the whole.
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
   Recovered start( std::string const & boot ) {
      journal.reset();
      journal.emplace( work / "state", Journal::Machine{ boot, [] { return 42ns; } }, conditions );
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
   static std::vector< std::string > endings( Recovered const & recovered ) {
      std::vector< std::string > endings;
      for ( auto const & record : recovered.history ) {
         endings.push_back( record.interface + " " + record.endingText() );
      }
      return endings;
   }

   Valen::Test::WorkDirectory work;
   Conditions conditions{ []( LogLevel, auto const & ) {} };
   std::optional< Journal > journal;
};

TEST_F( RecoveryTest, ShutdownsOfThisBootAreUnfinished ) {
   start( "b1" );
   auto const one = write( "Ethernet1", Phase::held );
   write( "Ethernet2", Phase::ended );
   auto const recovered = start( "b1" );
   EXPECT_THAT( recovered.unfinished, ElementsAre( one ) );
   EXPECT_THAT( endings( recovered ), ElementsAre( "Ethernet2 down" ) );
}

TEST_F( RecoveryTest, ShutdownsOfAnotherBootEndAsRebooted ) {
   start( "b1" );
   for ( auto const & row : enumTexts( Phase() ) ) {
      if ( row.value != Phase::ended ) {
         write( row.text, row.value );
      }
   }
   for ( int run = 0; run < 2;
         ++run ) { // what is recorded at the first start is read at the second
      auto const recovered = start( "b2" );
      EXPECT_THAT( recovered.unfinished, IsEmpty() );
      EXPECT_THAT( endings( recovered ),
                   ElementsAre( "requested rebooted", "waiting rebooted", "sending rebooted",
                                "held rebooted", "held-to-deadline rebooted", "flushing rebooted",
                                "setting-down rebooted" ) );
      EXPECT_TRUE( recovered.history.front().resumed );
   }
}

TEST_F( RecoveryTest, TheHistoryIsLimited ) {
   start( "b1" );
   auto const running = write( "running", Phase::held );
   for ( std::size_t i = 0; i < Journal::historyLimit; ++i ) {
      write( "Ethernet1", Phase::ended );
   }
   auto const recovered = start( "b2" );
   EXPECT_EQ( recovered.history.size(), Journal::historyLimit );
   EXPECT_EQ( recovered.history.back().interface, "running" ) << "the newest is kept";
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
