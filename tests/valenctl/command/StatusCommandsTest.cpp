#include "tests/valenctl/CommandLine.h"

namespace Valenctl::Test {
namespace {

using ::testing::HasSubstr;

class StatusCommandsTest : public CommandLine {};

TEST_F( StatusCommandsTest, StatusShowsAllInterfacesOrOne ) {
   Json const answer{ { "shutdownDelayMs", 500 },
                      { "interfaces", { { { "name", "Ethernet1" }, { "ready", true } } } } };
   daemon.answers( "Status", { answer } );
   EXPECT_EQ( run( { "status" } ), Exit::done );
   EXPECT_EQ( onlyCall( "Status" ), Json::object() );
   EXPECT_THAT( out, HasSubstr( "shutdown delay: 500 ms\n" ) );
   EXPECT_THAT( out, HasSubstr( "\nEthernet1 " ) );
   run( { "status", "Ethernet1", "--json" } );
   EXPECT_EQ( daemon.calls()[ 1 ].parameters, ( Json{ { "interface", "Ethernet1" } } ) );
   EXPECT_EQ( Json::parse( out ), answer );
}

TEST_F( StatusCommandsTest, StatusIsColoredOnATerminal ) {
   daemon.answers( "Status", { { { "interfaces", { { { "ready", true } } } } } } );
   terminal.palette = Palette::colored();
   run( { "status" } );
   EXPECT_THAT( out, HasSubstr( "\x1b[32myes\x1b[0m" ) );
}

TEST_F( StatusCommandsTest, ListPrintsANameALine ) {
   daemon.answers( "List", { { { "interfaces", { "Ethernet1", "Vlan7" } } } } );
   EXPECT_EQ( run( { "list" } ), Exit::done );
   EXPECT_EQ( onlyCall( "List" ), Json::object() );
   EXPECT_EQ( out, "Ethernet1\nVlan7\n" );
   run( { "list", "--vrf", "red" } );
   EXPECT_EQ( daemon.calls()[ 1 ].parameters, ( Json{ { "vrf", "red" } } ) );
}

TEST_F( StatusCommandsTest, ExplainNeedsAnInterface ) {
   daemon.answers( "Explain", { { { "ready", true }, { "link", "up" } } } );
   EXPECT_EQ( run( { "explain", "Ethernet1" } ), Exit::done );
   EXPECT_EQ( onlyCall( "Explain" ), ( Json{ { "interface", "Ethernet1" } } ) );
   EXPECT_EQ( out, "Ethernet1: ready, link up\n" );
   EXPECT_EQ( run( { "explain" } ), Exit::usage );
}

TEST_F( StatusCommandsTest, WaitHasValendKeepTheTimeout ) {
   daemon.answers( "Wait", { { { "interface", Json::object() } } } );
   EXPECT_EQ( run( { "--timeout", "2", "wait", "Ethernet1", "--until", "down" } ), Exit::done );
   EXPECT_EQ(
      onlyCall( "Wait" ),
      ( Json{ { "interface", "Ethernet1" }, { "until", "down" }, { "timeoutMs", 2000 } } ) );
   EXPECT_EQ( out + err, "" );
   run( { "--timeout", "0", "wait", "Ethernet1", "--until", "idle" } );
   EXPECT_EQ( daemon.calls()[ 1 ].parameters,
              ( Json{ { "interface", "Ethernet1" }, { "until", "idle" } } ) );
}

TEST_F( StatusCommandsTest, WaitTimesOutWithValendsText ) {
   daemon.rejects( "Wait", "TimedOut", { { "message", "Ethernet1 is not down yet" } } );
   EXPECT_EQ( run( { "wait", "Ethernet1", "--until", "down" } ), Exit::timedOut );
   EXPECT_EQ( err, "valenctl: Ethernet1 is not down yet\n" );
}

TEST_F( StatusCommandsTest, WaitKnowsFourStates ) {
   EXPECT_EQ( run( { "wait", "Ethernet1" } ), Exit::usage );
   EXPECT_EQ( run( { "wait", "Ethernet1", "--until", "noon" } ), Exit::usage );
   EXPECT_EQ( run( { "wait", "--until", "up" } ), Exit::usage );
}

TEST_F( StatusCommandsTest, HistoryShowsPastShutdowns ) {
   daemon.answers(
      "History",
      { { { "shutdowns", { { { "interface", "Ethernet1" }, { "ending", "down" } } } } } } );
   EXPECT_EQ( run( { "history", "Ethernet1", "Ethernet2", "--last", "3" } ), Exit::done );
   EXPECT_EQ( onlyCall( "History" ),
              ( Json{ { "interfaces", { "Ethernet1", "Ethernet2" } }, { "last", 3 } } ) );
   EXPECT_THAT( out, HasSubstr( "RESULT  REASON\n" ) );
   EXPECT_THAT( out, HasSubstr( "Ethernet1" ) );
}

TEST_F( StatusCommandsTest, HistoryBeginsAtATime ) {
   daemon.answers( "History", { { { "shutdowns", Json::array() } } } );
   EXPECT_EQ( run( { "history", "--since", "2023-11-14T22:13:20.123Z" } ), Exit::done );
   EXPECT_EQ( onlyCall( "History" ), ( Json{ { "sinceMs", 1'700'000'000'123 } } ) );
   run( { "history", "--since", "5m" } );
   auto const now =
      std::chrono::system_clock::now().time_since_epoch() / std::chrono::milliseconds( 1 );
   EXPECT_NEAR( daemon.calls()[ 1 ].parameters[ "sinceMs" ].get< double >(),
                static_cast< double >( now ) - 300'000, 60'000 );
   EXPECT_EQ( run( { "history", "--since", "noon" } ), Exit::usage );
   EXPECT_THAT( err, HasSubstr( "\"noon\" is not a time; expected 30s, 5m" ) );
   EXPECT_EQ( run( { "history", "--last=-1" } ), Exit::usage );
}

} // namespace
} // namespace Valenctl::Test
