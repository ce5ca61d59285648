// The journal's files: what is written is read back, and damage costs as little as possible.
#include "valend/shutdown/Journal.h"

#include "tests/support/FileSizeLimit.h"
#include "tests/support/SteppedClock.h"
#include "tests/support/WorkDirectory.h"

#include <gmock/gmock.h>

namespace Valend {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Valen::Test::FileSizeLimit;
using Valen::Test::WorkDirectory;
using Ending = ShutdownRecord::Ending;

class JournalTest : public ::testing::Test {
 protected:
   // valend starts: returns what its journal reads.
   Journal::Content open( std::string const & boot = "b1" ) {
      close();
      state.emplace( directory, []( auto const & ) {} );
      journal.emplace( *state, clock.scheduler(), Journal::Machine{ boot, [] { return 42ns; } },
                       conditions, [ this ]( auto const & text ) { damages.push_back( text ); } );
      return journal->read();
   }
   // valend ends.
   void close() {
      journal.reset();
      state.reset();
   }
   // A shutdown in phase `phase`.
   static JournalEntry entry( std::string const & interface, Phase phase = Phase::requested ) {
      JournalEntry entry;
      entry.phase = phase;
      entry.record.place = { "ns-red", "et1" };
      entry.requestedAt = 1ns;
      entry.hold = Hold{ 2ns, 3ns };
      entry.record.interface = interface;
      entry.record.request.by = "root";
      entry.record.when = std::chrono::system_clock::time_point( 1234567ms );
      entry.record.withDelay = true;
      entry.record.sent = 3;
      entry.record.failed = 1;
      entry.record.failReason = "Network is down";
      entry.record.agents = { { "lldp", 3, { { 100, 1 } } } };
      entry.record.sending = 200us;
      entry.record.held = 500ms;
      entry.record.total = 501ms;
      entry.record.unflushedBytes = 7;
      entry.record.why = "because";
      entry.record.ending = phase == Phase::ended ? Ending::down : Ending::running;
      return entry;
   }
   JournalEntry write( std::string const & interface, Phase phase ) {
      auto written = entry( interface, phase );
      journal->write( written );
      return written;
   }
   static std::vector< std::string > names( History const & history ) {
      std::vector< std::string > names;
      for ( auto const & record : history.records() ) {
         names.push_back( record.interface );
      }
      return names;
   }

