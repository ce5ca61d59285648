#include "tests/valenctl/CommandLine.h"

namespace Valenctl::Test {
namespace {

class LinkCommandsTest : public CommandLine {
 protected:
   static Json step( char const * name, char const * ending, Json const & delayMs = nullptr ) {
      return { { "step", name },
               { "delayMs", delayMs },
               { "shutdown",
                 { { "interface", "Ethernet1" },
                   { "sent", 2 },
                   { "heldMs", 300 },
                   { "withDelay", true },
                   { "ending", ending } } } };
   }
   static Json answer( std::vector< Json > const & steps, int pending = 0 ) {
      return { { "steps", steps }, { "pending", pending } };
   }
};

TEST_F( LinkCommandsTest, ShutdownReturnsWhenItHasStarted ) {
   daemon.answers( "ShutdownMany", { answer( { step( "delayed", "running", 300 ) }, 1 ) } );
   EXPECT_EQ( run( { "shutdown", "Ethernet1" } ), Exit::done );
   EXPECT_EQ( onlyCall( "ShutdownMany" ), ( Json{ { "interfaces", { "Ethernet1" } } } ) );
   EXPECT_FALSE( daemon.calls()[ 0 ].more );
   EXPECT_EQ( err, "Ethernet1: held for 300 ms\n" );
   EXPECT_EQ( out, "" );
}

TEST_F( LinkCommandsTest, ShutdownWithWaitPrintsEachStep ) {
   daemon.answers( "ShutdownMany", { answer( { step( "sent", "running" ) }, 1 ),
                                     answer( { step( "delayed", "running", 300 ) }, 1 ),
                                     answer( { step( "ended", "down" ) } ) } );
   EXPECT_EQ( run( { "shutdown", "--all", "--wait" } ), Exit::done );
   EXPECT_EQ( onlyCall( "ShutdownMany" ), ( Json{ { "all", true } } ) );
   EXPECT_TRUE( daemon.calls()[ 0 ].more );
   EXPECT_EQ( err, "Ethernet1: 2 frames sent\n"
                   "Ethernet1: held for 300 ms\n"
                   "Ethernet1: link down after 300 ms\n" );
}

TEST_F( LinkCommandsTest, ATerminalShowsHowManyLinksAreNotDownYet ) {
   terminal.err = true;
   daemon.answers( "ShutdownMany", { answer( { step( "sent", "running" ) }, 1 ),
                                     answer( { step( "ended", "down" ) } ) } );
   run( { "shutdown", "--all", "--wait" } );
   EXPECT_EQ( err, "\r\x1b[KEthernet1: 2 frames sent\n"
                   "1 not down yet"
                   "\r\x1b[KEthernet1: link down after 300 ms\n" );
}

TEST_F( LinkCommandsTest, AShutdownThatDoesNotEndWithTheLinkDownFails ) {
   for ( auto const * ending : { "aborted", "no-device", "failed" } ) {
      daemon.answers( "ShutdownMany", { answer( { step( "ended", ending ) } ),
                                        answer( { step( "ended", "down" ) } ) } );
      EXPECT_EQ( run( { "shutdown", "--all", "--wait" } ), Exit::failed ) << ending;
   }
}

TEST_F( LinkCommandsTest, QuietPrintsErrorsOnly ) {
   daemon.answers( "ShutdownMany", { answer( { step( "sent", "running" ) } ),
                                     answer( { step( "ended", "aborted" ) } ) } );
   EXPECT_EQ( run( { "shutdown", "--all", "--wait", "--quiet" } ), Exit::failed );
   EXPECT_EQ( err, "Ethernet1: shutdown aborted; link stays up\n" );
}

TEST_F( LinkCommandsTest, JsonHasAStepALine ) {
   daemon.answers( "ShutdownMany", { answer( { step( "sent", "running" ) } ),
                                     answer( { step( "ended", "down" ) } ) } );
   EXPECT_EQ( run( { "shutdown", "--all", "--wait", "--json" } ), Exit::done );
   EXPECT_EQ( out,
              step( "sent", "running" ).dump() + "\n" + step( "ended", "down" ).dump() + "\n" );
   EXPECT_EQ( err, "" );
}

TEST_F( LinkCommandsTest, EnablePrintsWhatBecameOfEachInterface ) {
   daemon.answers( "EnableMany",
                   { { { "results",
                         { { { "interface", "a" }, { "result", "up" } },
                           { { "interface", "b" }, { "result", "aborted" } },
                           { { "interface", "c" }, { "result", "already-up" } } } } } } );
   EXPECT_EQ( run( { "enable", "a", "b", "c" } ), Exit::done );
   EXPECT_EQ( onlyCall( "EnableMany" ), ( Json{ { "interfaces", { "a", "b", "c" } } } ) );
   EXPECT_EQ( err, "a: link up\nb: shutdown aborted; link stays up\nc: already up\n" );
   EXPECT_EQ( out, "" );
   run( { "enable", "a", "--quiet" } );
   EXPECT_EQ( err, "" );
}

TEST_F( LinkCommandsTest, AShutdownTakesAReasonAndADelay ) {
   daemon.answers( "ShutdownMany", { answer( {} ) } );
   EXPECT_EQ( run( { "shutdown", "a", "--delay", "250", "--reason", "new optics" } ), Exit::done );
   EXPECT_EQ(
      onlyCall( "ShutdownMany" ),
      ( Json{ { "interfaces", { "a" } }, { "delayMs", 250 }, { "reason", "new optics" } } ) );
   EXPECT_EQ( run( { "shutdown", "a", "--delay", "soon" } ), Exit::usage );
   EXPECT_EQ( run( { "shutdown", "a", "--delay=-1" } ), Exit::usage );
   run( { "shutdown", "a", "--delay", "0", "--reason", "" } );
   EXPECT_EQ( daemon.calls()[ 1 ].parameters,
              ( Json{ { "interfaces", { "a" } }, { "delayMs", 0 }, { "reason", "" } } ) )
      << "valend rejects an empty reason";
}

TEST_F( LinkCommandsTest, GoodbyePrintsWhatWasSent ) {
   daemon.answers(
      "Goodbye",
      { { { "results",
            { { { "interface", "a" }, { "result", "sent" }, { "goodbye", { { "sent", 2 } } } },
              { { "interface", "b" }, { "result", "already-down" } },
              { { "interface", "c" },
                { "result", "not-ready" },
                { "message", "delay disabled" } } } } } } );
   EXPECT_EQ( run( { "goodbye", "--device", "eth1", "--reason", "ports move" } ), Exit::done );
   EXPECT_EQ( onlyCall( "Goodbye" ), ( Json{ { "device", "eth1" }, { "reason", "ports move" } } ) );
   EXPECT_EQ( err, "a: 2 frames sent; link stays up\nb: already down; no frames sent\n"
                   "c: no frames sent: delay disabled\n" );
   EXPECT_EQ( run( { "goodbye", "a", "b", "c", "--quiet" } ), Exit::failed );
   EXPECT_EQ( err, "valenctl: c: no frames sent: delay disabled\n" )
      << "asked for by name, it is an error";
}

TEST_F( LinkCommandsTest, GoodbyeFailsWhenFramesDoNotLeave ) {
   Json const goodbye{ { "sent", 1 }, { "failed", 1 }, { "failReason", "Network is down" } };
   Json const result{ { "interface", "a" }, { "result", "failed" }, { "goodbye", goodbye } };
   daemon.answers( "Goodbye", { { { "results", { result } } } } );
   EXPECT_EQ( run( { "goodbye", "--all" } ), Exit::failed );
   EXPECT_EQ( err, "valenctl: a: 1 frame sent, 1 failed (Network is down); link stays up\n" );
}

TEST_F( LinkCommandsTest, EnableFailsWhenOneInterfaceFails ) {
   daemon.answers(
      "EnableMany",
      { { { "results",
            { { { "interface", "a" }, { "result", "failed" }, { "message", "no device" } },
              { { "interface", "b" }, { "result", "up" } } } } } } );
   EXPECT_EQ( run( { "enable", "--all", "--quiet" } ), Exit::failed );
   EXPECT_EQ( err, "valenctl: a: no device\n" );
}

} // namespace
} // namespace Valenctl::Test
