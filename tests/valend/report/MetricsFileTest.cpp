#include "valend/report/MetricsFile.h"

#include "tests/support/FileSizeLimit.h"
#include "tests/support/SteppedClock.h"
#include "tests/support/WorkDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
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
};

TEST_F( MetricsFileTest, ItIsWrittenAtTheStartAndEveryFifteenSeconds ) {
   MetricsFile file( work / "valen.prom", text, conditions, clock.scheduler() );
   clock.advance( MetricsFile::soon );
   EXPECT_EQ( content(), "text 1\n" );
   clock.advance( 15s );
   EXPECT_EQ( content(), "text 2\n" );
   clock.advance( 15s );
   EXPECT_EQ( content(), "text 3\n" );
   EXPECT_FALSE( work.has( "valen.prom.new" ) );
}

TEST_F( MetricsFileTest, SeveralChangesLeadToOneWrite ) {
   MetricsFile file( work / "valen.prom", text, conditions, clock.scheduler() );
   clock.advance( 1s );
   for ( int i = 0; i < 1000; ++i ) {
      file.touch();
   }
   clock.advance( MetricsFile::soon - 1ms );
   EXPECT_EQ( content(), "text 1\n" );
   clock.advance( 1ms );
   EXPECT_EQ( content(), "text 2\n" );
}

TEST_F( MetricsFileTest, AReaderSeesTheOldOrTheNewContentWhole ) {
   MetricsFile file( work / "valen.prom", text, conditions, clock.scheduler() );
   clock.advance( 1s );
   std::ifstream reader( work / "valen.prom" );
   clock.advance( 15s );
   std::string line;
   std::getline( reader, line );
   EXPECT_EQ( line, "text 1" ) << "the one that it opened";
   EXPECT_EQ( content(), "text 2\n" );
}

TEST_F( MetricsFileTest, EveryoneMayReadIt ) {
   auto const before = ::umask( 0027 ); // of the unit
   MetricsFile file( work / "valen.prom", text, conditions, clock.scheduler() );
   clock.advance( 1s );
   ::umask( before );
   struct stat status {};
   ASSERT_EQ( ::stat( ( work / "valen.prom" ).c_str(), &status ), 0 );
   EXPECT_EQ( status.st_mode & 0777, 0644u );
}

TEST_F( MetricsFileTest, ItIsRemovedAtTheEnd ) {
   {
      MetricsFile file( work / "valen.prom", text, conditions, clock.scheduler() );
      clock.advance( 1s );
   }
   EXPECT_FALSE( work.has( "valen.prom" ) );
}

TEST_F( MetricsFileTest, AFileThatCannotBeWrittenIsAConditionUntilItCan ) {
   MetricsFile file( work / "later/valen.prom", text, conditions, clock.scheduler() );
   clock.advance( 1s );
   EXPECT_EQ( condition(), "metrics-file: cannot write " + ( work / "later/valen.prom.new" ) +
                              ": No such file or directory" );
   work.directory( "later" );
   clock.advance( 15s );
   EXPECT_EQ( condition(), "" );
   EXPECT_EQ( work.content( "later/valen.prom" ), "text 2\n" );
}

TEST_F( MetricsFileTest, AFileThatCannotBeWrittenWholeLeavesThePreviousOne ) {
   MetricsFile file( work / "valen.prom", text, conditions, clock.scheduler() );
   clock.advance( 1s );
   {
      Valen::Test::FileSizeLimit const limit( 3 );
      clock.advance( 15s );
   }
   EXPECT_EQ( condition(),
              "metrics-file: cannot write " + ( work / "valen.prom.new" ) + ": File too large" );
   EXPECT_FALSE( work.has( "valen.prom.new" ) );
   EXPECT_EQ( content(), "text 1\n" );
}

TEST_F( MetricsFileTest, WithoutAPathNothingIsWritten ) {
   MetricsFile file( "", text, conditions, clock.scheduler() );
   file.touch();
   clock.advance( 60s );
   EXPECT_EQ( written, 0 );
}

} // namespace
} // namespace Valend
