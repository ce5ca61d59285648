#include "valenctl/text/StatusText.h"

#include <gtest/gtest.h>

namespace Valenctl {
namespace {

Json interface( std::string const & name ) {
   return { { "name", name },
            { "device", "et1" },
            { "vrf", "red" },
            { "link", "up" },
            { "carrier", true },
            { "ready", true },
            { "notReady", nullptr },
            { "remainingMs", nullptr },
            { "shuttingDown", false },
            { "frames",
              { { { "agent", "lldp" }, { "count", 1 }, { "tooLong", Json::array() } },
                { { "agent", "radv" }, { "count", 2 }, { "tooLong", Json::array() } } } },
            { "sent", 6 },
            { "failed", 0 },
            { "lastError", nullptr },
            { "aborts", 1 } };
}

TEST( StatusTextTest, TheTableHasALineForEachInterface ) {
   auto held = interface( "Ethernet2" );
   held[ "remainingMs" ] = 120;
   held[ "failed" ] = 2;
   held[ "lastError" ] = "Network is down";
   auto unready = interface( "Ethernet3" );
   unready[ "link" ] = "absent";
   unready[ "ready" ] = false;
   unready[ "notReady" ] = "no device";
   unready[ "frames" ] = Json::array();
   auto dark = interface( "Ethernet4" );
   dark[ "carrier" ] = false;
   dark[ "shuttingDown" ] = true;
   EXPECT_EQ(
      statusText( { { "shutdownDelayMs", 500 },
                    { "interfaces", { interface( "Ethernet1" ), held, unready, dark } } } ),
      "shutdown delay: 500 ms\n"
      "INTERFACE  DEVICE  VRF  LINK            READY          HELD           FRAMES          "
      "SENT  FAILED               ABORTS\n"
      "Ethernet1  et1     red  up              yes            -              lldp 1, radv 2  "
      "6     0                    1\n"
      "Ethernet2  et1     red  up              yes            120 ms left    lldp 1, radv 2  "
      "6     2 (Network is down)  1\n"
      "Ethernet3  et1     red  absent          no: no device  -              -               "
      "6     0                    1\n"
      "Ethernet4  et1     red  up, no carrier  yes            shutting down  lldp 1, radv 2  "
      "6     0                    1\n" );
}

TEST( StatusTextTest, HostsAreSideBySide ) {
   auto unnoticed = interface( "Ethernet1" );
   unnoticed[ "withoutGoodbye" ] = true;
   Json const first{
      { "host", "rtr1" },
      { "stale", false },
      { "version", "0.1.0" },
      { "shutdownDelayMs", 500 },
      { "interfaces", { unnoticed } },
      { "conditions", { { { "name", "journal" }, { "text", "disk full" }, { "since", 0 } } } },
      { "rejected", { { { "key", "config:delay" }, { "why", "not a number" } } } },
      { "faults", 1 },
      { "lastFaults", { "out of luck" } } };
   Json const second{ { "host", "rtr2" },
                      { "stale", true },
                      { "state", "stale for 9 s" },
                      { "interfaces", { interface( "Ethernet1" ) } } };
   EXPECT_EQ(
      hostsText( { { "hosts", { first, second } } } ),
      "HOST  STATE          VALEND  DELAY   INTERFACES  READY  SHUTTING DOWN\n"
      "rtr1  alive          0.1.0   500 ms  1           1      0\n"
      "rtr2  stale for 9 s  -       -       1           1      0\n"
      "\n"
      "HOST  INTERFACE  DEVICE  VRF  LINK  READY  HELD  FRAMES          SENT  FAILED  ABORTS\n"
      "rtr1  Ethernet1  et1     red  up    yes    -     lldp 1, radv 2  6     0       1\n"
      "rtr2  Ethernet1  et1     red  up    yes    -     lldp 1, radv 2  6     0       1\n"
      "rtr1 Ethernet1: link set down outside valend; no goodbye frames sent\n"
      "rtr1: config:delay is rejected: not a number\n"
      "HOST  CONDITIONS  SINCE                     DESCRIPTION\n"
      "rtr1  journal     1970-01-01T00:00:00.000Z  disk full\n"
      "rtr1: 1 fault, last: out of luck\n" );
   EXPECT_NE( hostsText( { { "hosts", Json::array() } } ).find( "no interfaces" ),
              std::string::npos );
}

TEST( StatusTextTest, WhatNeedsAttentionFollowsTheTable ) {
   auto one = interface( "Ethernet1" );
   one[ "frames" ][ 0 ][ "tooLong" ] = { { { "frame", 2 }, { "bytes", 1600 }, { "limit", 1514 } } };
   auto two = interface( "Ethernet2" );
   two[ "withoutGoodbye" ] = true;
   auto const text = statusText( { { "shutdownDelayMs", nullptr },
                                   { "interfaces", { one, two } },
                                   { "conditions",
                                     { { { "name", "journal" },
                                         { "text", "/var/lib/valen: Permission denied" },
                                         { "since", 1'700'000'000'123 } },
                                       { { "name", "vrf red" },
                                         { "text", "no such namespace" },
                                         { "since", 1'700'000'001'000 } } } },
                                   { "faults", 3 },
                                   { "lastFaults", { "fault in A: x", "fault in B: y" } } } );
   EXPECT_EQ( text.rfind( "shutdown delay disabled (shutdown-delay-ms is not set)\n", 0 ), 0u );
   EXPECT_NE( text.find( "Ethernet1: frame 2 of lldp (1600 bytes) exceeds the limit of et1 (1514) "
                         "and will not be sent\n"
                         "Ethernet2: link set down outside valend; no goodbye frames sent\n"
                         "CONDITIONS  SINCE                     DESCRIPTION\n"
                         "journal     2023-11-14T22:13:20.123Z  /var/lib/valen: Permission denied\n"
                         "vrf red     2023-11-14T22:13:21.000Z  no such namespace\n"
                         "3 faults, last: fault in B: y\n" ),
              std::string::npos );
}

TEST( StatusTextTest, WithoutConditionsThereIsNoHeadingForThem ) {
   for ( auto const & conditions : { Json::array(), Json() } ) {
      EXPECT_EQ( statusText( { { "conditions", conditions } } ).find( "CONDITIONS" ),
                 std::string::npos );
   }
}

TEST( StatusTextTest, AnUnexpectedAnswerDoesNoHarm ) {
   EXPECT_EQ( statusText( Json::object() ),
              "shutdown delay disabled (shutdown-delay-ms is not set)\n"
              "INTERFACE  DEVICE  VRF  LINK  READY  HELD  FRAMES  SENT  FAILED  ABORTS\n" );
   EXPECT_NE( statusText( { { "interfaces", { { { "name", 7 } } } } } ).find( "no: " ),
              std::string::npos );
}

TEST( StatusTextTest, ColorsMarkReadinessAndDelays ) {
   auto held = interface( "a" );
   held[ "remainingMs" ] = 120;
   auto const unready = Json{ { "name", "b" }, { "ready", false }, { "notReady", "no device" } };
   Json const interfaces{ held, unready };
   auto const colored = interfacesText( interfaces, Palette::colored() );
   EXPECT_NE( colored.find( "\x1b[32myes\x1b[0m" ), std::string::npos );
   EXPECT_NE( colored.find( "\x1b[31mno: no device\x1b[0m" ), std::string::npos );
   EXPECT_NE( colored.find( "\x1b[33m120 ms left\x1b[0m" ), std::string::npos );
   auto plain = colored;
   for ( auto const * code : { "\x1b[32m", "\x1b[31m", "\x1b[33m", "\x1b[0m" } ) {
      for ( std::size_t at = 0; ( at = plain.find( code ) ) != std::string::npos; ) {
         plain.erase( at, std::string( code ).size() );
      }
   }
   EXPECT_EQ( interfacesText( interfaces ), plain );
}

TEST( StatusTextTest, AnInterfaceInAFewWords ) {
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
   EXPECT_EQ( interfaceText( { { "link", "up" },
                               { "ready", true },
                               { "shuttingDown", true },
                               { "retrying", "no memory" } } ),
              "up, ready, shutting down (retrying: no memory), frames: none, sent 0" );
}

TEST( StatusTextTest, LearnedGoodbyesAreListedByProtocol ) {
   auto one = interface( "Ethernet1" );
   one[ "frames" ] = { { { "agent", "learned-lldp" }, { "count", 1 } },
                       { { "agent", "mine" }, { "count", 2 } },
                       { { "agent", "learned-vrrp" }, { "count", 3 } } };
   EXPECT_EQ( interfaceText( one ),
              "up, ready, frames: lldp 1 (learned), mine 2, vrrp 3 (learned), sent 6" );
}

} // namespace
} // namespace Valenctl
