#include "valenctl/ReportText.h"

#include "valenctl/StatusText.h"
#include "valenctl/Terminal.h"

#include <gtest/gtest.h>

namespace Valenctl {
namespace {

TEST( ReportTextTest, ExplainSaysWhatIsMissing ) {
   Json const answer{
      { "ready", false },
      { "link", "up" },
      { "requirements",
        { { { "what", "delay enabled" }, { "met", true }, { "detail", "held for 500 ms" } },
          { { "what", "device present" }, { "met", false }, { "detail", "no device" } },
          { { "what", "the rest" }, { "met", false }, { "detail", "" } } } } };
   EXPECT_EQ( explainText( "Ethernet1", answer ), "Ethernet1: not ready, link up\n"
                                                  "  yes  delay enabled: held for 500 ms\n"
                                                  "  NO   device present: no device\n"
                                                  "  NO   the rest\n" );
}

TEST( ReportTextTest, HistoryHasALineForEachShutdown ) {
   Json const answer{ { "shutdowns",
                        { { { "interface", "Ethernet1" },
                            { "by", "root" },
                            { "whenMs", 1'700'000'000'123 },
                            { "withDelay", true },
                            { "sent", 3 },
                            { "failed", 0 },
                            { "heldMs", 501 },
                            { "ending", "down" } },
                          { { "interface", "Ethernet2" },
                            { "by", "uid 1000" },
                            { "whenMs", 1'700'000'001'000 },
                            { "withDelay", false },
                            { "failed", 1 },
                            { "failReason", "Network is down" },
                            { "unflushedBytes", 100 },
                            { "ending", "aborted" },
                            { "why", "enabled by root" } } } } };
   EXPECT_EQ( historyText( answer ),
              "WHEN                      INTERFACE  BY        SENT  FAILED               HELD    "
              "ENDING\n"
              "2023-11-14T22:13:20.123Z  Ethernet1  root      3     0                    501 ms  "
              "down\n"
              "2023-11-14T22:13:21.000Z  Ethernet2  uid 1000  0     1 (Network is down)  -       "
              "aborted, unflushed 100 (enabled by root)\n" );
}

TEST( ReportTextTest, MessagesTellWhoseTheyAre ) {
   auto const message = []( char const * agent, char const * lifetime, bool inForce ) {
      return Json{ { "agent", agent },
                   { "interface", "Ethernet1" },
                   { "frames", { "0011", "22" } },
                   { "lifetime", lifetime },
                   { "inForce", inForce } };
   };
   EXPECT_EQ( messagesText(
                 { { "messages",
                     { message( "lldp", "configuration", true ), message( "radv", "kept", false ),
                       message( "ospf", "connection", true ) } } } ),
              "AGENT  INTERFACE  FRAMES  BYTES  FROM\n"
              "lldp   Ethernet1  2       3      configuration\n"
              "radv   Ethernet1  2       3      a client, kept, not in force\n"
              "ospf   Ethernet1  2       3      a client, while it is connected\n" );
   EXPECT_EQ(
      tooLongText( { { "tooLong", { { { "frame", 2 }, { "bytes", 9 }, { "limit", 8 } } } } } ),
      "frame 2 has 9 bytes, and the device takes 8: it will not be sent\n" );
}

TEST( ReportTextTest, AnInterfaceInAFewWords ) {
   Json interface {
      { "link", "up" }, { "ready", true },
         { "frames", { { { "agent", "lldp" }, { "count", 2 } } } }, {
         "sent", 4
      }
   };
   EXPECT_EQ( interfaceText( interface ), "up, ready, frames: lldp 2, sent 4" );
   interface[ "delayed" ] = true;
   interface[ "remainingMs" ] = 77;
   EXPECT_EQ( interfaceText( interface ), "up, ready, held, frames: lldp 2, sent 4" );
   EXPECT_EQ( interfaceText( { { "link", "down" },
                               { "notReady", "no device" },
                               { "shuttingDown", true },
                               { "failed", 1 },
                               { "lastError", "Network is down" } } ),
              "down, not ready: no device, shutting down, frames: none, sent 0, failed 1 (Network "
              "is down)" );
}

TEST( ReportTextTest, ColoursTakeNoRoomInATable ) {
   Json const interfaces{ { { "name", "a" }, { "ready", true } },
                          { { "name", "b" }, { "ready", false }, { "notReady", "no device" } } };
   auto plain = interfacesText( interfaces, true );
   for ( auto const * code : { "\x1b[32m", "\x1b[31m", "\x1b[33m", "\x1b[0m" } ) {
      for ( std::size_t at = 0; ( at = plain.find( code ) ) != std::string::npos; ) {
         plain.erase( at, std::string( code ).size() );
      }
   }
   EXPECT_NE( interfacesText( interfaces, true ), plain );
   EXPECT_EQ( interfacesText( interfaces ), plain );
   EXPECT_EQ( coloured( "x", Colour::red, false ), "x" );
   EXPECT_EQ( coloured( "x", Colour::red, true ), "\x1b[31mx\x1b[0m" );
}

} // namespace
} // namespace Valenctl
