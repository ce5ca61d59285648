#include "tests/derivation/Frames.h"

namespace Derivation::Test::IsisHelloCases {
namespace {

std::string tlv( U8 type, std::string const & value ) {
   return number( type, 1 ) + number( value.size(), 1 ) + value;
}

std::string const area = tlv( 1, hex( "03 490001" ) ), protocols = tlv( 129, hex( "cc" ) );
std::string const one = tlv( 6, hex( "02....02" ) );
std::string const two = tlv( 6, hex( "02....03 02....04" ) );
std::string const password = tlv( 10, hex( "01" ) + "secret" );
std::string const md5 = tlv( 10, hex( "36" ) + std::string( 16, 'd' ) );
std::string const padding = tlv( 8, std::string( 255, '\0' ) );

std::string lan( std::string const & tlvs, std::string const & type = "10" ) {
   auto const pdu = hex( "83 1b 01 00" ) + hex( type ) + hex( "01 00 00 03 0000 0000 0001 001e" ) +
                    u16( 27 + tlvs.size() ) + hex( "40 0000 0000 0001 02" ) + tlvs;
   return llc( "0180c2..15", hex( "fefe 03" ) + pdu );
}

std::string pointToPoint( std::string const & tlvs ) {
   auto const pdu = hex( "83 14 01 00 11 01 00 00 03 0000 0000 0001 001e" ) +
                    u16( 20 + tlvs.size() ) + hex( "01" ) + tlvs;
   return llc( "09002b..05", hex( "fefe 03" ) + pdu );
}

std::string threeWay( std::string const & state ) {
   return tlv( 240, hex( state ) + hex( "00000003 0000 0000 0002 00000004" ) );
}

std::string const hello = lan( area + one + protocols + two + password + padding );
std::string const pointHello = pointToPoint( protocols + area + threeWay( "00" ) + padding );
Sample const lan2( "isis level 2", hello );
Sample const lan1( "isis level 1, padded", lan( area + one, "0f" ) + std::string( 2, '\0' ) );
Sample const point( "isis point-to-point", pointHello );

TEST( IsisHelloTest, TheLanHelloListsNoNeighbors ) {
   auto const heard = heardOf( hello );
   EXPECT_EQ( heard.protocol, "isis" );
   EXPECT_EQ( heard.speaker, "system 0000.0000.0001, level 2" );
   EXPECT_EQ( heard.says, "3 neighbors" );
   EXPECT_FALSE( heard.leaves );
   EXPECT_EQ( heard.holdTime, std::chrono::seconds( 30 ) );
   EXPECT_EQ( heard.greeting, hello );
   EXPECT_EQ( heard.goodbye, lan( area + protocols + password + padding ) );
   EXPECT_EQ( heard.change, "3 neighbors -> 0 neighbors" );
   EXPECT_EQ( heard.replaced, ( std::vector< Replaced >{
                                 { 12, 2, 2 }, { 34, 2, 2 }, { 50, 8, 0 }, { 61, 14, 0 } } ) );
   EXPECT_TRUE( heardOf( heard.goodbye ).leaves );
   EXPECT_EQ( heardOf( heard.goodbye ).says, "0 neighbors" );
}

TEST( IsisHelloTest, ThePaddingOfTheFrameStays ) {
   auto const heard = heardOf( lan( area + one, "0f" ) + "pad" );
   EXPECT_EQ( heard.speaker, "system 0000.0000.0001, level 1" );
   EXPECT_EQ( heard.says, "1 neighbor" );
   EXPECT_EQ( heard.goodbye, lan( area, "0f" ) + "pad" );
}

TEST( IsisHelloTest, ThePointToPointStateIsDown ) {
   auto const heard = heardOf( pointHello );
   EXPECT_EQ( heard.speaker, "system 0000.0000.0001, point-to-point" );
   EXPECT_EQ( heard.says, "three-way state up" );
   EXPECT_EQ( heard.goodbye, pointToPoint( protocols + area + threeWay( "02" ) + padding ) );
   EXPECT_EQ( heard.change, "three-way state up -> down" );
   EXPECT_EQ( heard.holdTime, std::chrono::seconds( 30 ) );
   EXPECT_TRUE( heardOf( heard.goodbye ).leaves );
   EXPECT_EQ( heardOf( pointToPoint( threeWay( "01" ) ) ).change,
              "three-way state initializing -> down" );
}

TEST( IsisHelloTest, WhatIsAuthenticatedHasNoGoodbye ) {
   struct Case {
      std::string frame, whyNot;
   };
   for ( auto const & [ frame, whyNot ] : {
            Case{ lan( one + md5 ), "authenticated with MD5" },
            Case{ lan( md5 + one ), "authenticated with MD5" },
            Case{ pointToPoint( threeWay( "00" ) + md5 ), "authenticated with MD5" },
            Case{ lan( one + tlv( 10, hex( "03" ) + "key" ) ), "authenticated with type 3" },
            Case{ lan( one + tlv( 12, hex( "1234" ) ) ), "with a checksum of its own" },
            Case{ pointToPoint( area ), "its hello has no three-way state" },
         } ) {
      auto const heard = heardOf( frame );
      EXPECT_EQ( heard.whyNot, whyNot );
      EXPECT_EQ( heard.goodbye, "" );
      EXPECT_FALSE( heard.leaves );
   }
   EXPECT_NE( heardOf( lan( one + tlv( 12, hex( "0000" ) ) ) ).goodbye, "" );
   EXPECT_TRUE( heardOf( lan( md5 ) ).leaves );
   EXPECT_EQ( heardOf( lan( md5 ) ).whyNot, "" );
}

TEST( IsisHelloTest, OtherPdusAreNothing ) {
   EXPECT_EQ( refusalOf( lan( area, "12" ) ), "nothing" );
   EXPECT_EQ( refusalOf( lan( area, "1b" ) ), "nothing" );
}

TEST( IsisHelloTest, WrongPdusAreRefused ) {
   std::string const length = "isis: a length is wrong", version = "isis: the version is unknown";
   std::string const value = "isis: a field has a value that is not allowed";
   struct Case {
      std::string frame, refusal;
   };
   for ( auto const & [ frame, refusal ] : {
            Case{ patched( hello, 17, hex( "82" ) ), value },
            Case{ patched( hello, 18, hex( "14" ) ), length },
            Case{ patched( pointHello, 18, hex( "1b" ) ), length },
            Case{ patched( hello, 19, hex( "02" ) ), version },
            Case{ patched( hello, 20, hex( "05" ) ), value },
            Case{ patched( hello, 22, hex( "02" ) ), version },
            Case{ patched( hello, 34, u16( 27 ) ), length },
            Case{ lan( tlv( 6, "12345" ) ), length },
            Case{ lan( tlv( 12, "1" ) ), length },
            Case{ lan( tlv( 1, hex( "00" ) ) ), length },
            Case{ lan( tlv( 1, "" ) ), "isis: it ends too early" },
            Case{ lan( tlv( 1, hex( "04 490001" ) ) ), "isis: it ends too early" },
            Case{ lan( tlv( 1, hex( "15" ) + std::string( 21, 'a' ) ) ), length },
            Case{ lan( tlv( 132, "12345" ) ), length },
            Case{ lan( tlv( 232, "12345" ) ), length },
            Case{ lan( tlv( 229, "1" ) ), length },
            Case{ lan( tlv( 7, "" ) ), length },
            Case{ lan( tlv( 7, "123" ) ), length },
            Case{ lan( tlv( 7, "1234" ) ), "heard" },
            Case{ pointToPoint( tlv( 240, hex( "00 0000" ) ) ), length },
            Case{ lan( tlv( 10, "" ) ), "isis: it ends too early" },
            Case{ lan( hex( "06" ) ), "isis: it ends too early" },
            Case{ lan( hex( "0607 ...." ) ), "isis: a TLV goes beyond the end" },
            Case{ pointToPoint( threeWay( "03" ) ), value },
            Case{ pointToPoint( threeWay( "00" ) + threeWay( "00" ) ),
                  "isis: a TLV is missing, or in the wrong place" },
         } ) {
      EXPECT_EQ( refusalOf( frame ), refusal );
   }
}

} // namespace
} // namespace Derivation::Test::IsisHelloCases
