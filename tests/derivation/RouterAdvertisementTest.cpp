#include "tests/derivation/Frames.h"

namespace Derivation::Test::RouterAdvertisementCases {
namespace {

std::string const linkLocal = "fe80 .... .... .. ...01", allNodes = "ff02 .... .... .... .01";
std::string const linkLayer = hex( "0101 02....01" );
std::string const prefix = hex( "0304 40c0 00015180 00003840 .... 20010db8 .... .... ...." );
std::string const route = hex( "1802 4008 00000708 20010db8 ...." );

std::string const head = hex( "8600 .. 4048" );
std::string const timers = hex( "00007530 ...." );

// With its checksum.
Ip advertisement( std::string const & lifetime, std::string const & options,
                  std::string const & first = head ) {
   Ip ip{ .source = linkLocal, .destination = allNodes, .protocol = 58 };
   ip.payload = first + hex( lifetime ) + timers + options;
   ip.payload = summed( ip.payload, 2, pseudoHeader( ip ) );
   return ip;
}

std::string const hello = ipv6( advertisement( "0708", linkLayer + prefix + route ) );
Sample const plain( "ra", hello );
Sample const bare( "ra without options", ipv6( advertisement( "0001", "" ) ) );

TEST( RouterAdvertisementTest, TheRouterLifetimeBecomes0 ) {
   auto const heard = heardOf( hello );
   EXPECT_EQ( heard.protocol, "ra" );
   EXPECT_EQ( heard.speaker, "router fe80::1" );
   EXPECT_EQ( heard.says, "router lifetime 1800" );
   EXPECT_FALSE( heard.leaves );
   EXPECT_EQ( heard.holdTime, std::chrono::seconds( 1800 ) );
   EXPECT_EQ( heard.greeting, hello );
   EXPECT_EQ( heard.goodbye, ipv6( advertisement( "0000", linkLayer + prefix + route ) ) );
   EXPECT_EQ( heard.change, "router lifetime 1800 -> 0" );
   EXPECT_EQ( heard.replaced, ( std::vector< Replaced >{ { 56, 2, 2 }, { 60, 2, 2 } } ) );
}

TEST( RouterAdvertisementTest, AGoodbyeLeaves ) {
   auto const heard = heardOf( ipv6( advertisement( "0000", route ) ) );
   EXPECT_TRUE( heard.leaves );
   EXPECT_EQ( heard.says, "router lifetime 0" );
   EXPECT_EQ( heard.goodbye, "" );
}

TEST( RouterAdvertisementTest, AnAnswerToOneHostIsNothing ) {
   auto ip = advertisement( "0708", "" );
   ip.destination = "fe80 .... .... .. ...02";
   ip.payload = summed( ip.payload, 2, pseudoHeader( ip ) );
   EXPECT_EQ( refusalOf( ipv6( ip ) ), "nothing" );
   ip.payload[ 3 ] ^= 1;
   EXPECT_EQ( refusalOf( ipv6( ip ) ), "ra: the checksum is wrong" );
}

TEST( RouterAdvertisementTest, OtherMessagesAreNothing ) {
   EXPECT_EQ( refusalOf( ipv6( advertisement( "0708", "", hex( "8700 .. 4048" ) ) ) ), "nothing" );
}

// Of so many words, with zeros.
std::string option( std::size_t type, std::size_t words ) {
   return number( type, 1 ) + number( words, 1 ) + std::string( 8 * words - 2, '\0' );
}

TEST( RouterAdvertisementTest, EachOptionHasItsLength ) {
   auto with = []( std::string const & options ) {
      return refusalOf( ipv6( advertisement( "0708", linkLayer + options ) ) );
   };
   struct Case {
      std::size_t type, least, most;
   };
   constexpr std::size_t any = 33;
   for ( auto const & [ type, least, most ] :
         { Case{ 1, 1, any },  Case{ 3, 4, 4 },    Case{ 5, 1, 1 },    Case{ 7, 1, 1 },
           Case{ 8, 1, 1 },    Case{ 11, 4, any }, Case{ 12, 3, any }, Case{ 13, 2, 2 },
           Case{ 23, 3, 3 },   Case{ 24, 1, 3 },   Case{ 25, 3, any }, Case{ 26, 1, 1 },
           Case{ 31, 2, any }, Case{ 32, 4, any }, Case{ 34, 2, 3 },   Case{ 35, 3, 3 },
           Case{ 36, 1, 1 },   Case{ 37, 1, any }, Case{ 38, 2, 2 },   Case{ 2, 1, any },
           Case{ 253, 1, any } } ) {
      EXPECT_EQ( with( option( type, least ) ), "heard" ) << type;
      EXPECT_EQ( with( option( type, most ) ), "heard" ) << type;
      if ( least > 1 ) {
         EXPECT_EQ( with( option( type, least - 1 ) ), "ra: a length is wrong" ) << type;
      }
      if ( most != any ) {
         EXPECT_EQ( with( option( type, most + 1 ) ), "ra: a length is wrong" ) << type;
      }
   }
   EXPECT_EQ( with( option( 25, 4 ) ), "ra: a length is wrong" ) << "half an address";
}

TEST( RouterAdvertisementTest, WhatOptionsSayIsVerified ) {
   auto with = []( char const * options ) {
      return refusalOf( ipv6( advertisement( "0708", hex( options ) ) ) );
   };
   EXPECT_EQ( with( "1802 4008 00000708 20010db8 00000000" ), "heard" );
   EXPECT_EQ( with( "1802 4108 00000708 20010db8 00000000" ), "ra: a length is wrong" );
   EXPECT_EQ( with( "1801 0108 00000708" ), "ra: a length is wrong" );
   EXPECT_EQ( with( "1803 8108 00000708 .... .... .... ...." ),
              "ra: a field has a value that is not allowed" );
   EXPECT_EQ( with( "2602 0705 0064ff9b .... ...." ), "heard" );
   EXPECT_EQ( with( "2602 0706 0064ff9b .... ...." ),
              "ra: a field has a value that is not allowed" );
   EXPECT_EQ( with( "1f02 0000 00000708 0361 6263 00 ..00" ), "heard" );
   EXPECT_EQ( with( "1f02 0000 00000708 0161 0162 00 0161 00" ), "heard" );
   EXPECT_EQ( with( "1f02 0000 00000708 0361 6263 03 616263" ), "ra: it ends too early" );
   EXPECT_EQ( with( "1f02 0000 00000708 c00c 0000 ...." ),
              "ra: a field has a value that is not allowed" );
}

TEST( RouterAdvertisementTest, WhatReceiversDropIsRefused ) {
   auto ip = advertisement( "0708", linkLayer );
   EXPECT_EQ( refusalOf( patched( ipv6( ip ), 57, "x" ) ), "ra: the checksum is wrong" );
   ip.hopLimit = 254;
   EXPECT_EQ( refusalOf( ipv6( ip ) ), "ra: the hop limit is not 255" );
   ip = advertisement( "0708", linkLayer );
   ip.source = "20010db8 .... .... ...01";
   ip.payload = summed( ip.payload, 2, pseudoHeader( ip ) );
   EXPECT_EQ( refusalOf( ipv6( ip ) ), "ra: a field has a value that is not allowed" );
   EXPECT_EQ( refusalOf( ipv6( advertisement( "0708", "", hex( "8601 .. 4048" ) ) ) ),
              "ra: a field has a value that is not allowed" );
   EXPECT_EQ( refusalOf( ipv6( advertisement( "0708", hex( "0100 02....01" ) ) ) ),
              "ra: a length is wrong" );
   EXPECT_EQ( refusalOf( ipv6( advertisement( "0708", hex( "0102 02....01" ) ) ) ),
              "ra: a TLV goes beyond the end" );
   EXPECT_EQ( refusalOf( ipv6( advertisement( "0708", hex( "01" ) ) ) ), "ra: it ends too early" );
}

} // namespace
} // namespace Derivation::Test::RouterAdvertisementCases
