#include "valend/report/Metrics.h"

#include "tests/support/OpenMetricsParser.h"
#include "tests/support/WorkDirectory.h"
#include "tests/valend/DaemonFixture.h"
#include "valend/base/Version.h"
#include "valend/report/MetricsFile.h"
#include "valend/report/OpenMetrics.h"

namespace Valend {
namespace {

using namespace Test;
using ::testing::HasSubstr;
using ::testing::Not;

std::string parsed( std::string const & text ) {
   WorkDirectory const work;
   work.write( "text", text );
   return Valen::Test::parsedMetrics( work / "text" );
}

class MetricsTest : public DaemonFixture {
 protected:
   void SetUp() override {
      if ( !Valen::Test::metricsParserThere() && !std::getenv( "CI" ) ) {
         GTEST_SKIP() << "the parser of the format is missing: python3-prometheus-client";
      }
      start( twoInterfaces() );
   }
   std::string text() const { return metricsText( { store, feeder, kernel, controller, faults } ); }
};

TEST_F( MetricsTest, AnAgentThatDidNothingHasItsGauges ) {
   EXPECT_THAT( text(), HasSubstr( "# TYPE valen_interfaces_ready gauge\n"
                                   "# HELP valen_interfaces_ready Interfaces whose shutdown would "
                                   "be held now.\n"
                                   "valen_interfaces_ready 2\n" ) );
   EXPECT_TRUE( text().ends_with( "\n# EOF\n" ) );
   auto const samples = parsed( text() );
   EXPECT_THAT( samples, Not( HasSubstr( "refused: " ) ) );
   EXPECT_THAT( samples, HasSubstr( "gauge valen_interfaces [] 2.0\n" ) );
   EXPECT_THAT( samples, HasSubstr( "gauge valen_active [] 1.0\n" ) );
   EXPECT_THAT( samples, HasSubstr( "counter valen_device_resyncs_total [] 3.0\n" ) );
   EXPECT_THAT( samples, HasSubstr( "gauge valen_journal_in_trouble [] 0.0\n" ) )
      << "nobody has looked yet";
   EXPECT_THAT( samples, HasSubstr( std::string( "info valen_build_info [('version', '" ) +
                                    version + "')] 1.0\n" ) );
}

TEST_F( MetricsTest, ShutdownsAreCountedByTheirEndsAndFramesByAgentAndError ) {
   sent.failingSends = { 1 };
   controller.shutdown( "Ethernet1", "root", nullptr );
   controller.shutdown( "Ethernet2", "root", nullptr );
   advance( 100ms );
   EXPECT_THAT( parsed( text() ), HasSubstr( "gauge valen_interfaces_held [] 2.0\n" ) );
   EXPECT_THAT( parsed( text() ), HasSubstr( "gauge valen_shutdowns_running [] 2.0\n" ) );
   controller.enable( "Ethernet2", "root" );
   advance( 400ms );
   auto const samples = parsed( text() );
   for ( std::string const line :
         { "counter valen_shutdowns_total [('ending', 'down')] 1.0\n",
           "counter valen_shutdowns_total [('ending', 'aborted')] 1.0\n",
           "counter valen_frames_sent_total [('agent', 'lldp')] 2.0\n",
           "counter valen_frames_refused_total [('agent', 'lldp'), ('errno', 'ENETDOWN')] 1.0\n",
           "histogram valen_shutdown_held_seconds_bucket [('le', '0.1')] 1.0\n",
           "histogram valen_shutdown_held_seconds_bucket [('le', '0.5')] 2.0\n",
           "histogram valen_shutdown_held_seconds_bucket [('le', '+Inf')] 2.0\n",
           "histogram valen_shutdown_held_seconds_count [] 2.0\n",
           "histogram valen_shutdown_held_seconds_sum [] 0.6\n",
           "gauge valen_interfaces_held [] 0.0\n" } ) {
      EXPECT_THAT( samples, HasSubstr( line ) );
   }
}

TEST_F( MetricsTest, ALinkThatWentDownByItselfIsNoShutdownThatWasHeld ) {
   controller.linkSeen( { "default", "et1" }, true );
   controller.linkSeen( { "default", "et1" }, false );
   turn();
   auto const samples = parsed( text() );
   EXPECT_THAT( samples,
                HasSubstr( "counter valen_shutdowns_total [('ending', 'went-down')] 1.0\n" ) );
   EXPECT_THAT( samples, HasSubstr( "gauge valen_interfaces_without_goodbye [] 1.0\n" ) );
   EXPECT_THAT( samples, HasSubstr( "histogram valen_shutdown_held_seconds_count [] 0.0\n" ) );
}

TEST_F( MetricsTest, AnyTextCanBeALabel ) {
   OpenMetrics metrics;
   metrics.family( "valen_x", "counter", "Back\\slash \"quote\"\nline." );
   metrics.sample( "_total", { { "agent", "a\\b\"c\nd" } }, U64( 7 ) );
   EXPECT_THAT( parsed( metrics.text() ),
                HasSubstr( R"(counter valen_x_total [('agent', 'a\\b"c\nd')] 7.0)" ) );
   EXPECT_THAT( parsed( "valen_x 1\n" ), HasSubstr( "refused: " ) ) << "the parser is strict";
}

// --- The file ------------------------------------------------------------------------------------

class MetricsFileTest : public ::testing::Test {
 protected:
   Valen::Test::SteppedClock clock;
   WorkDirectory work;
   int written = 0;
   std::function< std::string() > text = [ this ] {
      return "text " + std::to_string( ++written ) + "\n";
   };
   std::string content() const { return work.content( "valen.prom" ); }
};

TEST_F( MetricsFileTest, ItIsWrittenAtTheStartAndEveryFifteenSeconds ) {
   MetricsFile file( work / "valen.prom", text, clock.scheduler() );
   clock.advance( MetricsFile::soon );
   EXPECT_EQ( content(), "text 1\n" );
   clock.advance( 15s );
   EXPECT_EQ( content(), "text 2\n" );
   clock.advance( 15s );
   EXPECT_EQ( content(), "text 3\n" );
   EXPECT_FALSE( work.has( "valen.prom.new" ) );
}

TEST_F( MetricsFileTest, ManyEndsMakeOneFileSoon ) {
   MetricsFile file( work / "valen.prom", text, clock.scheduler() );
   clock.advance( 1s );
   for ( int i = 0; i < 1000; ++i ) {
      file.touch();
   }
   clock.advance( MetricsFile::soon - 1ms );
   EXPECT_EQ( content(), "text 1\n" );
   clock.advance( 1ms );
   EXPECT_EQ( content(), "text 2\n" );
}

TEST_F( MetricsFileTest, AReaderSeesOneOrTheOtherWhole ) {
   MetricsFile file( work / "valen.prom", text, clock.scheduler() );
   clock.advance( 1s );
   std::ifstream reader( work / "valen.prom" );
   clock.advance( 15s );
   std::string line;
   std::getline( reader, line );
   EXPECT_EQ( line, "text 1" ) << "the one that it opened";
   EXPECT_EQ( content(), "text 2\n" );
}

TEST_F( MetricsFileTest, ItGoesWithTheAgent ) {
   {
      MetricsFile file( work / "valen.prom", text, clock.scheduler() );
      clock.advance( 1s );
   }
   EXPECT_FALSE( work.has( "valen.prom" ) );
}

TEST_F( MetricsFileTest, AFileThatCannotBeWrittenIsATroubleThatPasses ) {
   MetricsFile file( work / "folder/valen.prom", text, clock.scheduler() );
   clock.advance( 1s );
   EXPECT_EQ( file.trouble(), work / "folder/valen.prom.new: No such file or directory" );
   work.folder( "folder" );
   clock.advance( 15s );
   EXPECT_EQ( file.trouble(), "" );
   EXPECT_EQ( work.content( "folder/valen.prom" ), "text 2\n" );
}

TEST_F( MetricsFileTest, ADiskThatIsFullLeavesTheFileBefore ) {
   MetricsFile file( work / "valen.prom", text, clock.scheduler() );
   clock.advance( 1s );
   work.link( "/dev/full", "valen.prom.new" );
   clock.advance( 15s );
   EXPECT_EQ( file.trouble(), work / "valen.prom.new: No space left on device" );
   EXPECT_EQ( content(), "text 1\n" );
}

TEST_F( MetricsFileTest, WithoutAPathThereIsNone ) {
   MetricsFile file( "", text, clock.scheduler() );
   file.touch();
   clock.advance( 60s );
   EXPECT_EQ( written, 0 );
}

} // namespace
} // namespace Valend
