#include "tests/derivation/Packets.h"

namespace Derivation::Test {
namespace {

using std::chrono::seconds;

Way const ripWay{ "01005e000009", "c0000201", "e0000009" };
Way const ripWay6{ "333300000009", "fe800000000000000000000000000001",
                   "ff020000000000000000000000000009", 255 };

std::string const ripHead = "02 02 ..";

// One route: the address, the mask and the metric.
std::string ripRoute( std::string const & route, std::string const & metric ) {
   return "0002 .. " + route + " .... ..." + metric;
}
std::string ripFrame( std::string const & entries, std::string const & head = ripHead ) {
   return udp4( ripWay, "0208 0208", hex( head + entries ) );
}
std::string const ripTen = "0a...  ff...", ripTest = "c6336400 ffffff.", ripDefault = ".... ....";
std::string const ripPassword = "ffff 0002 736563726574.... .... ..";

std::string ripngRoute( std::string const & route, std::string const & metric ) {
   return "20010db8" + route + ".... .... .. 30" + metric;
}
std::string ripngFrame( std::string const & entries, std::string const & head = "02 01 ..",
                        UdpChecksum checksumIs = UdpChecksum::complete ) {
   return udp6( ripWay6, "0209 0209", hex( head + entries ), checksumIs );
}
std::string const ripngNextHop = "fe80.... .... .... .02 .. . ff";

Cases ripCases() {
   auto one = []( char const * name, std::string const & frame, std::string const & goodbye,
                  char const * routes, char const * part ) {
      auto const says = std::string( routes );
      return Case{
         name,           frame, goodbye, "rip", "router 192.0.2.1", says, says + " -> metric 16",
         seconds( 180 ), part };
   };
   return {
      one( "one route", ripFrame( ripRoute( ripTest, "01" ) ),
           ripFrame( ripRoute( ripTest, "10" ) ), "1 route", "198.51.100.0/24" ),
      one( "some of three",
           ripFrame( ripRoute( ripTest, "10" ) + ripRoute( ripTen, "0f" ) +
                     ripRoute( ripDefault, "02" ) ),
           ripFrame( ripRoute( ripTest, "10" ) + ripRoute( ripTen, "10" ) +
                     ripRoute( ripDefault, "10" ) ),
           "2 routes", "0.0.0.0/0 and 2 more, c3733385cb135fc0" ),
      one( "a password", ripFrame( ripPassword + ripRoute( ripTen, "01" ) ),
           ripFrame( ripPassword + ripRoute( ripTen, "10" ) ), "1 route", "10.0.0.0/8" ),
      one( "version 1", ripFrame( ripRoute( "0a... ....", "01" ), "02 01 .." ),
           ripFrame( ripRoute( "0a... ....", "10" ), "02 01 .." ), "1 route", "10.0.0.0" ),
      one(
         "no UDP checksum",
         udp4( ripWay, "0208 0208", hex( ripHead + ripRoute( ripTen, "01" ) ), UdpChecksum::none ),
         udp4( ripWay, "0208 0208", hex( ripHead + ripRoute( ripTen, "10" ) ), UdpChecksum::none ),
         "1 route", "10.0.0.0/8" ),
   };
}

Cases ripngCases() {
   auto const other = ripngRoute( "0001 .. ", "10" );
   return {
      { "a next hop", ripngFrame( ripngNextHop + ripngRoute( "....", "01" ) + other ),
        ripngFrame( ripngNextHop + ripngRoute( "....", "10" ) + other ), "ripng", "router fe80::1",
        "1 route", "1 route -> metric 16", seconds( 180 ),
        "2001:db8:1::/48 and 1 more, 84fc95acdffed7cc" },
   };
}

Cases const ripAll = registered( ripCases() );
Cases const ripngAll = registered( ripngCases() );

TEST( RipTest, TheGoodbyeIsDerivedFromEachFrame ) {
   expectCases( ripAll );
   expectCases( ripngAll );
}

TEST( RipTest, APartialUdpChecksumIsCompleted ) {
   auto const entries = ripRoute( ripTen, "01" );
   auto heard =
      heardOf( udp4( ripWay, "0208 0208", hex( ripHead + entries ), UdpChecksum::partial ) );
   EXPECT_EQ( heard.greeting, ripFrame( entries ) );
   EXPECT_EQ( heard.goodbye, ripFrame( ripRoute( ripTen, "10" ) ) );
   heard = heardOf( ripngFrame( ripngRoute( "....", "01" ), "02 01 ..", UdpChecksum::partial ) );
   EXPECT_EQ( heard.greeting, ripngFrame( ripngRoute( "....", "01" ) ) );
   EXPECT_EQ( heard.goodbye, ripngFrame( ripngRoute( "....", "10" ) ) );
}

// Each part of a full update has its own routes, in any order and with any metrics.
TEST( RipTest, ThePartIsTheSetOfRoutes ) {
   auto part = []( std::string const & entries ) { return heardOf( ripFrame( entries ) ).part; };
   auto const ten = ripRoute( ripTen, "01" ), test = ripRoute( ripTest, "01" );
   EXPECT_EQ( part( ten + test ), part( test + ripRoute( ripTen, "07" ) ) );
   EXPECT_NE( part( ten + test ), part( ten + ripRoute( "c6336400 ffff..", "01" ) ) );
   EXPECT_NE( part( ten + test ), part( ten ) );
   Way const toOne{ "020000000002", "c0000201", "c0000202" };
   EXPECT_EQ( heardOf( udp4( toOne, "0208 0208", hex( ripHead + ten ) ) ).part,
              "10.0.0.0/8 to 192.0.2.2" );
}

TEST( RipTest, AnAuthenticatedResponseHasNoGoodbye ) {
   auto response = []( char const * length, std::size_t bytes ) {
      return ripFrame( "ffff 0003 " + std::string( length ) + "01 10 00000007 .... ...." +
                       ripRoute( ripTen, "01" ) + "ffff 0001" + std::string( bytes, '.' ) );
   };
   EXPECT_EQ( whyNot( response( "002c", 16 ) ), "authenticated with MD5" );
   EXPECT_EQ( heardOf( response( "002c", 16 ) ).says, "1 route" );
   EXPECT_EQ( whyNot( response( "002c", 20 ) ), "authenticated with HMAC-SHA-1" );
   EXPECT_EQ( refusalOf( response( "0017", 16 ) ), "rip: a length is wrong" );
   EXPECT_EQ( refusalOf( response( "0030", 16 ) ), "rip: a field has a value that is not allowed" );
   EXPECT_EQ( refusalOf( response( "00ff", 16 ) ), "rip: it ends too early" );
}

TEST( RipTest, RequestsAreNothing ) {
   EXPECT_EQ( refusalOf( ripFrame( ripRoute( ripTen, "01" ), "01 02 .." ) ), "nothing" );
   EXPECT_EQ( refusalOf( ripngFrame( ripngRoute( "....", "01" ), "01 01 .." ) ), "nothing" );
   EXPECT_EQ( refusalOf( ripFrame( "" ) ), "nothing" );
   EXPECT_EQ( refusalOf( ripFrame( ripPassword ) ), "nothing" );
   EXPECT_EQ( refusalOf( ripngFrame( ripngNextHop ) ), "nothing" );
}

TEST( RipTest, InvalidResponsesAreRefused ) {
   auto const badValue = "rip: a field has a value that is not allowed";
   auto const ten = ripRoute( ripTen, "01" );
   EXPECT_EQ( refusalOf( ripFrame( ten, "02 03 .." ) ), "rip: the version is unknown" );
   EXPECT_EQ( refusalOf( ripFrame( ten, "02 00 .." ) ), "rip: the version is unknown" );
   EXPECT_EQ( refusalOf( ripFrame( ripRoute( ripTen, "00" ) ) ), badValue );
   EXPECT_EQ( refusalOf( ripFrame( ripRoute( ripTen, "11" ) ) ), badValue );
   EXPECT_EQ( refusalOf( ripFrame( ripRoute( "0a... ff.ff.", "01" ) ) ), badValue );
   EXPECT_EQ( refusalOf( ripFrame( ten + ripPassword ) ), badValue );
   EXPECT_EQ( refusalOf( ripFrame( ripPassword + ten, "02 01 .." ) ), badValue );
   EXPECT_EQ( refusalOf( ripFrame( "ffff 0004 .... .... .... ...." + ten ) ), badValue );
   EXPECT_EQ( refusalOf( ripFrame( "0001 .. 0a... ff... .... ...01" ) ), badValue );
   EXPECT_EQ( refusalOf( ripFrame( ten + "00" ) ), "rip: it ends too early" );
   EXPECT_EQ( refusalOf( udp4( ripWay, "c000 0208", hex( ripHead + ten ) ) ), badValue );
   auto damaged = ripFrame( ten );
   damaged.back() = 2;
   EXPECT_EQ( refusalOf( damaged ), "rip: the checksum is wrong" );
}

TEST( RipTest, InvalidResponsesOfRipngAreRefused ) {
   auto const badValue = "ripng: a field has a value that is not allowed";
   auto const one = ripngRoute( "....", "01" );
   EXPECT_EQ( refusalOf( ripngFrame( one, "02 02 .." ) ), "ripng: the version is unknown" );
   EXPECT_EQ( refusalOf( ripngFrame( ripngRoute( "....", "00" ) ) ), badValue );
   EXPECT_EQ( refusalOf( ripngFrame( ripngRoute( "....", "11" ) ) ), badValue );
   EXPECT_EQ( refusalOf( ripngFrame( "20010db8 .... .... .... .. 81 01" ) ), badValue );
   auto const message = hex( "02 01 .." + one );
   Way far = ripWay6;
   far.hopLimit = 254;
   EXPECT_EQ( refusalOf( udp6( far, "0209 0209", message ) ), "ripng: the hop limit is not 255" );
   far.destinationMac = "020000000002";
   EXPECT_EQ( refusalOf( udp6( far, "0209 0209", message ) ), "heard" );
   EXPECT_EQ( refusalOf( ripngFrame( one + "00" ) ), "ripng: it ends too early" );
   EXPECT_EQ( refusalOf( ripngFrame( one, "02 01 ..", UdpChecksum::none ) ),
              "ripng: the checksum is wrong" );
}

} // namespace
} // namespace Derivation::Test
