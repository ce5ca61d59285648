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
   auto authenticated = []( char const * length, char const * typeAndSize, std::size_t bytes ) {
      return eigrpHello( "0002" + std::string( length ) + typeAndSize +
                         "00000001 00000000 00000000 00000000" + std::string( 2 * bytes, 'a' ) +
                         eigrpValues );
   };
   EXPECT_EQ( whyNot( authenticated( "0028", "0002 0010", 16 ) ), "authenticated with MD5" );
   EXPECT_EQ( whyNot( authenticated( "0038", "0003 0020", 32 ) ),
              "authenticated with HMAC-SHA-256" );
   EXPECT_EQ( whyNot( authenticated( "0020", "0009 0008", 8 ) ),
              "authenticated with an unknown algorithm" );
   EXPECT_EQ( refusalOf( authenticated( "0028", "0002 0011", 16 ) ), "eigrp: a length is wrong" );
   EXPECT_EQ( refusalOf( authenticated( "0028", "0002 000f", 16 ) ), "eigrp: a length is wrong" );
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

TEST( EigrpTest, EachTlvHasItsFormat ) {
   auto with = []( std::string const & tlv ) {
      return refusalOf( eigrpHello( eigrpValues + tlv ) );
   };
   auto const badLength = "eigrp: a length is wrong",
              missing = "eigrp: a TLV is missing, or in the wrong place";
   EXPECT_EQ( with( "0004 0007 0f0002" ), badLength );
   EXPECT_EQ( with( "0005 0008 00000001" ), "heard" );
   EXPECT_EQ( with( "0005 0006 0001" ), badLength );
   EXPECT_EQ( with( "0006 0006 0001" ), "heard" );
   EXPECT_EQ( with( "0006 0005 00" ), badLength );
   EXPECT_EQ( with( "0008 0008 0000 0000" ), "heard" );
   EXPECT_EQ( with( "0008 000c 0000 0004 0000 0001" ), "heard" );
   EXPECT_EQ( with( "0008 0008 0f09 fdff" ), badLength );
   EXPECT_EQ( with( "0008 000a 0000 0000 0001" ), badLength );
   EXPECT_EQ( with( "0008 0009 0000 0001 00" ), badLength );
   EXPECT_EQ( with( "0009 0005 00" ), "heard" ) << "unknown";
   EXPECT_EQ( with( "0102 0008 00000000" ), missing ) << "a route";
   EXPECT_EQ( with( "0401 0004" ), missing ) << "a route";
   EXPECT_EQ( with( "00f1 0004" ), missing ) << "a route of a topology";
   EXPECT_EQ( with( "00f3 0004" ), missing ) << "a route of a topology";
   EXPECT_EQ( with( "00ff 0004" ), missing ) << "a route of a topology";
   EXPECT_EQ( with( "00ef 0004" ), "heard" );
   for ( std::string const type : { "0003", "0007" } ) {
      EXPECT_EQ( with( type + "0009 04 c0000202" ), "heard" );
      EXPECT_EQ( with( type + "000e 04 c0000202 04 c0000203" ), "heard" );
      EXPECT_EQ( with( type + "000d 04 c0000202 c0000203" ), "heard" ) << "one length for all";
      EXPECT_EQ( with( type + "0005 04" ), "eigrp: it ends too early" );
      EXPECT_EQ( with( type + "0008 03 c00002" ), badLength );
      EXPECT_EQ( with( type + "000e 04 c0000202 05 c0000203" ), badLength );
      EXPECT_EQ( with( type + "000c 04 c0000202 04 c000" ), "eigrp: it ends too early" );
   }
   EXPECT_EQ( refusalOf( ipv6( eigrpWay6, 88,
                               eigrpPacket( "0003 0015 10 fe800000000000000000000000000002" ) ) ),
              "heard" );
   EXPECT_EQ( refusalOf( ipv6( eigrpWay6, 88, eigrpPacket( "0003 0009 04 c0000202" ) ) ),
              badLength );
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
