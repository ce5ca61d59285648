#include "valend/report/MetricsFile.h"

#include "tests/support/FileSizeLimit.h"
#include "tests/support/SteppedClock.h"
#include "tests/support/WorkDirectory.h"

#include <fstream>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <sys/stat.h>

namespace Valend {
namespace {

using namespace std::chrono_literals;
using Valen::Test::WorkDirectory;

class MetricsFileTest : public ::testing::Test {
 protected:
   Valen::Test::SteppedClock clock;
   Conditions conditions{ []( auto, auto const & ) {} };
   WorkDirectory work;
   int written = 0;
   std::function< std::string() > text = [ this ] {
      return "text " + std::to_string( ++written ) + "\n";
   };
   std::string condition() const {
      auto const raised = conditions.raised();
      return raised.empty() ? "" : raised.front().name + ": " + raised.front().text;
   }
   std::string content() const { return work.content( "valen.prom" ); }
   MetricsFile make( std::string const & path ) {
      return MetricsFile( path, text, conditions, *worker, clock.scheduler() );
   }
   // Lets time pass, and the worker do what it was given meanwhile.
   void advance( std::chrono::milliseconds time ) {
      clock.advance( time );
      bool done = false;
      worker->run( [ & ] { return [ & ] { done = true; }; } );
      while ( !done ) {
         loop.turn( 1s );
      }
   }

   Valen::Linux::EventLoop loop{ clock.scheduler() };
   std::optional< Valen::Linux::Worker > worker{ std::in_place, loop, "test" };
};

TEST_F( MetricsFileTest, ItIsWrittenAtTheStartAndEveryFifteenSeconds ) {
   auto file = make( work / "valen.prom" );
   advance( MetricsFile::soon );
   EXPECT_EQ( content(), "text 1\n" );
   advance( 15s );
   EXPECT_EQ( content(), "text 2\n" );
   advance( 15s );
   EXPECT_EQ( content(), "text 3\n" );
   EXPECT_FALSE( work.has( "valen.prom.new" ) );
}

TEST_F( MetricsFileTest, SeveralChangesLeadToOneWrite ) {
   auto file = make( work / "valen.prom" );
   advance( 1s );
   for ( int i = 0; i < 1000; ++i ) {
      file.touch();
   }
   advance( MetricsFile::soon - 1ms );
   EXPECT_EQ( content(), "text 1\n" );
   advance( 1ms );
   EXPECT_EQ( content(), "text 2\n" );
}

TEST_F( MetricsFileTest, AReaderSeesTheOldOrTheNewContentWhole ) {
   auto file = make( work / "valen.prom" );
   advance( 1s );
   std::ifstream reader( work / "valen.prom" );
   advance( 15s );
   std::string line;
   std::getline( reader, line );
   EXPECT_EQ( line, "text 1" ) << "the one that it opened";
   EXPECT_EQ( content(), "text 2\n" );
}

TEST_F( MetricsFileTest, EveryoneMayReadIt ) {
   auto const before = ::umask( 0027 ); // of the unit
   auto file = make( work / "valen.prom" );
   advance( 1s );
   ::umask( before );
   struct stat status {};
   ASSERT_EQ( ::stat( ( work / "valen.prom" ).c_str(), &status ), 0 );
   EXPECT_EQ( status.st_mode & 0777, 0644u );
}

TEST_F( MetricsFileTest, ItIsRemovedAtTheEnd ) {
   {
      auto file = make( work / "valen.prom" );
      advance( 1s );
      EXPECT_TRUE( work.has( "valen.prom" ) );
   }
   worker.reset();
   EXPECT_FALSE( work.has( "valen.prom" ) );
}

TEST_F( MetricsFileTest, AFileOfAnotherIsNotRemoved ) {
   {
      auto file = make( work / "later/valen.prom" );
      advance( 1s );
      work.directory( "later" );
      std::ofstream( work / "later/valen.prom" ) << "of another";
   }
   worker.reset();
   EXPECT_TRUE( work.has( "later/valen.prom" ) );
}

TEST_F( MetricsFileTest, TheLoopDoesNotWaitForTheDisk ) {
   auto file = make( work / "valen.prom" );
   std::promise< void > disk;
   worker->run( [ stuck = disk.get_future().share() ]() -> Valen::Linux::Worker::Work {
      stuck.wait();
      return nullptr;
   } );
   clock.advance( 1s );
   file.touch();
   clock.advance( 50s );
   EXPECT_EQ( written, 1 ) << "one text waits for the disk, not more and more of them";
   EXPECT_FALSE( work.has( "valen.prom" ) );
   disk.set_value();
   advance( 0s );
   EXPECT_EQ( content(), "text 1\n" );
   advance( MetricsFile::soon );
   EXPECT_EQ( content(), "text 2\n" ) << "what was due meanwhile";
}

TEST_F( MetricsFileTest, AFileThatCannotBeWrittenIsAConditionUntilItCan ) {
   auto file = make( work / "later/valen.prom" );
   advance( 1s );
   EXPECT_EQ( condition(), "metrics-file: cannot write " + ( work / "later/valen.prom.new" ) +
                              ": No such file or directory" );
   work.directory( "later" );
   advance( 15s );
   EXPECT_EQ( condition(), "" );
   EXPECT_EQ( work.content( "later/valen.prom" ), "text 2\n" );
}

TEST_F( MetricsFileTest, AFileThatCannotBeWrittenWholeLeavesThePreviousOne ) {
   auto file = make( work / "valen.prom" );
   advance( 1s );
   {
      Valen::Test::FileSizeLimit const limit( 3 );
      advance( 15s );
   }
   EXPECT_EQ( condition(),
              "metrics-file: cannot write " + ( work / "valen.prom.new" ) + ": File too large" );
   EXPECT_FALSE( work.has( "valen.prom.new" ) );
   EXPECT_EQ( content(), "text 1\n" );
}

TEST_F( MetricsFileTest, WithoutAPathNothingIsWritten ) {
   auto file = make( "" );
   file.touch();
   advance( 60s );
   EXPECT_EQ( written, 0 );
}

} // namespace
} // namespace Valend
