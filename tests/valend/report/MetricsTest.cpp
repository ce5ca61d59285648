#include "valend/report/Metrics.h"

#include "settings/Version.h"
#include "tests/support/MetricsParser.h"
#include "tests/support/WorkDirectory.h"
#include "tests/valend/DaemonFixture.h"

#include <algorithm>
#include <fstream>
#include <sstream>

namespace Valend {
namespace {

using namespace Test;
using ::testing::HasSubstr;
using ::testing::Not;

// What one of the readers of tests/support/MetricsParser.h makes of the text.
template < class Reader > std::string readBy( Reader const & reader, std::string const & text ) {
   Valen::Test::WorkDirectory const work;
   work.write( "text", text );
   return reader( work / "text" );
}
std::string parsed( std::string const & text ) {
   return readBy( Valen::Test::parsedMetrics, text );
}
std::string promtool( std::string const & text ) {
   return readBy( Valen::Test::promtoolFindings, text );
}
std::string parsedAsOpenMetrics( std::string const & text ) {
   return readBy( Valen::Test::parsedOpenMetrics, text );
}

class MetricsTest : public DaemonFixture {
 protected:
   void SetUp() override {
      auto const * const missing = Valen::Test::missingMetricsParser();
      if ( missing && !std::getenv( "CI" ) ) {
         GTEST_SKIP() << "a parser of the format is missing: " << missing;
      }
      start( twoInterfaces() );
   }
   SpeakerTable table;
   Metrics metrics{ { store, feeder, kernel, controller, faults, conditions, table,
                      [] {
                         return Egress::Lost{ 11, 12, 13 };
                      },
                      [] {
                         return Metrics::Clients{ 3, { { "refused", 7 } } };
                      },
                      [] { return U64( 5 ); }, [] { return U64( 9 ); },
                      [] {
                         return Metrics::Database{ true, 2, 3, 4, 1 };
                      } } };
   std::string text() const { return metrics.text(); }
   std::string openMetrics() const { return metrics.text( MetricsFormat::openmetrics ); }

