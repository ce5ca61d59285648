#include "valenctl/StatusText.h"

#include "valenctl/Table.h"

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

TEST( TableTest, ColumnsAreAsWideAsTheirWidestCell ) {
   Table table( { "A", "LONG", "C" } );
   table.add( { "wide cell", "x", "" } );
   table.add( { "ü", "y", "z" } );
   EXPECT_EQ( table.text(), "A          LONG  C\n"
                            "wide cell  x\n"
                            "ü          y     z\n" );
}

TEST( StatusTextTest, TheTableShowsWhatAnOperatorAsksFor ) {
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
      "shutdowns are held for 500 ms\n"
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

TEST( StatusTextTest, WhatNeedsAttentionStandsBelow ) {
   auto one = interface( "Ethernet1" );
   one[ "frames" ][ 0 ][ "tooLong" ] = { { { "frame", 2 }, { "bytes", 1600 }, { "limit", 1514 } } };
   auto two = interface( "Ethernet2" );
   two[ "withoutGoodbye" ] = true;
   auto const text =
      statusText( { { "shutdownDelayMs", nullptr },
                    { "interfaces", { one, two } },
                    { "trouble", "/var/lib/valen: Permission denied" },
                    { "vrfs",
                      { { { "name", "default" }, { "trouble", nullptr } },
                        { { "name", "red" }, { "trouble", "no such namespace" } } } },
                    { "faults", 3 },
                    { "lastFaults", { "fault in A: x", "fault in B: y" } } } );
   EXPECT_EQ( text.rfind( "the feature is off: no shutdown is held\n", 0 ), 0u );
   EXPECT_NE( text.find( "Ethernet1: frame 2 of lldp has 1600 bytes, and et1 takes 1514: it will "
                         "not be sent\n"
                         "Ethernet2: somebody else set et1 down, without goodbye\n"
                         "VRF red: no such namespace\n"
                         "a shutdown that is under way would not outlive the agent: "
                         "/var/lib/valen: Permission denied\n"
                         "3 faults; the last: fault in B: y\n" ),
              std::string::npos );
}

TEST( StatusTextTest, AnAnswerThatMakesNoSenseDoesNoHarm ) {
   EXPECT_EQ( statusText( Json::object() ),
              "the feature is off: no shutdown is held\n"
              "INTERFACE  DEVICE  VRF  LINK  READY  HELD  FRAMES  SENT  FAILED  ABORTS\n" );
   EXPECT_NE( statusText( { { "interfaces", { { { "name", 7 } } } } } ).find( "no: " ),
              std::string::npos );
}

TEST( StatusTextTest, EachStepOfAShutdownIsALine ) {
   Json shutdown{
      { "interface", "Ethernet1" }, { "sent", 3 },        { "failed", 0 }, { "heldMs", 501 },
      { "why", nullptr },           { "withDelay", true } };
   auto const step = [ & ]( char const * name, Json const & delay = nullptr ) {
      return stepText( { { "step", name }, { "delayMs", delay }, { "shutdown", shutdown } } );
   };
   EXPECT_EQ( step( "sent" ), "Ethernet1: 3 frames sent" );
   EXPECT_EQ( step( "delayed", 500 ), "Ethernet1: held for 500 ms" );
   shutdown[ "ending" ] = "down";
   EXPECT_EQ( step( "ended" ), "Ethernet1: link down, after it was held 501 ms" );
   shutdown[ "why" ] = "the library did not let go in time";
   shutdown[ "unflushedBytes" ] = 1500;
   EXPECT_EQ( step( "ended" ), "Ethernet1: link down, after it was held 501 ms, with 1500 bytes of "
                               "frames unsent in the socket (the library did not let go in time)" );
   shutdown[ "unflushedBytes" ] = 0;
   shutdown[ "why" ] = nullptr;
   shutdown[ "withDelay" ] = false;
   EXPECT_EQ( step( "ended" ), "Ethernet1: link down, without delay" );
   shutdown[ "ending" ] = "already-down";
   EXPECT_EQ( step( "ended" ), "Ethernet1: link was down already; nothing was sent" );
   shutdown[ "ending" ] = "aborted";
   shutdown[ "why" ] = "enabled by root 120 ms into the delay";
   EXPECT_EQ( step( "ended" ), "Ethernet1: shutdown called off, link stays up (enabled by root 120 "
                               "ms into the delay)" );
   shutdown[ "ending" ] = "no-device";
   shutdown[ "why" ] = "no device \"et1\"";
   EXPECT_EQ( step( "ended" ), "Ethernet1: no link to set down (no device \"et1\")" );
   shutdown[ "ending" ] = "failed";
   shutdown[ "why" ] = "Operation not permitted";
   EXPECT_EQ( step( "ended" ), "Ethernet1: link could not be set down (Operation not permitted)" );
}

TEST( StatusTextTest, FramesThatWereRefusedAreToldWithTheReason ) {
   EXPECT_EQ( stepText( { { "step", "sent" },
                          { "shutdown",
                            { { "interface", "Ethernet1" },
                              { "sent", 1 },
                              { "failed", 2 },
                              { "failReason", "Message too long" } } } } ),
              "Ethernet1: 1 frame sent, 2 not (Message too long)" );
}

TEST( StatusTextTest, TraceLinesCarryTheirDate ) {
   EXPECT_EQ( traceText( 1'700'000'000'123'456'789u, "ConfigSm", 1, "void f(): x" ),
              "2023-11-14T22:13:20.123456Z ConfigSm/1 void f(): x" );
}

} // namespace
} // namespace Valenctl
