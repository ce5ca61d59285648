#include "tests/valenctl/CommandLine.h"

namespace Valenctl::Test {
namespace {

class DaemonCommandsTest : public CommandLine {};

TEST_F( DaemonCommandsTest, RescanIsSilent ) {
   daemon.answers( "Rescan", { Json::object() } );
   EXPECT_EQ( run( { "rescan" } ), Exit::done );
   EXPECT_EQ( onlyCall( "Rescan" ), Json::object() );
   EXPECT_EQ( out + err, "" );
}

TEST_F( DaemonCommandsTest, MetricsArePrintedAsTheyCome ) {
   daemon.answers( "Metrics", { { { "text", "# TYPE a counter\na_total 1\n" } } } );
   EXPECT_EQ( run( { "metrics" } ), Exit::done );
   EXPECT_EQ( onlyCall( "Metrics" ), Json::object() );
   EXPECT_EQ( out, "# TYPE a counter\na_total 1\n" );
}

TEST_F( DaemonCommandsTest, MetricsCanBeAskedForAsOpenMetrics ) {
   daemon.answers( "Metrics", { { { "text", "# EOF\n" } } } );
   EXPECT_EQ( run( { "metrics", "--openmetrics" } ), Exit::done );
   EXPECT_EQ( onlyCall( "Metrics" ), ( Json{ { "format", "openmetrics" } } ) );
   EXPECT_EQ( out, "# EOF\n" );
}

TEST_F( DaemonCommandsTest, MemoryIsATableOrJson ) {
   Json const answer{ { "types", { { { "type", "T" }, { "live", 2 }, { "bytes", 64 } } } } };
   daemon.answers( "Memory", { answer } );
   EXPECT_EQ( run( { "memory" } ), Exit::done );
   EXPECT_EQ( onlyCall( "Memory" ), Json::object() );
   EXPECT_EQ( out, "TYPE   OBJECTS  BYTES\nT      2        64\ntotal  2        64\n" );
   run( { "memory", "--json" } );
   EXPECT_EQ( Json::parse( out ), answer );
}

TEST_F( DaemonCommandsTest, ShowPrintsAPathOfTheStore ) {
   daemon.answers( "Show", { { { "value", { { "a", 1 } } } } } );
   EXPECT_EQ( run( { "show", "status" } ), Exit::done );
   EXPECT_EQ( onlyCall( "Show" ), ( Json{ { "path", "status" } } ) );
   EXPECT_EQ( out, "{\n  \"a\": 1\n}\n" );
   run( { "show" } );
   EXPECT_EQ( daemon.calls()[ 1 ].parameters, ( Json{ { "path", "" } } ) );
}

TEST_F( DaemonCommandsTest, ShowWithWatchPrintsEachChangeOnALine ) {
   daemon.answers( "Watch", { { { "value", 1 } }, { { "value", nullptr } } } );
   EXPECT_EQ( run( { "show", "status", "--watch" } ), Exit::done );
   EXPECT_EQ( onlyCall( "Watch" ), ( Json{ { "path", "status" } } ) );
   EXPECT_TRUE( daemon.calls()[ 0 ].more );
   EXPECT_EQ( out, "1\nnull\n" );
}

} // namespace
} // namespace Valenctl::Test
