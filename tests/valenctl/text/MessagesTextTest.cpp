#include "valenctl/text/MessagesText.h"

#include <gtest/gtest.h>

namespace Valenctl {
namespace {

TEST( MessagesTextTest, EachAgentAndInterfaceIsALineWithTheSourceOfItsFrames ) {
   auto const message = []( char const * agent, char const * lifetime, bool active ) {
      return Json{ { "agent", agent },
                   { "interface", "Ethernet1" },
                   { "frames", { "0011", "22" } },
                   { "lifetime", lifetime },
                   { "inForce", active } };
   };
   EXPECT_EQ(
      messagesText( { { "messages",
                        { message( "lldp", "configuration", true ),
                          message( "radv", "kept", false ), message( "ospf", "connection", true ),
                          message( "learned-ra", "learned", true ) } } } ),
      "AGENT       INTERFACE  FRAMES  BYTES  SOURCE\n"
      "lldp        Ethernet1  2       3      configuration\n"
      "radv        Ethernet1  2       3      client (not active)\n"
      "ospf        Ethernet1  2       3      client, while connected\n"
      "learned-ra  Ethernet1  2       3      learned\n" );
}

TEST( MessagesTextTest, FramesOfTheDatabaseMayHaveAnOwner ) {
   auto const message = []( Json const & owner ) {
      return Json{ { "agent", "bgp" },       { "interface", "Ethernet1" },
                   { "frames", { "0011" } }, { "lifetime", "database" },
                   { "inForce", true },      { "owner", owner } };
   };
   EXPECT_EQ( messagesText( { { "messages", { message( nullptr ), message( "bgpd 9.1" ) } } } ),
              "AGENT  INTERFACE  FRAMES  BYTES  SOURCE\n"
              "bgp    Ethernet1  1       2      database\n"
              "bgp    Ethernet1  1       2      database, bgpd 9.1\n" );
}

TEST( MessagesTextTest, AFrameThatIsTooLongNamesItsSizeAndTheLimit ) {
   Json const frame{ { "frame", 2 }, { "bytes", 9 }, { "limit", 8 } };
   EXPECT_EQ( tooLongFrameText( frame, "bgp", "eth1" ),
              "frame 2 of bgp (9 bytes) exceeds the limit of eth1 (8) and will not be sent" );
   EXPECT_EQ( tooLongText( { { "tooLong", { frame, frame } } } ),
              "frame 2 (9 bytes) exceeds the limit of the device (8) and will not be sent\n"
              "frame 2 (9 bytes) exceeds the limit of the device (8) and will not be sent\n" );
   EXPECT_EQ( tooLongText( { { "tooLong", Json::array() } } ), "" );
}

TEST( MessagesTextTest, FramesAreCountedInBytes ) {
   auto const totals = frameTotals( { "0011", "22", 7 } );
   EXPECT_EQ( totals.frames, 3u );
   EXPECT_EQ( totals.bytes, 3u );
}

TEST( MessagesTextTest, WhatFramesSayFollowsTheTable ) {
   char const * const lldpGoodbye =
      "0180c200000e02000000000188cc02070402000000000104050565746831060200000000";
   char const * const otherFrame = "ffffffffffff02000000000188b5676f6f64627965";
   Json const learned{ { { "frame", 2 },
                         { "speaker", "virtual router 7 (IPv4)" },
                         { "change", "priority 100 -> 0" },
                         { "heardMs", 400 },
                         { "freshMs", 117'300 } } };
   Json const messages{ { { "agent", "mine" },
                          { "interface", "Ethernet1" },
                          { "frames", { otherFrame, lldpGoodbye } },
                          { "lifetime", "configuration" },
                          { "learned", Json::array() } },
                        { { "agent", "learned-vrrp" },
                          { "interface", "Ethernet2" },
                          { "frames", { otherFrame, lldpGoodbye } },
                          { "lifetime", "learned" },
                          { "learned", learned } } };
   EXPECT_EQ(
      messagesText( { { "messages", messages } } ),
      "AGENT         INTERFACE  FRAMES  BYTES  SOURCE\n"
      "mine          Ethernet1  2       57     configuration\n"
      "learned-vrrp  Ethernet2  2       57     learned\n"
      "Ethernet1: frame 2 of mine: lldp, chassis 02:00:00:00:00:01, port eth1: says ttl 0; a "
      "goodbye\n"
      "Ethernet2: frame 2 of learned-vrrp: virtual router 7 (IPv4): priority 100 -> 0; heard "
      "400 ms ago, fresh for 117 s\n" );
}

} // namespace
} // namespace Valenctl
