#include "tests/derivation/Packets.h"

namespace Derivation::Test {
namespace {

using std::chrono::seconds;

Way const eigrpWay{ "01005e00000a", "c0000201", "e000000a" };
Way const eigrpWay6{ "33330000000a", "fe800000000000000000000000000001",
                     "ff02000000000000000000000000000a" };

std::string const eigrpValues = "0001 000c 010001000000 000f";
std::string const eigrpUnused = "0001 000c ffffffffff00 000f";
std::string const eigrpVersions = "0004 0008 0f000200";

std::string eigrpPacket( std::string const & tlvs, std::string const & head = "02 05",
                         std::string const & acknowledged = "00000000" ) {
   return summed( hex( head + "0000 00000000 00000000" + acknowledged + "0000 0064" + tlvs ), 2 );
}
std::string eigrpHello( std::string const & tlvs ) {
   return ipv4( eigrpWay, 88, eigrpPacket( tlvs ) );
}

Cases eigrpCases() {
   auto const says = "K values 1,0,1,0,0", change = "K values 1,0,1,0,0 -> 255";
   auto const part = "autonomous system 100";
   return {
      { "IPv4", eigrpHello( eigrpValues + eigrpVersions ),
        eigrpHello( eigrpUnused + eigrpVersions ), "eigrp", "router 192.0.2.1", says, change,
        seconds( 15 ), part },
      { "IPv6", ipv6( eigrpWay6, 88, eigrpPacket( eigrpVersions + eigrpValues ) ),
        ipv6( eigrpWay6, 88, eigrpPacket( eigrpVersions + eigrpUnused ) ), "eigrp",
        "router fe80::1", says, change, seconds( 15 ), part },
   };
}

Cases const eigrpAll = registered( eigrpCases() );

TEST( EigrpTest, TheGoodbyeIsDerivedFromEachFrame ) {
   expectCases( eigrpAll );
}

TEST( EigrpTest, K6IsKept ) {
   auto const heard = heardOf( eigrpHello( "0001 000c 000000000001 0078" ) );
   EXPECT_EQ( heard.goodbye, eigrpHello( "0001 000c ffffffffff01 0078" ) );
   EXPECT_EQ( heard.holdTime, seconds( 120 ) );
}

TEST( EigrpTest, HellosToOneNeighborStandSideBySide ) {
   EXPECT_EQ(
      heardOf( ipv4( { "020000000002", "c0000201", "c0000202" }, 88, eigrpPacket( eigrpValues ) ) )
         .part,
      "autonomous system 100 to 192.0.2.2" );
}

TEST( EigrpTest, AnAuthenticatedHelloHasNoGoodbye ) {
   auto authenticated = []( char const * type ) {
      return eigrpHello( "0002 0018 " + std::string( type ) +
                         "0010 00000001 00000000 00000000 00000000" + eigrpValues );
   };
   EXPECT_EQ( whyNot( authenticated( "0002" ) ), "authenticated with MD5" );
   EXPECT_EQ( whyNot( authenticated( "0003" ) ), "authenticated with HMAC-SHA-256" );
   EXPECT_EQ( whyNot( authenticated( "0009" ) ), "authenticated with an unknown algorithm" );
   EXPECT_EQ( refusalOf( eigrpHello( "0002 0005 00" + eigrpValues ) ), "eigrp: it ends too early" );
}

TEST( EigrpTest, WithoutKValuesThereIsNoGoodbye ) {
   EXPECT_EQ( whyNot( eigrpHello( eigrpVersions ) ), "without K values" );
   EXPECT_EQ( heardOf( eigrpHello( eigrpVersions ) ).holdTime, seconds( 15 ) );
}

TEST( EigrpTest, OtherPacketsAreNothing ) {
   for ( auto const * const opcode : { "01", "03", "04", "0a", "0b" } ) {
      EXPECT_EQ( refusalOf( ipv4( eigrpWay, 88, eigrpPacket( "", std::string( "02" ) + opcode ) ) ),
                 "nothing" );
   }
   // An acknowledgment is a Hello with a number.
   EXPECT_EQ( refusalOf( ipv4( eigrpWay, 88, eigrpPacket( "", "02 05", "00000007" ) ) ),
              "nothing" );
}

TEST( EigrpTest, InvalidHellosAreRefused ) {
   EXPECT_EQ( refusalOf( ipv4( eigrpWay, 88, eigrpPacket( eigrpValues, "01 05" ) ) ),
              "eigrp: the version is unknown" );
   EXPECT_EQ( refusalOf( eigrpHello( "0001 000b 010001000000 00" ) ), "eigrp: a length is wrong" );
   EXPECT_EQ( refusalOf( eigrpHello( "0001 0003" ) ), "eigrp: a length is wrong" );
   EXPECT_EQ( refusalOf( eigrpHello( "0004 0009 0f000200" ) ), "eigrp: a TLV goes beyond the end" );
   EXPECT_EQ( refusalOf( eigrpHello( eigrpValues + eigrpValues ) ),
              "eigrp: a TLV is missing, or in the wrong place" );
   auto damaged = eigrpHello( eigrpValues );
   damaged.back() = 1;
   EXPECT_EQ( refusalOf( damaged ), "eigrp: the checksum is wrong" );
}

} // namespace
} // namespace Derivation::Test
