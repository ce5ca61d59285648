#include "tests/derivation/Frames.h"

namespace Derivation::Test::HsrpCases {
namespace {

Ip const over4{ .source = "c0000201", .destination = "e0000002", .hopLimit = 1 };
Ip const over6{ .source = "fe80 .... .... .. ...01", .destination = "ff02 .... .... .... .66" };
std::string const password = "cisco" + hex( "..." );
std::string const md5 = hex( "041c 01 00 0000 c0000201 ...." ) + std::string( 16, 'd' );

std::string version1( std::string const & head, std::string const & more = "" ) {
   return ipv4( udp( over4, 1985, hex( head ) + password + hex( "c00002fe" ) + more ) );
}

std::string groupState( std::string const & head ) {
   return hex( "0128" ) + hex( head ) + hex( "02....01 00000064 00000bb8 00002710" ) +
          hex( "c00002fe .... .... ...." );
}

std::string const text = hex( "0308" ) + password;

std::string version2( std::string const & head, std::string const & more = "" ) {
   return ipv4( udp( over4, 1985, groupState( head ) + more ) );
}

std::string version2Over6( std::string const & head ) {
   return ipv6( udp( over6, 2029, groupState( head ) ) );
}

std::string const hello1 = version1( "00 00 10 03 0a 64 07 00" );
std::string const hello2 = version2( "02 00 06 04 0107", text );
std::string const hello2Over6 = version2Over6( "02 00 06 06 0107" );
Sample const sample1( "hsrp", hello1 );
Sample const sample2( "hsrp2", hello2 );
Sample const sample6( "hsrp2 over IPv6", hello2Over6 );

TEST( HsrpTest, TheActiveRouterResigns ) {
   struct Case {
      std::string hello, goodbye, speaker;
      std::size_t opcodeAt, checksumAt;
   };
   for ( auto const & [ hello, goodbye, speaker, opcodeAt, checksumAt ] : {
            Case{ hello1, version1( "00 02 10 03 0a 64 07 00" ), "group 7 of 192.0.2.1", 43, 40 },
            Case{ hello2, version2( "02 02 06 04 0107", text ), "group 263 of 192.0.2.1", 45, 40 },
            Case{ hello2Over6, version2Over6( "02 02 06 06 0107" ), "group 263 of fe80::1", 65,
                  60 },
         } ) {
      auto const heard = heardOf( hello );
      EXPECT_EQ( heard.protocol, "hsrp" );
      EXPECT_EQ( heard.speaker, speaker );
      EXPECT_EQ( heard.says, "hello, active" );
      EXPECT_EQ( heard.holdTime, std::chrono::seconds( 10 ) );
      EXPECT_EQ( heard.greeting, hello );
      EXPECT_EQ( heard.goodbye, goodbye );
      EXPECT_EQ( heard.change, "hello -> resign" );
      EXPECT_EQ( heard.replaced,
                 ( std::vector< Replaced >{ { checksumAt, 2, 2 }, { opcodeAt, 1, 1 } } ) );
      EXPECT_TRUE( heardOf( goodbye ).leaves );
      EXPECT_EQ( heardOf( goodbye ).says, "resign, active" );
   }
}

TEST( HsrpTest, APartialChecksumIsCompletedInBoth ) {
   auto const ip = udp( over4, 1985, hello1.substr( 42 ) );
   auto const complement = checksum( pseudoHeader( ip ) );
   std::string const sum{ static_cast< char >( ~complement[ 0 ] ),
                          static_cast< char >( ~complement[ 1 ] ) };
   auto const heard = heardOf( patched( hello1, 40, sum ) );
   EXPECT_EQ( heard.greeting, hello1 );
   EXPECT_EQ( heard.goodbye, version1( "00 02 10 03 0a 64 07 00" ) );
}

TEST( HsrpTest, WithoutAChecksumThereIsNoneInTheGoodbye ) {
   auto const heard = heardOf( patched( hello1, 40, u16( 0 ) ) );
   EXPECT_EQ( heard.goodbye, patched( version1( "00 02 10 03 0a 64 07 00" ), 40, u16( 0 ) ) );
}

TEST( HsrpTest, OnlyAnActiveRouterWithoutMd5HasAGoodbye ) {
   auto const why = []( std::string const & frame ) {
      auto const heard = heardOf( frame );
      EXPECT_EQ( heard.goodbye, "" );
      EXPECT_FALSE( heard.leaves );
      return heard.whyNot;
   };
   EXPECT_EQ( why( version1( "00 00 08 03 0a 64 07 00" ) ), "only the active router resigns" );
   EXPECT_EQ( why( version2( "02 00 05 04 0107" ) ), "only the active router resigns" );
   EXPECT_EQ( why( version1( "00 00 10 03 0a 64 07 00", md5 ) ), "authenticated with MD5" );
   EXPECT_EQ( why( version2( "02 00 06 04 0107", md5 ) ), "authenticated with MD5" );
}

TEST( HsrpTest, OtherMessagesAreNothing ) {
   EXPECT_EQ( refusalOf( version1( "00 01 10 03 0a 64 07 00" ) ), "nothing" );
   EXPECT_EQ( refusalOf( version1( "00 03 10 03 0a 64 07 00" ) ), "nothing" );
   EXPECT_EQ( refusalOf( version2( "02 01 06 04 0107" ) ), "nothing" );
}

TEST( HsrpTest, WrongMessagesAreRefused ) {
   auto const beyond = "hsrp: a TLV goes beyond the end",
              value = "hsrp: a field has a value that is not allowed";
   EXPECT_EQ( refusalOf( version1( "03 00 10 03 0a 64 07 00" ) ), "hsrp: the version is unknown" );
   EXPECT_EQ( refusalOf( version2( "01 00 06 04 0107" ) ), "hsrp: the version is unknown" );
   EXPECT_EQ( refusalOf( version1( "00 00 10 03 00 64 07 00" ) ), value );
   EXPECT_EQ( refusalOf( version1( "00 00 10 03 0a 64 07 00", hex( "0405 .." ) ) ), beyond );
   EXPECT_EQ( refusalOf( version2( "02 00 06 04 0107", groupState( "02 00 06 04 0108" ) ) ),
              "hsrp: a TLV is missing, or in the wrong place" );
   EXPECT_EQ( refusalOf( ipv4( udp( over4, 1985, hex( "00" ) ) ) ), "hsrp: it ends too early" );
   EXPECT_EQ( refusalOf( ipv4( udp( over4, 1985, hex( "" ) ) ) ), "hsrp: it ends too early" );
   EXPECT_EQ( refusalOf( ipv4( udp( over4, 1985, hex( "0127 0200 ...." ) ) ) ),
              "hsrp: a length is wrong" );
   EXPECT_EQ( refusalOf( ipv4( udp( over4, 1985, hex( "0128 0200 ...." ) ) ) ), beyond );
   EXPECT_EQ( refusalOf( patched( hello1, 43, "x" ) ), "hsrp: the checksum is wrong" );
}

} // namespace
} // namespace Derivation::Test::HsrpCases