   WorkDirectory work;
   std::string directory = work / "state";
   std::string const file = directory + "/shutdowns";
   std::vector< std::string > damages;
   std::vector< std::string > logged;
   Conditions conditions{ [ this ]( LogLevel, auto const & text ) { logged.push_back( text ); } };
   Valen::Test::SteppedClock clock;
   std::optional< StateDirectory > state;
   std::optional< Journal > journal;
};

TEST_F( JournalTest, AnEntryIsReadBackAsWritten ) {
   EXPECT_THAT( open().unfinished, IsEmpty() );
   auto const asked = write( "Ethernet1", Phase::requested );
   auto const held = write( "Ethernet2", Phase::held );
   EXPECT_NE( asked.id, held.id );
   EXPECT_EQ( asked.bootId, "b1" );
   EXPECT_THAT( open().unfinished, ElementsAre( asked, held ) );
   EXPECT_THAT( damages, IsEmpty() );
   EXPECT_EQ( journal->conditionText(), "" );
}

TEST_F( JournalTest, TheLastLineOfAShutdownCounts ) {
   open();
   auto one = write( "Ethernet1", Phase::requested );
   one.phase = Phase::sending;
   journal->write( one );
   one.phase = Phase::held;
   journal->write( one );
   EXPECT_THAT( open().unfinished, ElementsAre( one ) );
   one.phase = Phase::ended;
   one.record.ending = Ending::down;
   journal->write( one );
   auto const content = open();
   EXPECT_THAT( content.unfinished, IsEmpty() );
   EXPECT_THAT( content.history.records(), ElementsAre( one.record ) );
}

TEST_F( JournalTest, TheHistoryIsOrderedByEnd ) {
   open();
   auto first = write( "first", Phase::requested );
   write( "second", Phase::ended );
   first.phase = Phase::ended;
   journal->write( first );
   EXPECT_THAT( names( open().history ), ElementsAre( "second", "first" ) );
}

// A version that did not count repeats wrote a line for each.
TEST_F( JournalTest, RepeatsHaveOneRecord ) {
   open();
   for ( int i = 0; i < 5; ++i ) {
      auto down = entry( "Ethernet1", Phase::ended );
      down.record.ending = Ending::wentDown;
      down.record.when += std::chrono::seconds( i );
      journal->write( down );
      write( "Ethernet" + std::to_string( i + 2 ), Phase::ended );
   }
   auto const history = open().history;
   EXPECT_THAT( names( history ), ElementsAre( "Ethernet2", "Ethernet3", "Ethernet4", "Ethernet5",
                                               "Ethernet1", "Ethernet6" ) );
   auto const & record = *std::next( history.records().begin(), 4 );
   EXPECT_EQ( record.count, 5u );
   EXPECT_EQ( record.until - record.when, 4s );
}

// The newer line of a record has the larger count.
TEST_F( JournalTest, TheLastLineOfAnEndedShutdownCounts ) {
   open();
   auto down = entry( "Ethernet1", Phase::ended );
   down.record.ending = Ending::wentDown;
   journal->write( down );
   write( "Ethernet2", Phase::ended );
   down.record.count = 1000;
   down.record.until = down.record.when + 1h;
   journal->write( down );
   auto const content = open();
   EXPECT_THAT( names( content.history ), ElementsAre( "Ethernet2", "Ethernet1" ) );
   EXPECT_EQ( content.history.records().back(), down.record );
}

// As after damage: what is kept of both files is copied into the new one.
TEST_F( JournalTest, AShutdownInBothFilesIsInTheHistoryOnce ) {
   open();
   write( "Ethernet1", Phase::ended );
   work.write( "state/shutdowns.1", work.content( "state/shutdowns" ) );
   EXPECT_THAT( names( open().history ), ElementsAre( "Ethernet1" ) );
}

TEST_F( JournalTest, ShutdownsOfAnotherBootAreRead ) {
   open();
   write( "Ethernet1", Phase::held );
   auto const content = open( "b2" );
   ASSERT_EQ( content.unfinished.size(), 1u );
   EXPECT_EQ( content.unfinished[ 0 ].bootId, "b1" );
}

// --- Damaged files -------------------------------------------------------------------------------

TEST_F( JournalTest, ADamagedLineIsReportedAndTheOthersAreKept ) {
   open();
   auto const running = write( "Ethernet1", Phase::held );
   write( "Ethernet2", Phase::ended );
   write( "Ethernet3", Phase::requested );
   auto const whole = work.content( "state/shutdowns" );
   work.write( "state/shutdowns", whole.substr( 0, whole.size() - 20 ) );
   auto content = open();
   EXPECT_THAT( content.unfinished, ElementsAre( running ) );
   EXPECT_THAT( names( content.history ), ElementsAre( "Ethernet2" ) );
   EXPECT_THAT( damages,
                ElementsAre( file + " has 1 damaged line; moved to " + file + ".damaged" ) );
   EXPECT_EQ( work.content( "state/shutdowns.damaged" ).size(), whole.size() - 20 );
   damages.clear();
   content = open();
   EXPECT_THAT( content.unfinished, ElementsAre( running ) ) << "the new file has them";
   EXPECT_THAT( names( content.history ), ElementsAre( "Ethernet2" ) );
   EXPECT_THAT( damages, IsEmpty() );
}

// Wherever a bit flips, only that line is lost.
TEST_F( JournalTest, AFlippedBitCostsOneLine ) {
   open();
   auto const first = write( "Ethernet1", Phase::held );
   auto const size = work.content( "state/shutdowns" ).size();
   write( "Ethernet2", Phase::held );
   auto const whole = work.content( "state/shutdowns" );
   for ( auto at = size; at < whole.size() - 1; at += 13 ) {
      auto flipped = whole;
      flipped[ at ] = static_cast< char >( flipped[ at ] ^ 1 );
      close();
      work.write( "state/shutdowns", flipped );
      EXPECT_THAT( open().unfinished, ElementsAre( first ) ) << "byte " << at;
   }
}

TEST_F( JournalTest, AFileThatIsNotAJournalIsSetAside ) {
   work.write( "state/shutdowns", "root:x:0:0\n" );
   EXPECT_THAT( open().unfinished, IsEmpty() );
   EXPECT_THAT( damages, ElementsAre( file + " is not a journal of shutdowns; moved to " + file +
                                      ".damaged" ) );
   EXPECT_EQ( work.content( "state/shutdowns.damaged" ), "root:x:0:0\n" );
   write( "Ethernet1", Phase::requested );
   EXPECT_EQ( open().unfinished.size(), 1u );
}

TEST_F( JournalTest, ADirectoryOfTheFilesNameIsSetAside ) {
   work.directory( "state/shutdowns" );
   open();
   EXPECT_THAT( damages, ElementsAre( "cannot read " + file + ": File too large; moved to " + file +
                                      ".damaged" ) );
   EXPECT_EQ( journal->conditionText(), "" );
   write( "Ethernet1", Phase::requested );
   EXPECT_EQ( open().unfinished.size(), 1u );
}

TEST_F( JournalTest, AFileThatCannotBeSetAsideIsReported ) {
   work.write( "state/shutdowns", "root:x:0:0\n" );
   work.directory( "state/shutdowns.damaged/occupied" );
   open();
   EXPECT_THAT( damages, ElementsAre( file + " is not a journal of shutdowns; cannot move it to " +
                                      file + ".damaged: Is a directory" ) );
}

// --- Full files ----------------------------------------------------------------------------------

TEST_F( JournalTest, AFullFileIsReplacedAndRunningShutdownsAreKept ) {
   open();
   auto const running = write( "Ethernet1", Phase::held );
   std::string const longName( 3000, 'n' ); // few lines fill it
   auto const lines = 3 * Journal::fileLimit / longName.size();
   for ( std::size_t i = 0; i < lines; ++i ) {
      write( longName + std::to_string( i ), Phase::ended );
   }
   EXPECT_LE( work.content( "state/shutdowns" ).size(), Journal::fileLimit + 2 * longName.size() );
   EXPECT_LE( work.content( "state/shutdowns.1" ).size(),
              Journal::fileLimit + 2 * longName.size() );
   auto const content = open();
   EXPECT_THAT( content.unfinished, ElementsAre( running ) );
   EXPECT_EQ( content.history.records().size(), History::limit );
   EXPECT_EQ( content.history.records().back().interface, longName + std::to_string( lines - 1 ) );
}

// --- The condition -------------------------------------------------------------------------------

std::string const consequence = "; a shutdown in progress would be lost on restart";

// A line that did not fit leaves nothing in the file.
TEST_F( JournalTest, AFileThatCannotGrowRaisesTheConditionUntilItCan ) {
   open();
   auto const first = write( "Ethernet1", Phase::held );
   auto const size = work.content( "state/shutdowns" ).size();
   auto const full = "cannot write " + file + ": No space left on device" + consequence;
   {
      FileSizeLimit const limit( size + 100 );
      write( "Ethernet2", Phase::requested );
      EXPECT_EQ( journal->conditionText(), full ) << "a part of the line fitted";
      EXPECT_EQ( work.content( "state/shutdowns" ).size(), size );
      write( "Ethernet2", Phase::sending );
   }
   EXPECT_TRUE( conditions.isRaised( "journal" ) );
   auto const third = write( "Ethernet3", Phase::requested );
   EXPECT_FALSE( conditions.isRaised( "journal" ) );
   EXPECT_THAT( logged, ElementsAre( "journal: " + full, "journal: recovered" ) );
   auto const content = open();
   ASSERT_EQ( content.unfinished.size(), 3u );
   EXPECT_EQ( content.unfinished[ 0 ], first );
   EXPECT_EQ( content.unfinished[ 1 ].record.interface, "Ethernet2" ) << "it was owed";
   EXPECT_EQ( content.unfinished[ 1 ].phase, Phase::sending );
   EXPECT_EQ( content.unfinished[ 2 ], third );
   EXPECT_THAT( damages, IsEmpty() );
}

TEST_F( JournalTest, OwedLinesAreWrittenByATimerWithGrowingPauses ) {
   open();
   auto const size = work.content( "state/shutdowns" ).size();
   JournalEntry first;
   JournalEntry second;
   {
      FileSizeLimit const limit( size );
      first = write( "Ethernet1", Phase::ended );
      second = write( "Ethernet2", Phase::ended );
      clock.advance( Journal::firstRetry );
      EXPECT_TRUE( conditions.isRaised( "journal" ) );
   }
   clock.advance( 2 * Journal::firstRetry - 1ms );
   EXPECT_TRUE( conditions.isRaised( "journal" ) ) << "the second pause is longer";
   clock.advance( 1ms );
   EXPECT_FALSE( conditions.isRaised( "journal" ) );
   EXPECT_THAT( open().history.records(), ElementsAre( first.record, second.record ) );
   EXPECT_EQ( logged.size(), 2u );
}

TEST_F( JournalTest, OwedLinesAreWrittenAtTheEnd ) {
   open();
   {
      FileSizeLimit const limit( work.content( "state/shutdowns" ).size() );
      write( "Ethernet1", Phase::ended );
   }
   EXPECT_THAT( names( open().history ), ElementsAre( "Ethernet1" ) );
}

TEST_F( JournalTest, WhatIsOwedIsBoundedAndTheNewestIsKept ) {
   open();
   std::string const longName( 3000, 'n' );
   auto const lines = 2 * OwedLines::limit / longName.size();
   {
      FileSizeLimit const limit( work.content( "state/shutdowns" ).size() );
      for ( std::size_t i = 0; i < lines; ++i ) {
         write( longName + std::to_string( i ), Phase::ended );
      }
   }
   clock.advance( Journal::firstRetry );
   EXPECT_LE( work.content( "state/shutdowns" ).size(), OwedLines::limit + 100 );
   auto const history = open().history;
   EXPECT_GT( history.records().size(), lines / 3 );
   EXPECT_EQ( history.records().back().interface, longName + std::to_string( lines - 1 ) );
}

TEST_F( JournalTest, AFileWithoutAHeaderIsNotDamaged ) {
   work.write( "state/shutdowns", "" ); // the disk was full when it was created
   open();
   EXPECT_THAT( damages, IsEmpty() );
   auto const first = write( "Ethernet1", Phase::held );
   EXPECT_THAT( open().unfinished, ElementsAre( first ) );
}

// --- Links and paths -----------------------------------------------------------------------------

TEST_F( JournalTest, ASymbolicLinkIsNotFollowed ) {
   work.write( "other", "not ours\n" );
   work.directory( "state" );
   work.link( work / "other", "state/shutdowns" );
   open();
   EXPECT_THAT( damages, ElementsAre( "cannot read " + file +
                                      ": Too many levels of symbolic links; moved "
                                      "to " +
                                      file + ".damaged" ) );
   write( "Ethernet1", Phase::held );
   EXPECT_EQ( work.content( "other" ), "not ours\n" );
   EXPECT_EQ( open().unfinished.size(), 1u );
}

TEST_F( JournalTest, AChangeOfTheDirectorysPathDoesNotRedirectTheFile ) {
   open();
   work.directory( "trap" );
   std::filesystem::rename( directory, work / "moved" );
   work.link( work / "trap", "state" );
   std::string const longName( 3000, 'n' ); // until a new file begins
   for ( std::size_t i = 0; i < 2 * Journal::fileLimit / longName.size(); ++i ) {
      write( longName, Phase::ended );
   }
   EXPECT_TRUE( work.has( "moved/shutdowns.1" ) );
   EXPECT_TRUE( std::filesystem::is_empty( work / "trap" ) );
}

TEST_F( JournalTest, AStateDirectoryThatIsAFileRaisesTheConditionOnce ) {
   work.write( "state", "a file" );
   open();
   auto const text = "cannot open " + directory + ": Not a directory" + consequence;
   EXPECT_EQ( journal->conditionText(), text );
   write( "Ethernet1", Phase::requested );
   EXPECT_THAT( logged, ElementsAre( "journal: " + text ) );
}

TEST_F( JournalTest, WithoutAStateDirectoryTheConditionStaysRaised ) {
   directory = "";
   open();
   EXPECT_EQ( journal->conditionText(), "no state directory" + consequence );
   EXPECT_NE( write( "Ethernet1", Phase::requested ).id, 0u );
   EXPECT_EQ( journal->conditionText(), "no state directory" + consequence );
}

TEST( JournalMachineTest, TheUptimeRunsAndTheBootHasAnId ) {
   auto const machine = Journal::Machine::real();
   EXPECT_EQ( machine.bootId.size(), 36u );
   auto const before = machine.uptime();
   EXPECT_GE( machine.uptime(), before );
   EXPECT_GT( before, 0ns );
}

} // namespace
} // namespace Valend
