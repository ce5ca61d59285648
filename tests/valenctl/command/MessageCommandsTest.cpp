#include "tests/valenctl/CommandLine.h"

#include <iostream>

namespace Valenctl::Test {
namespace {

using ::testing::HasSubstr;

class MessageCommandsTest : public CommandLine {
 protected:
   static Json publication( char const * lifetime, std::vector< std::string > const & frames ) {
      return { { "agent", "radv" },
               { "interface", "Ethernet1" },
               { "frames", frames },
               { "lifetime", lifetime } };
   }
};

TEST_F( MessageCommandsTest, ListShowsAllFramesOrThoseForOneInterface ) {
   daemon.answers( "ListMessages",
                   { { { "messages", { { { "agent", "lldp" }, { "frames", { "00" } } } } } } } );
   EXPECT_EQ( run( { "messages", "list" } ), Exit::done );
   EXPECT_EQ( onlyCall( "ListMessages" ), Json::object() );
   EXPECT_THAT( out, HasSubstr( "\nlldp " ) );
   run( { "messages", "list", "Ethernet1" } );
   EXPECT_EQ( daemon.calls()[ 1 ].parameters, ( Json{ { "interface", "Ethernet1" } } ) );
}

TEST_F( MessageCommandsTest, AddedFramesAreKept ) {
   daemon.answers( "Publish", { { { "tooLong", Json::array() } } } );
   EXPECT_EQ( run( { "messages", "add", "radv", "Ethernet1", "00", "11" } ), Exit::done );
   EXPECT_EQ( onlyCall( "Publish" ), publication( "kept", { "00", "11" } ) );
   EXPECT_EQ( out + err, "" );
}

TEST_F( MessageCommandsTest, FramesThatAreTooLongAreReported ) {
   daemon.answers( "Publish",
                   { { { "tooLong", { { { "frame", 1 }, { "bytes", 9 }, { "limit", 8 } } } } } } );
   EXPECT_EQ( run( { "messages", "add", "radv", "Ethernet1", "00" } ), Exit::done );
   EXPECT_EQ( err, "frame 1 (9 bytes) exceeds the limit of the device (8) and will not be sent\n" );
}

TEST_F( MessageCommandsTest, FramesThatAreNotSavedAreReported ) {
   daemon.answers( "Publish", { { { "tooLong", Json::array() }, { "saved", false } } } );
   EXPECT_EQ( run( { "messages", "add", "radv", "Ethernet1", "00" } ), Exit::done );
   EXPECT_EQ( err,
              "not saved: a restart of valend would lose the frames; see \"valenctl status\"\n" );
   daemon.answers( "Withdraw", { { { "saved", false } } } );
   EXPECT_EQ( run( { "messages", "remove", "radv", "Ethernet1" } ), Exit::done );
   EXPECT_THAT( err, HasSubstr( "not saved: frames that were kept may be back" ) );
}

TEST_F( MessageCommandsTest, ADashReadsFramesFromStandardInput ) {
   daemon.answers( "Publish", { Json::object() } );
   std::istringstream input( "22\n\n33\n" );
   auto * const saved = std::cin.rdbuf( input.rdbuf() );
   auto const exit = run( { "messages", "add", "radv", "Ethernet1", "11", "-", "44" } );
   std::cin.rdbuf( saved );
   EXPECT_EQ( exit, Exit::done );
   EXPECT_EQ( onlyCall( "Publish" ), publication( "kept", { "11", "22", "33", "44" } ) );
}

TEST_F( MessageCommandsTest, WhileRunningBindsTheFramesToTheConnection ) {
   daemon.answers( "Publish", { Json::object() } );
   auto waiting = std::thread( [ this ] {
      EXPECT_EQ( run( { "messages", "add", "radv", "Ethernet1", "00", "--while-running" } ),
                 Exit::notConnected );
   } );
   while ( daemon.calls().empty() ) {
      std::this_thread::yield();
   }
   daemon.disconnect();
   waiting.join();
   EXPECT_EQ( onlyCall( "Publish" ), publication( "connection", { "00" } ) );
}

TEST_F( MessageCommandsTest, RemoveWithdrawsWhatWasAdded ) {
   daemon.answers( "Withdraw", { Json::object() } );
   EXPECT_EQ( run( { "messages", "remove", "radv", "Ethernet1" } ), Exit::done );
   EXPECT_EQ( onlyCall( "Withdraw" ),
              ( Json{ { "agent", "radv" }, { "interface", "Ethernet1" } } ) );
}

TEST_F( MessageCommandsTest, EachArgumentIsNeeded ) {
   EXPECT_EQ( run( { "messages", "add", "radv", "Ethernet1" } ), Exit::usage );
   EXPECT_EQ( run( { "messages", "remove", "radv" } ), Exit::usage );
}

TEST_F( MessageCommandsTest, ShowSaysWhatTheFramesOfAnAgentSay ) {
   std::string const leaving =
      "0180c200000e02000000000188cc02070402000000000104050565746831060200000000";
   std::string const cutOff = "0180c200000e02000000000188cc020704020000000001";
   Json const learned{ { { "frame", 1 },
                         { "speaker", "port eth1" },
                         { "change", "ttl 120 -> 0" },
                         { "heardMs", 3000 },
                         { "freshMs", 117'000 } } };
   auto const message = []( char const * agent, Json const & frames, Json const & from ) {
      return Json{ { "agent", agent },
                   { "interface", "Ethernet1" },
                   { "frames", frames },
                   { "learned", from } };
   };
   daemon.answers( "ListMessages",
                   { { { "messages",
                         { message( "other", { cutOff }, Json::array() ),
                           message( "learned-lldp", { leaving }, learned ) } } } } );
   EXPECT_EQ( run( { "messages", "show", "learned-lldp", "Ethernet1" } ), Exit::done );
   EXPECT_EQ( onlyCall( "ListMessages" ), ( Json{ { "interface", "Ethernet1" } } ) );
   EXPECT_EQ(
      out, "frame 1, 36 bytes: lldp, chassis 02:00:00:00:00:01, port eth1: says ttl 0; a goodbye\n"
           "  ttl 120 -> 0; heard 3 s ago, fresh for 117 s\n"
           "  " +
              leaving + "\n" );
   EXPECT_EQ( run( { "messages", "show", "other", "Ethernet1" } ), Exit::failed );
   EXPECT_EQ( out, "frame 1, 23 bytes: lldp, malformed: it ends too early\n  " + cutOff + "\n" );
   EXPECT_EQ( run( { "messages", "show", "none", "Ethernet1" } ), Exit::failed );
   EXPECT_EQ( err, "valenctl: agent \"none\" has no frames for interface \"Ethernet1\"\n" );
}

} // namespace
} // namespace Valenctl::Test
