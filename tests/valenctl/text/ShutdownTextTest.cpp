#include "valenctl/text/ShutdownText.h"

#include <gtest/gtest.h>

namespace Valenctl {
namespace {

class ShutdownTextTest : public ::testing::Test {
 protected:
   std::string step( char const * name, Json const & delay = nullptr ) const {
      return stepText( { { "step", name }, { "delayMs", delay }, { "shutdown", shutdown } } );
   }
   std::string ended( char const * ending, Json const & why ) {
      shutdown[ "ending" ] = ending;
      shutdown[ "why" ] = why;
      return step( "ended" );
   }

   Json shutdown{ { "interface", "Ethernet1" },
                  { "sent", 3 },
                  { "failed", 0 },
                  { "heldMs", 501 },
                  { "withDelay", true } };
};

TEST_F( ShutdownTextTest, EachStepIsALine ) {
   EXPECT_EQ( step( "sent" ), "Ethernet1: 3 frames sent" );
   EXPECT_EQ( step( "delayed", 500 ), "Ethernet1: held for 500 ms" );
   EXPECT_EQ( ended( "down", nullptr ), "Ethernet1: link down after 501 ms" );
}

TEST_F( ShutdownTextTest, EachEndingHasItsText ) {
   EXPECT_EQ( ended( "already-down", nullptr ), "Ethernet1: already down; no frames sent" );
   EXPECT_EQ( ended( "aborted", "enabled after 120 ms" ),
              "Ethernet1: shutdown aborted; link stays up (enabled after 120 ms)" );
   EXPECT_EQ( ended( "no-device", "no device \"et1\"" ),
              "Ethernet1: device not present: no device \"et1\"" );
   EXPECT_EQ( ended( "failed", "Operation not permitted" ),
              "Ethernet1: cannot set link down: Operation not permitted" );
   EXPECT_EQ( ended( "expired", "link set up since valend stopped" ),
              "Ethernet1: shutdown expired; link left unchanged (link set up since valend "
              "stopped)" );
   shutdown[ "withDelay" ] = false;
   EXPECT_EQ( ended( "down", nullptr ), "Ethernet1: link down without delay" );
}

TEST_F( ShutdownTextTest, BytesLeftInTheSocketAreReported ) {
   shutdown[ "unflushedBytes" ] = 1500;
   EXPECT_EQ( ended( "down", "sending timed out" ),
              "Ethernet1: link down after 501 ms; 1500 bytes of frames not sent (sending timed "
              "out)" );
}

TEST_F( ShutdownTextTest, FramesThatTheKernelRejectedAreReportedWithTheReason ) {
   shutdown[ "sent" ] = 1;
   shutdown[ "failed" ] = 2;
   shutdown[ "failReason" ] = "Message too long";
   EXPECT_EQ( step( "sent" ), "Ethernet1: 1 frame sent, 2 failed (Message too long)" );
}

TEST_F( ShutdownTextTest, ALinkThatTheKernelDoesNotSetDownHasItsText ) {
   shutdown[ "why" ] = "cannot set down et1: Device or resource busy";
   EXPECT_EQ( step( "retrying" ), "Ethernet1: cannot set link down: cannot set down et1: Device or "
                                  "resource busy; valend goes on trying" );
}

TEST_F( ShutdownTextTest, AShutdownSucceedsWhenTheLinkIsDown ) {
   auto const succeeds = []( char const * step, char const * ending ) {
      return stepSucceeded( { { "step", step }, { "shutdown", { { "ending", ending } } } } );
   };
   EXPECT_TRUE( succeeds( "sent", "running" ) );
   EXPECT_TRUE( succeeds( "delayed", "running" ) );
   EXPECT_TRUE( succeeds( "ended", "down" ) );
   EXPECT_TRUE( succeeds( "ended", "already-down" ) );
   EXPECT_FALSE( succeeds( "ended", "aborted" ) );
   EXPECT_FALSE( succeeds( "ended", "no-device" ) );
   EXPECT_FALSE( succeeds( "ended", "failed" ) );
   EXPECT_FALSE( succeeds( "retrying", "running" ) );
   EXPECT_FALSE( succeeds( "ended", "expired" ) );
}

TEST_F( ShutdownTextTest, EachResultOfEnablingHasItsText ) {
   auto const text = []( char const * result, Json const & message = nullptr ) {
      return enableText(
         { { "interface", "Ethernet1" }, { "result", result }, { "message", message } } );
   };
   EXPECT_EQ( text( "up" ), "Ethernet1: link up" );
   EXPECT_EQ( text( "already-up" ), "Ethernet1: already up" );
   EXPECT_EQ( text( "aborted" ), "Ethernet1: shutdown aborted; link stays up" );
   EXPECT_EQ( text( "failed", "no device" ), "Ethernet1: no device" );
}

TEST_F( ShutdownTextTest, HistoryHasALineForEachShutdown ) {
   Json const answer{ { "shutdowns",
                        { { { "interface", "Ethernet1" },
                            { "by", "root" },
                            { "login", "alice" },
                            { "reason", "new optics" },
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
              "WHEN                      INTERFACE  BY                  SENT  FAILED               "
              "HELD    RESULT                                         REASON\n"
              "2023-11-14T22:13:20.123Z  Ethernet1  root (login alice)  3     0                    "
              "501 ms  down                                           new optics\n"
              "2023-11-14T22:13:21.000Z  Ethernet2  uid 1000            0     1 (Network is down)  "
              "-       aborted, 100 bytes not sent (enabled by root)  -\n" );
}

TEST_F( ShutdownTextTest, ShutdownsOfSeveralHostsHaveTheirHosts ) {
   shutdown[ "host" ] = "rtr1";
   EXPECT_EQ( step( "sent" ), "rtr1 Ethernet1: 3 frames sent" );
   EXPECT_EQ(
      enableText( { { "host", "rtr1" }, { "interface", "Ethernet1" }, { "result", "up" } } ),
      "rtr1 Ethernet1: link up" );
   auto const text = historyText( { { "shutdowns", { shutdown } } } );
   EXPECT_TRUE( text.starts_with( "HOST  WHEN " ) ) << text;
   EXPECT_NE( text.find( "\nrtr1  " ), std::string::npos ) << text;
}

TEST_F( ShutdownTextTest, RepeatsHaveTheirCountAndTheLastTime ) {
   Json const answer{ { "shutdowns",
                        { { { "interface", "Ethernet1" },
                            { "by", "outside valend" },
                            { "whenMs", 1'700'000'000'123 },
                            { "ending", "went-down" },
                            { "why", "link set down outside valend" },
                            { "count", 12 },
                            { "untilMs", 1'700'000'001'000 } } } } };
   EXPECT_NE( historyText( answer ).find( "  went-down, 12 times until 2023-11-14T22:13:21.000Z "
                                          "(link set down outside valend)  " ),
              std::string::npos )
      << historyText( answer );
}

TEST_F( ShutdownTextTest, WhatBecameOfTheSpeakersIsSaidAtTheEnd ) {
   auto const speaker = []( char const * protocol, int heldBack, bool greeted ) {
      return Json{ { "protocol", protocol },
                   { "speaker", "" },
                   { "heldBack", heldBack },
                   { "greeted", greeted } };
   };
   shutdown[ "muted" ] = { speaker( "lldp", 0, false ), speaker( "vrrp", 7, false ),
                           speaker( "vrrp", 5, false ) };
   EXPECT_EQ( ended( "down", nullptr ),
              "Ethernet1: link down after 501 ms; muted lldp, vrrp (12 frames held back)" );
   EXPECT_EQ( step( "sent" ), "Ethernet1: 3 frames sent" );
   shutdown[ "muted" ] = { speaker( "lldp", 0, true ), speaker( "bfd", 0, false ) };
   EXPECT_EQ( ended( "aborted", "enabled after 120 ms" ),
              "Ethernet1: shutdown aborted; link stays up; muted lldp, bfd, greeted lldp (enabled "
              "after 120 ms)" );
   shutdown[ "whenMs" ] = 0;
   EXPECT_NE( historyText( { { "shutdowns", { shutdown } } } )
                 .find( "aborted, muted lldp, bfd, greeted lldp (enabled after 120 ms)" ),
              std::string::npos );
   shutdown[ "muted" ] = Json::array();
   shutdown[ "notMuted" ] = "its filter is not attached yet";
   EXPECT_EQ( ended( "down", nullptr ),
              "Ethernet1: link down after 501 ms; not muted: its filter is not attached yet" );
}

} // namespace
} // namespace Valenctl
