#include "egress/Mutes.h"
#include "tests/derivation/Frames.h"

#include <cstring>

namespace Derivation::Test::VrrpCases {
namespace {

std::string const addresses4 = hex( "c00002fe c00002fd" );
std::string const addresses6 = hex( "fe80 .... .... .. ...07 20010db8 .... .... ...07" );
std::string const secret = "secret" + hex( ".." );
std::string const noSecret( 8, '\0' );

Ip over4( std::string const & message ) {
   return { .source = "c0000201", .destination = "e0000012", .protocol = 112, .payload = message };
}

Ip over6( std::string const & message ) {
   return { .source = "fe80 .... .... .. ...01",
            .destination = "ff02 .... .... .... .12",
            .protocol = 112,
            .payload = message };
}

std::string version2( std::string const & head, std::string const & rest ) {
   return ipv4( over4( summed( hex( head ) + u16( 0 ) + rest, 6 ) ) );
}

// The checksum of version 3 has a pseudo header.
Ip complete( Ip ip ) {
   ip.payload = summed( ip.payload, 6, pseudoHeader( ip ) );
   return ip;
}

std::string version3( std::string const & head, std::string const & addresses ) {
   return ipv4( complete( over4( hex( head ) + u16( 0 ) + addresses ) ) );
}

std::string version3Over6( std::string const & head, std::string const & addresses ) {
   return ipv6( complete( over6( hex( head ) + u16( 0 ) + addresses ) ) );
}

std::string const hello2 = version2( "2107 6402 0003", addresses4 + noSecret );
std::string const helloSecret2 = version2( "2107 6402 0103", addresses4 + secret );
std::string const hello3 = version3( "3107 6402 001d", addresses4 );
std::string const hello3Over6 = version3Over6( "3109 ff02 0064", addresses6 );
Sample const plain2( "vrrp2", hello2 );
Sample const withPassword2( "vrrp2 with a password", helloSecret2 );
Sample const plain3( "vrrp3 over IPv4", hello3 );
Sample const over6_( "vrrp3 over IPv6", hello3Over6 );

struct Case {
   std::string hello, goodbye, speaker, change;
   std::chrono::milliseconds holdTime;
   std::size_t priorityAt;
};

TEST( VrrpTest, ThePriorityBecomes0 ) {
   using std::chrono::milliseconds;
   for ( auto const & [ hello, goodbye, speaker, change, holdTime, priorityAt ] : {
            Case{ hello2, version2( "2107 0002 0003", addresses4 + noSecret ),
                  "virtual router 7 (IPv4)", "priority 100 -> 0", milliseconds( 12'000 ), 36 },
            Case{ helloSecret2, version2( "2107 0002 0103", addresses4 + secret ),
                  "virtual router 7 (IPv4)", "priority 100 -> 0", milliseconds( 12'000 ), 36 },
            Case{ hello3, version3( "3107 0002 001d", addresses4 ), "virtual router 7 (IPv4)",
                  "priority 100 -> 0", milliseconds( 1160 ), 36 },
            Case{ hello3Over6, version3Over6( "3109 0002 0064", addresses6 ),
                  "virtual router 9 (IPv6)", "priority 255 -> 0", milliseconds( 4000 ), 56 },
         } ) {
      auto const heard = heardOf( hello );
      EXPECT_EQ( heard.protocol, "vrrp" );
      EXPECT_EQ( heard.speaker, speaker );
      EXPECT_EQ( heard.says + " -> 0", change );
      EXPECT_EQ( heard.change, change );
      EXPECT_EQ( heard.holdTime, holdTime );
      EXPECT_EQ( heard.greeting, hello );
      EXPECT_EQ( heard.goodbye, goodbye );
      EXPECT_EQ( heard.part, "" );
      EXPECT_EQ( heard.replaced,
                 ( std::vector< Replaced >{ { priorityAt, 1, 1 }, { priorityAt + 4, 2, 2 } } ) );
      EXPECT_TRUE( heardOf( goodbye ).leaves );
      EXPECT_EQ( heardOf( goodbye ).says, "priority 0" );
   }
}

TEST( VrrpTest, OverIpv4ThePseudoHeaderMayBeLeftOut ) {
   auto const without = []( std::string const & head ) {
      return ipv4( over4( summed( hex( head ) + u16( 0 ) + addresses4, 6 ) ) );
   };
   EXPECT_EQ( heardOf( without( "3107 6402 001d" ) ).goodbye, without( "3107 0002 001d" ) );
   EXPECT_EQ( refusalOf( ipv6( over6( summed( hex( "3107 6402 001d .." ) + addresses6, 6 ) ) ) ),
              "vrrp: the checksum is wrong" );
}

TEST( VrrpTest, EachNeighborThatIsAddressedGetsAPart ) {
   auto ip = over4( hex( "3107 6402 001d .." ) + addresses4 );
   ip.destination = "c0000202";
   EXPECT_EQ( heardOf( ipv4( complete( ip ) ) ).part, "for 192.0.2.2" );
   ip = over6( hex( "3107 6402 001d .." ) + addresses6 );
   ip.destination = "fe80 .... .... .. ...02";
   EXPECT_EQ( heardOf( ipv6( complete( ip ) ) ).part, "for fe80::2" );
}

TEST( VrrpTest, OtherAuthenticationHasNoGoodbye ) {
   auto const heard =
      heardOf( version2( "2107 6401 0201", hex( "c00002fe" ) + noSecret + "more" ) );
   EXPECT_EQ( heard.whyNot, "authenticated with type 2" );
   EXPECT_EQ( heard.goodbye, "" );
   EXPECT_EQ( heard.change, "" );
   auto const goodbye = heardOf( version2( "2107 0001 0201", hex( "c00002fe" ) + noSecret ) );
   EXPECT_TRUE( goodbye.leaves );
   EXPECT_EQ( goodbye.whyNot, "" );
}

TEST( VrrpTest, WhatIsInAnAuthenticationHeaderHasNoGoodbye ) {
   auto const inside = []( std::string const & protocol, std::string const & priority ) {
      auto ip = over4(
         hex( protocol ) + hex( "05 .. 00000001 00000005" ) + std::string( 16, 'h' ) +
         summed( hex( "2107" ) + hex( priority ) + hex( "01 0201 .. c00002fe" ) + noSecret, 6 ) );
      ip.protocol = 51;
      return ipv4( ip );
   };
   auto const heard = heardOf( inside( "70", "64" ) );
   EXPECT_EQ( heard.protocol, "vrrp" );
   EXPECT_EQ( heard.speaker, "virtual router 7 (IPv4)" );
   EXPECT_EQ( heard.whyNot, "in an authentication header" );
   EXPECT_EQ( heard.goodbye, "" );
   EXPECT_FALSE( heard.leaves );
   EXPECT_TRUE( heardOf( inside( "70", "00" ) ).leaves );
   // The filter takes it for a frame of this virtual router as well.
   auto const speaker = Egress::speakerOf( inside( "70", "64" ), 1, 2 );
   auto const other = Egress::speakerOf( hello2, 1, 2 );
   ASSERT_TRUE( speaker && other );
   EXPECT_EQ( std::memcmp( &*speaker, &*other, sizeof *speaker ), 0 );
   EXPECT_EQ( refusalOf( inside( "11", "64" ) ), "nothing" );
   auto cut = inside( "70", "64" ).substr( 0, 34 );
   EXPECT_EQ(
      refusalOf( patched( cut, 14, summed( patched( cut, 16, u16( 20 ) ).substr( 14 ), 10 ) ) ),
      "vrrp: it ends too early" );
}

TEST( VrrpTest, WhatReceiversDropIsRefused ) {
   std::string const value = "vrrp: a field has a value that is not allowed";
   std::string const length = "vrrp: a length is wrong", cutOff = "vrrp: it ends too early";
   std::string const version = "vrrp: the version is unknown";
   std::string const checksum = "vrrp: the checksum is wrong";
   auto far4 = over4( summed( hex( "2107 6402 0003 .." ) + addresses4 + noSecret, 6 ) );
   far4.hopLimit = 1;
   auto far6 = complete( over6( hex( "3109 ff02 0064 .." ) + addresses6 ) );
   far6.hopLimit = 64;
   struct Refusal {
      std::string frame, refusal;
   };
   for ( auto const & [ frame, refusal ] : {
            Refusal{ patched( hello2, 36, "x" ), checksum },
            Refusal{ patched( hello3, 36, "x" ), checksum },
            Refusal{ patched( hello3Over6, 56, "x" ), checksum },
            Refusal{ ipv4( far4 ), "vrrp: the hop limit is not 255" },
            Refusal{ ipv6( far6 ), "vrrp: the hop limit is not 255" },
            Refusal{ version2( "2107 6401 0003", addresses4 + noSecret ), length },
            Refusal{ version2( "2107 6403 0003", addresses4 ), cutOff },
            Refusal{ version2( "2107 6402 0003", addresses4 ), cutOff },
            Refusal{ version3( "3107 6401 001d", addresses4 ), length },
            Refusal{ version3( "3107 6403 001d", addresses4 ), cutOff },
            Refusal{ version3Over6( "3107 6401 001d", addresses6 ), length },
            Refusal{ version3( "4107 6402 001d", addresses4 ), version },
            Refusal{ version3Over6( "2107 6402 001d", addresses6 ), version },
            Refusal{ version2( "2207 6402 0003", addresses4 + noSecret ), value },
            Refusal{ version2( "2100 6402 0003", addresses4 + noSecret ), value },
            Refusal{ version2( "2107 6402 0000", addresses4 + noSecret ), value },
            Refusal{ version3( "3107 6402 f000", addresses4 ), value },
         } ) {
      EXPECT_EQ( refusalOf( frame ), refusal );
   }
}

} // namespace
} // namespace Derivation::Test::VrrpCases
