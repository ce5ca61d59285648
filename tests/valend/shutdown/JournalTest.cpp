// The journal's files: what is written is read back, whatever happens to them.
#include "valend/shutdown/Journal.h"

#include "tests/support/WorkDirectory.h"

#include <csignal>
#include <gmock/gmock.h>
#include <sys/resource.h>

namespace Valend {
namespace {

using namespace std::chrono_literals;
using Test::WorkDirectory;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Ending = ShutdownRecord::Ending;
using Phase = JournalEntry::Phase;

// No file of this process grows past `bytes` while it lives.
class FileSizeLimit {
 public:
   explicit FileSizeLimit( std::size_t bytes ) : handler_( std::signal( SIGXFSZ, SIG_IGN ) ) {
      ::getrlimit( RLIMIT_FSIZE, &before_ );
      rlimit const limit{ bytes, before_.rlim_max };
      ::setrlimit( RLIMIT_FSIZE, &limit );
   }
   ~FileSizeLimit() {
      ::setrlimit( RLIMIT_FSIZE, &before_ );
      std::signal( SIGXFSZ, handler_ );
   }
   FileSizeLimit( FileSizeLimit const & ) = delete;
   FileSizeLimit & operator=( FileSizeLimit const & ) = delete;

 private:
   void ( *const handler_ )( int );
   rlimit before_{};
};

class JournalTest : public ::testing::Test {
 protected:
   // An agent starts: its journal, and what it reads.
   Journal::Content open( std::string const & boot = "b1" ) {
      journal.reset();
      journal.emplace( directory, Journal::Machine{ boot, [] { return 42ns; } },
                       [ this ]( bool, auto const & text ) { notices.push_back( text ); } );
      return journal->read();
   }
   // A shutdown in phase `phase`.
   static JournalEntry entry( std::string const & interface, Phase phase = Phase::asked ) {
      JournalEntry entry;
      entry.phase = phase;
      entry.place = { "ns-red", "et1" };
      entry.askedAt = 1ns;
      entry.sentAt = 2ns;
      entry.heldUntil = 3ns;
      entry.record.interface = interface;
      entry.record.by = "root";
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
   static std::vector< std::string > names( std::deque< ShutdownRecord > const & history ) {
      std::vector< std::string > names;
      for ( auto const & record : history ) {
         names.push_back( record.interface );
      }
      return names;
   }

   WorkDirectory work;
   std::string directory = work / "state";
   std::string const file = directory + "/shutdowns";
   std::vector< std::string > notices;
   std::optional< Journal > journal;
};

TEST_F( JournalTest, WhatIsWrittenIsReadBackWhole ) {
   EXPECT_THAT( open().running, IsEmpty() );
   auto const asked = write( "Ethernet1", Phase::asked );
   auto const held = write( "Ethernet2", Phase::held );
   EXPECT_NE( asked.id, held.id );
   EXPECT_EQ( asked.bootId, "b1" );
   EXPECT_THAT( open().running, ElementsAre( asked, held ) );
   EXPECT_THAT( notices, IsEmpty() );
   EXPECT_EQ( journal->trouble(), "" );
}

TEST_F( JournalTest, TheLastLineOfAShutdownCounts ) {
   open();
   auto one = write( "Ethernet1", Phase::asked );
   one.phase = Phase::sending;
   journal->write( one );
   one.phase = Phase::held;
   journal->write( one );
   EXPECT_THAT( open().running, ElementsAre( one ) );
   one.phase = Phase::ended;
   one.record.ending = Ending::down;
   journal->write( one );
   auto const content = open();
   EXPECT_THAT( content.running, IsEmpty() );
   EXPECT_THAT( content.history, ElementsAre( one.record ) );
}

TEST_F( JournalTest, TheHistoryIsInTheOrderOfTheEnds ) {
   open();
   auto first = write( "first", Phase::asked );
   write( "second", Phase::ended );
   first.phase = Phase::ended;
   journal->write( first );
   EXPECT_THAT( names( open().history ), ElementsAre( "second", "first" ) );
}

TEST_F( JournalTest, AnotherBootEndsWhatWasUnderWay ) {
   open();
   write( "Ethernet1", Phase::held );
   for ( int i = 0; i < 2; ++i ) { // and the second time it is as it was
      auto const content = open( "b2" );
      EXPECT_THAT( content.running, IsEmpty() );
      ASSERT_EQ( content.history.size(), 1u );
      EXPECT_EQ( content.history[ 0 ].ending, Ending::rebooted );
      EXPECT_STREQ( content.history[ 0 ].endingText(), "rebooted" );
   }
}

// --- Files that are not in order -----------------------------------------------------------------

TEST_F( JournalTest, ATornLineIsReportedAndWhatIsWholeGoesOn ) {
   open();
   auto const running = write( "Ethernet1", Phase::held );
   write( "Ethernet2", Phase::ended );
   write( "Ethernet3", Phase::asked );
   auto const whole = work.content( "state/shutdowns" );
   work.write( "state/shutdowns", whole.substr( 0, whole.size() - 20 ) );
   auto content = open();
   EXPECT_THAT( content.running, ElementsAre( running ) );
   EXPECT_THAT( names( content.history ), ElementsAre( "Ethernet2" ) );
   EXPECT_THAT( notices, ElementsAre( file + ": 1 torn line",
                                      file + " was set aside as " + file + ".damaged" ) );
   EXPECT_EQ( work.content( "state/shutdowns.damaged" ).size(), whole.size() - 20 );
   notices.clear();
   content = open();
   EXPECT_THAT( content.running, ElementsAre( running ) ) << "the new file is in order";
   EXPECT_THAT( names( content.history ), ElementsAre( "Ethernet2" ) );
   EXPECT_THAT( notices, IsEmpty() );
}

// Every byte counts: a flip anywhere loses that line alone.
TEST_F( JournalTest, AFlippedBitLosesItsLineAlone ) {
   open();
   auto const first = write( "Ethernet1", Phase::held );
   auto const size = work.content( "state/shutdowns" ).size();
   write( "Ethernet2", Phase::held );
   auto const whole = work.content( "state/shutdowns" );
   for ( auto at = size; at < whole.size() - 1; at += 13 ) {
      auto flipped = whole;
      flipped[ at ] = static_cast< char >( flipped[ at ] ^ 1 );
      journal.reset();
      work.write( "state/shutdowns", flipped );
      EXPECT_THAT( open().running, ElementsAre( first ) ) << "byte " << at;
   }
}

TEST_F( JournalTest, AForeignFileIsSetAside ) {
   work.write( "state/shutdowns", "root:x:0:0\n" );
   EXPECT_THAT( open().running, IsEmpty() );
   EXPECT_THAT( notices, ElementsAre( file + " is no journal of shutdowns",
                                      file + " was set aside as " + file + ".damaged" ) );
   EXPECT_EQ( work.content( "state/shutdowns.damaged" ), "root:x:0:0\n" );
   write( "Ethernet1", Phase::asked );
   EXPECT_EQ( open().running.size(), 1u );
}

TEST_F( JournalTest, AFolderInTheFilesPlaceIsSetAside ) {
   work.folder( "state/shutdowns" );
   open();
   EXPECT_THAT( notices, ElementsAre( file + " cannot be read: File too large",
                                      file + " was set aside as " + file + ".damaged" ) );
   EXPECT_EQ( journal->trouble(), "" );
   write( "Ethernet1", Phase::asked );
   EXPECT_EQ( open().running.size(), 1u );
}

// --- Files that are full -------------------------------------------------------------------------

TEST_F( JournalTest, AFullFileGivesWayAndLosesNothingThatIsUnderWay ) {
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
   EXPECT_THAT( content.running, ElementsAre( running ) );
   EXPECT_EQ( content.history.size(), Journal::historyLimit );
   EXPECT_EQ( content.history.back().interface, longName + std::to_string( lines - 1 ) );
}

// Nothing is left of a line that did not fit.
TEST_F( JournalTest, AFileThatCannotGrowIsATroubleThatPasses ) {
   open();
   auto const first = write( "Ethernet1", Phase::held );
   auto const size = work.content( "state/shutdowns" ).size();
   {
      FileSizeLimit const limit( size + 100 );
      write( "Ethernet2", Phase::asked );
      EXPECT_EQ( journal->trouble(), file + ": No space left on device" ) << "a part of it fitted";
      EXPECT_EQ( work.content( "state/shutdowns" ).size(), size );
      write( "Ethernet2", Phase::sending );
   }
   EXPECT_THAT( notices, ElementsAre( "a shutdown that is under way would not outlive the agent: " +
                                      file + ": No space left on device" ) );
   notices.clear();
   auto const third = write( "Ethernet3", Phase::asked );
   EXPECT_EQ( journal->trouble(), "" );
   EXPECT_THAT( notices, ElementsAre( "shutdowns are written down again" ) );
   notices.clear();
   EXPECT_THAT( open().running, ElementsAre( first, third ) );
   EXPECT_THAT( notices, IsEmpty() ) << "no torn line";
}

TEST_F( JournalTest, APlaceThatIsNoDirectoryIsATrouble ) {
   work.write( "state", "a file" );
   open();
   EXPECT_EQ( journal->trouble(), directory + ": Not a directory" );
   write( "Ethernet1", Phase::asked );
   EXPECT_THAT( notices, ElementsAre( "a shutdown that is under way would not outlive the agent: " +
                                      directory + ": Not a directory" ) )
      << "said once";
}

TEST_F( JournalTest, WithoutAPlaceNothingIsKeptAndThatIsSaid ) {
   directory = "";
   open();
   EXPECT_EQ( journal->trouble(), "there is no state directory" );
   EXPECT_NE( write( "Ethernet1", Phase::asked ).id, 0u );
   EXPECT_EQ( journal->trouble(), "there is no state directory" );
}

TEST_F( JournalTest, TwoAgentsDoNotShareAJournal ) {
   open();
   auto const mine = write( "Ethernet1", Phase::held );
   Journal second( directory, { "b1", [] { return 42ns; } }, []( bool, auto const & ) {} );
   EXPECT_THAT( second.read().running, IsEmpty() );
   EXPECT_EQ( second.trouble(), directory + " is another agent's" );
   auto theirs = entry( "Ethernet2" );
   second.write( theirs );
   EXPECT_THAT( open().running, ElementsAre( mine ) );
}

TEST( JournalMachineTest, TheUptimeRunsAndTheBootHasAName ) {
   auto const machine = Journal::Machine::real();
   EXPECT_EQ( machine.bootId.size(), 36u );
   auto const before = machine.uptime();
   EXPECT_GE( machine.uptime(), before );
   EXPECT_GT( before, 0ns );
}

} // namespace
} // namespace Valend
