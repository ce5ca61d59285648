#include "valend/report/Metrics.h"

#include "tests/support/OpenMetricsParser.h"
#include "tests/support/WorkDirectory.h"
#include "tests/valend/DaemonFixture.h"
#include "valend/base/Version.h"
#include "valend/report/OpenMetrics.h"

#include <fstream>
#include <sstream>

namespace Valend {
namespace {

using namespace Test;
using ::testing::HasSubstr;
using ::testing::Not;

std::string parsed( std::string const & text ) {
   Valen::Test::WorkDirectory const work;
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
   Metrics metrics{ { store, feeder, kernel, controller, faults, conditions, [] {
                        return Metrics::Clients{ 3, 7 };
                     } } };
   std::string text() const { return metrics.text(); }
};

TEST_F( MetricsTest, ADaemonThatDidNothingHasItsGauges ) {
   EXPECT_THAT( text(), HasSubstr( "# TYPE valen_interfaces_ready gauge\n"
                                   "# HELP valen_interfaces_ready Interfaces whose shutdown would "
                                   "be delayed now.\n"
                                   "valen_interfaces_ready 2\n" ) );
   EXPECT_TRUE( text().ends_with( "\n# EOF\n" ) );
   auto const samples = parsed( text() );
   EXPECT_THAT( samples, Not( HasSubstr( "refused: " ) ) );
   EXPECT_THAT( samples, HasSubstr( "gauge valen_interfaces [] 2.0\n" ) );
   EXPECT_THAT( samples, HasSubstr( "gauge valen_active [] 1.0\n" ) );
   EXPECT_THAT( samples, HasSubstr( "counter valen_device_resyncs_total [] 3.0\n" ) );
   EXPECT_THAT( samples, HasSubstr( "gauge valen_api_connections [] 3.0\n" ) );
   EXPECT_THAT( samples, HasSubstr( "counter valen_api_connections_dropped_total [] 7.0\n" ) );
   EXPECT_THAT( samples, HasSubstr( std::string( "info valen_build_info [('version', '" ) +
                                    version + "')] 1.0\n" ) );
}

TEST_F( MetricsTest, ShutdownsAreCountedByResultAndFramesByAgentAndError ) {
   sent.failingSends = { 1 };
   controller.shutdown( "Ethernet1", { "root" }, nullptr );
   controller.shutdown( "Ethernet2", { "root" }, nullptr );
   advance( 100ms );
   EXPECT_THAT( parsed( text() ), HasSubstr( "gauge valen_interfaces_held [] 2.0\n" ) );
   EXPECT_THAT( parsed( text() ), HasSubstr( "gauge valen_shutdowns_running [] 2.0\n" ) );
   controller.enable( "Ethernet2", "root" );
   advance( 400ms );
   auto const samples = parsed( text() );
   for ( std::string const line :
         { "counter valen_shutdowns_total [('result', 'down')] 1.0\n",
           "counter valen_shutdowns_total [('result', 'aborted')] 1.0\n",
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

TEST_F( MetricsTest, ALinkSetDownOutsideValendIsNotCountedAsHeld ) {
   controller.linkSeen( { "default", "et1" }, LinkSeen::up );
   controller.linkSeen( { "default", "et1" }, LinkSeen::down );
   turn();
   auto const samples = parsed( text() );
   EXPECT_THAT( samples,
                HasSubstr( "counter valen_shutdowns_total [('result', 'went-down')] 1.0\n" ) );
   EXPECT_THAT( samples, HasSubstr( "gauge valen_interfaces_without_goodbye [] 1.0\n" ) );
   EXPECT_THAT( samples, HasSubstr( "histogram valen_shutdown_held_seconds_count [] 0.0\n" ) );
}

TEST_F( MetricsTest, ARaisedConditionHasASample ) {
   EXPECT_THAT( text(), Not( HasSubstr( "valen_condition{" ) ) );
   Condition condition( conditions, "journal" );
   condition.raise( "cannot write x" );
   EXPECT_THAT( parsed( text() ),
                HasSubstr( "gauge valen_condition [('name', 'journal')] 1.0\n" ) );
}

TEST_F( MetricsTest, EveryMetricIsInTheOperatorsTable ) {
   std::ifstream file( OPERATING_PAGE );
   std::string const page( std::istreambuf_iterator< char >( file ), {} );
   ASSERT_FALSE( page.empty() );
   std::istringstream lines( text() );
   int families = 0;
   for ( std::string line; std::getline( lines, line ); ) {
      if ( line.starts_with( "# TYPE " ) ) {
         auto const name = line.substr( 7, line.find( ' ', 7 ) - 7 );
         EXPECT_THAT( page, HasSubstr( "`" + name ) );
         ++families;
      }
   }
   EXPECT_GT( families, 15 );
}

TEST_F( MetricsTest, AnyTextCanBeALabel ) {
   OpenMetrics written;
   written.family( "valen_x", "counter", "Back\\slash \"quote\"\nline." );
   written.sample( "_total", { { "agent", "a\\b\"c\nd" } }, U64( 7 ) );
   EXPECT_THAT( parsed( written.text() ),
                HasSubstr( R"(counter valen_x_total [('agent', 'a\\b"c\nd')] 7.0)" ) );
   EXPECT_THAT( parsed( "valen_x 1\n" ), HasSubstr( "refused: " ) ) << "the parser is strict";
}

} // namespace
} // namespace Valend
