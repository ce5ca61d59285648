#include "tests/derivation/Packets.h"

namespace Derivation::Test {
namespace {

using std::chrono::seconds;

Way const pimWay{ "01005e00000d", "c0000201", "e000000d" };
Way const pimWay6{ "33330000000d", "fe800000000000000000000000000001",
                   "ff02000000000000000000000000000d" };

// A hold time; then the priority and the generation id.
std::string const pimHold = "0001 0002 0069";
std::string const pimMore = "0013 0004 00000001 0014 0004 1a2b3c4d";

std::string pim4( std::string const & options, std::string const & head = "20 00" ) {
   return ipv4( pimWay, 103, summed( hex( head + "0000" + options ), 2 ) );
}
std::string pim6( std::string const & options ) {
   auto const packet = hex( "20 00 0000" + options );
   return ipv6( pimWay6, 103, summed( packet, 2, pseudoHeader( ipOf( pimWay6, 103, packet ) ) ) );
}

Cases pimCases() {
   auto const gone = "0001 0002 0000";
   return {
      { "IPv4", pim4( pimMore + pimHold ), pim4( pimMore + gone ), "pim", "router 192.0.2.1",
        "hold time 105", "hold time 105 -> 0", seconds( 105 ) },
      { "IPv6", pim6( pimHold + pimMore ), pim6( gone + pimMore ), "pim", "router fe80::1",
        "hold time 105", "hold time 105 -> 0", seconds( 105 ) },
      { "forever", pim4( "0001 0002 ffff" ), pim4( gone ), "pim", "router 192.0.2.1",
        "hold time 65535", "hold time 65535 -> 0", seconds( 65535 ) },
   };
}

Cases const pimAll = registered( pimCases() );

TEST( PimTest, TheGoodbyeIsDerivedFromEachFrame ) {
   expectCases( pimAll );
}

TEST( PimTest, WithoutAHoldTimeThereIsNoGoodbye ) {
   EXPECT_EQ( whyNot( pim4( pimMore ) ), "without a hold time" );
   EXPECT_EQ( heardOf( pim4( pimMore ) ).holdTime, seconds( 105 ) );
   EXPECT_EQ( heardOf( pim4( "" ) ).says, "no hold time" );
}

TEST( PimTest, HellosToOneNeighborStandSideBySide ) {
   auto const packet = summed( hex( "20 00 0000" + pimHold ), 2 );
   EXPECT_EQ( heardOf( ipv4( { "020000000002", "c0000201", "c0000202" }, 103, packet ) ).part,
              "to 192.0.2.2" );
}

TEST( PimTest, OtherMessagesAreNothing ) {
   for ( auto const * const type : { "21", "22", "23", "24", "25", "26", "27", "28" } ) {
      EXPECT_EQ( refusalOf( pim4( pimHold, std::string( type ) + "00" ) ), "nothing" );
   }
}

TEST( PimTest, EachOptionHasItsLength ) {
   auto with = []( std::string const & option ) { return refusalOf( pim4( pimHold + option ) ); };
   auto const badLength = "pim: a length is wrong";
   for ( std::string const type : { "0002", "0013", "0014", "0015" } ) {
      EXPECT_EQ( with( type + "0004 00000001" ), "heard" );
      EXPECT_EQ( with( type + "0000" ), badLength );
      EXPECT_EQ( with( type + "0003 000001" ), badLength );
      EXPECT_EQ( with( type + "0005 0000000100" ), badLength );
   }
   EXPECT_EQ( with( "0016 0000" ), "heard" );
   EXPECT_EQ( with( "0016 0001 00" ), badLength );
   EXPECT_EQ( with( "fffe 0001 00" ), "heard" ) << "unknown";
   auto const badValue = "pim: a field has a value that is not allowed";
   EXPECT_EQ( with( "0018 0000" ), "heard" );
   EXPECT_EQ( with( "0018 000c 0100 c0000202 0100 c0000203" ), "heard" );
   EXPECT_EQ( with( "0018 0012 0200 fe800000000000000000000000000002" ), "heard" );
   EXPECT_EQ( with( "0018 0005 0100 c00002" ), "pim: it ends too early" );
   EXPECT_EQ( with( "0018 0007 0100 c0000202 01" ), "pim: it ends too early" );
   EXPECT_EQ( with( "0018 0006 0101 c0000202" ), badValue );
   EXPECT_EQ( with( "0018 0006 0000 c0000202" ), badValue );
   EXPECT_EQ( with( "0018 0006 0300 c0000202" ), badValue );
}

TEST( PimTest, InvalidHellosAreRefused ) {
   EXPECT_EQ( refusalOf( pim4( pimHold, "10 00" ) ), "pim: the version is unknown" );
   EXPECT_EQ( refusalOf( pim4( "0001 0003 000069" ) ), "pim: a length is wrong" );
   EXPECT_EQ( refusalOf( pim4( "0013 0005 00000001" ) ), "pim: a TLV goes beyond the end" );
   EXPECT_EQ( refusalOf( pim4( pimHold + "00" ) ), "pim: it ends too early" );
   EXPECT_EQ( refusalOf( pim4( pimHold + pimHold ) ),
              "pim: a TLV is missing, or in the wrong place" );
   // The pseudo header is for IPv6 only.
   auto const packet = hex( "20 00 0000" + pimHold );
   EXPECT_EQ( refusalOf( ipv6( pimWay6, 103, summed( packet, 2 ) ) ),
              "pim: the checksum is wrong" );
   EXPECT_EQ( refusalOf( ipv4( pimWay, 103,
                               summed( packet, 2, pseudoHeader( ipOf( pimWay, 103, packet ) ) ) ) ),
              "pim: the checksum is wrong" );
}

} // namespace
} // namespace Derivation::Test