   // Shutdowns with several results, a rejected frame, a condition: every metric has samples.
   void shutDownAndAbort() {
      sent.failingSends = { 1 };
      controller.shutdown( "Ethernet1", { "root" }, nullptr );
      controller.shutdown( "Ethernet2", { "root" }, nullptr );
      hearSpeakers();
      speakers.heldBack = 4;
      advance( 100ms );
      EXPECT_THAT( parsed( text() ), HasSubstr( "gauge valen_interfaces_held [] 2.0\n" ) );
      EXPECT_THAT( parsed( text() ), HasSubstr( "gauge valen_shutdowns_running [] 2.0\n" ) );
      enable( "Ethernet2" );
      advance( 400ms );
      journalCondition.raise( "cannot write x" );
   }
   // A speaker more than are known of a protocol, and a frame that is malformed.
   void hearSpeakers() {
      Derivation::Heard heard;
      heard.holdTime = 120s;
      Egress::Speaker id{};
      id.kind = EGRESS_LLDP;
      for ( std::size_t number = 0; number <= SpeakerTable::mostOfAProtocol; ++number ) {
         id.identity[ 0 ] = static_cast< U8 >( number );
         table.heard( { "default", "et1" }, id, heard, clock.scheduler()->now() );
      }
      table.malformed( { "ospf", "the checksum is wrong" } );
   }
   Condition journalCondition{ conditions, "journal" };
};

TEST_F( MetricsTest, SpeakersAndTheirFramesAreCountedByProtocol ) {
   shutDownAndAbort();
   auto const samples = parsed( text() );
   for ( std::string const line :
         { "gauge valen_speakers [('protocol', 'lldp')] 16.0\n",
           "counter valen_speakers_made_room_total [('protocol', 'lldp')] 1.0\n",
           "counter valen_speaker_frames_malformed_total [('protocol', 'ospf'), ('reason', 'the "
           "checksum is wrong')] 1.0\n",
           "counter valen_speaker_frames_lost_total [('reason', 'full')] 11.0\n",
           "counter valen_speaker_frames_lost_total [('reason', 'too-long')] 12.0\n",
           "counter valen_speaker_frames_lost_total [('reason', 'limited')] 13.0\n",
           "counter valen_speaker_frames_held_back_total [('protocol', 'c')] 4.0\n",
           "counter valen_greetings_total [('protocol', 'c')] 1.0\n" } ) {
      EXPECT_THAT( samples, HasSubstr( line ) );
   }
}

TEST_F( MetricsTest, ADaemonThatDidNothingHasItsGauges ) {
   EXPECT_THAT( text(), HasSubstr( "# HELP valen_interfaces_ready Interfaces whose shutdown would "
                                   "be delayed now.\n"
                                   "# TYPE valen_interfaces_ready gauge\n"
                                   "valen_interfaces_ready 2\n" ) );
   auto const samples = parsed( text() );
   EXPECT_THAT( samples, Not( HasSubstr( "refused: " ) ) );
   EXPECT_THAT( samples, HasSubstr( "gauge valen_interfaces [] 2.0\n" ) );
   EXPECT_THAT( samples, HasSubstr( "gauge valen_active [] 1.0\n" ) );
   EXPECT_THAT( samples, HasSubstr( "counter valen_device_resyncs_total [] 3.0\n" ) );
   EXPECT_THAT( samples, HasSubstr( "counter valen_frames_shared_bursts_total [] 9.0\n" ) );
   EXPECT_THAT( samples, HasSubstr( "gauge valen_api_connections [] 3.0\n" ) );
   EXPECT_THAT( samples, HasSubstr( "gauge valen_database_connected [] 1.0\n" ) );
   EXPECT_THAT( samples, HasSubstr( "counter valen_database_reconnects_total [] 2.0\n" ) );
   EXPECT_THAT( samples, HasSubstr( "gauge valen_database_writes_pending [] 3.0\n" ) );
   EXPECT_THAT( samples, HasSubstr( "gauge valen_database_entities [] 4.0\n" ) );
   EXPECT_THAT( samples, HasSubstr( "gauge valen_database_entities_rejected [] 1.0\n" ) );
   EXPECT_THAT(
      samples,
      HasSubstr( "counter valen_api_connections_dropped_total [('reason', 'refused')] 7.0\n" ) );
   EXPECT_THAT( samples, HasSubstr( std::string( "gauge valen_build_info [('version', '" ) +
                                    Settings::version + "')] 1.0\n" ) );
}

TEST_F( MetricsTest, ShutdownsAreCountedByResultAndFramesByAgentAndError ) {
   shutDownAndAbort();
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
   journalCondition.raise( "cannot write x" );
   EXPECT_THAT( parsed( text() ),
                HasSubstr( "gauge valen_condition [('name', 'journal')] 1.0\n" ) );
}

TEST_F( MetricsTest, PrometheusReadsThemWithoutAWarning ) {
   EXPECT_EQ( promtool( text() ), "" );
   shutDownAndAbort();
   EXPECT_EQ( promtool( text() ), "" );
   EXPECT_THAT( promtool( openMetrics() ), Not( "" ) ) << "the other format is not accepted";
   EXPECT_THAT( promtool( "# TYPE valen_x counter\nvalen_x 1\n" ), HasSubstr( "_total" ) )
      << "promtool warns of names";
}

TEST_F( MetricsTest, OpenMetricsHasTheSameSamples ) {
   shutDownAndAbort();
   auto const samples = parsed( text() );
   EXPECT_THAT( samples, HasSubstr( "counter valen_frames_refused_total" ) );
   EXPECT_THAT( samples, HasSubstr( "histogram valen_shutdown_held_seconds_sum [] 0.6\n" ) );
   std::istringstream lines( samples );
   auto const others = parsedAsOpenMetrics( openMetrics() );
   for ( std::string line; std::getline( lines, line ); ) {
      // A bound of a bucket is "1" in one format and "1.0" in the other.
      if ( line.find( "'le'" ) == line.npos ) {
         EXPECT_THAT( others, HasSubstr( line + "\n" ) );
      }
   }
   EXPECT_THAT( others, HasSubstr( "_bucket [('le', '1.0')] 2.0\n" ) );
   EXPECT_EQ( std::count( others.begin(), others.end(), '\n' ),
              std::count( samples.begin(), samples.end(), '\n' ) );
   EXPECT_TRUE( openMetrics().ends_with( "\n# EOF\n" ) );
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
   auto config = twoInterfaces();
   config.agents[ "a\\b\"c\nd" ][ "Ethernet1" ] = { frame( 'x' ) };
   feeder.apply( config );
   controller.shutdown( "Ethernet1", { "root" }, nullptr );
   advance( 500ms );
   auto const * const line = R"(counter valen_frames_sent_total [('agent', 'a\\b"c\nd')] 1.0)";
   EXPECT_THAT( parsed( text() ), HasSubstr( line ) );
   EXPECT_THAT( parsedAsOpenMetrics( openMetrics() ), HasSubstr( line ) );
   EXPECT_EQ( promtool( text() ), "" );
}

} // namespace
} // namespace Valend
