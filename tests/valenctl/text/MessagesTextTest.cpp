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

} // namespace
} // namespace Valenctl
