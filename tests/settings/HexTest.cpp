#include "settings/Hex.h"

#include <gtest/gtest.h>

namespace Settings {
namespace {

std::string const header = "0180c200000e02000000000188cc";

std::string errorOf( std::string_view text ) {
   try {
      frameFromHex( text );
      return "no error";
   } catch ( HexError const & e ) {
      return e.what();
   }
}

TEST( HexTest, DigitsBecomeBytes ) {
   auto const frame = frameFromHex( header );
   ASSERT_EQ( frame.size(), 14u );
   EXPECT_EQ( frame[ 0 ], '\x01' );
   EXPECT_EQ( frame[ 13 ], '\xcc' );
   EXPECT_EQ( toHex( frame ), header );
}

TEST( HexTest, CaseDoesNotMatter ) {
   EXPECT_EQ( frameFromHex( "0180C200000E02000000000188CC" ), frameFromHex( header ) );
}

TEST( HexTest, WhitespaceAndColonsMaySeparateDigits ) {
   EXPECT_EQ( frameFromHex( "01:80:c2:00:00:0e 0 2 0000000001\n88cc\r\n\t" ),
              frameFromHex( header ) );
}

TEST( HexTest, EveryByteSurvivesTheRoundTrip ) {
   std::string bytes;
   for ( int i = 0; i < 256; ++i ) {
      bytes += static_cast< char >( i );
   }
   EXPECT_EQ( frameFromHex( toHex( bytes ) ), bytes );
}

TEST( HexTest, ACharacterThatIsNotADigitIsReportedWithItsPosition ) {
   EXPECT_EQ( errorOf( "01xy" ), "\"x\" at character 3 of the frame; expected hexadecimal digits" );
   EXPECT_EQ( errorOf( std::string( "01\x80", 3 ) ),
              "byte 0x80 at character 3 of the frame; expected hexadecimal digits" );
   EXPECT_EQ( errorOf( header + "-" ),
              "\"-\" at character 29 of the frame; expected hexadecimal digits" );
   EXPECT_EQ( errorOf( header + "G" ),
              "\"G\" at character 29 of the frame; expected hexadecimal digits" );
}

TEST( HexTest, AnOddNumberOfDigitsIsRejected ) {
   EXPECT_EQ( errorOf( header + "0" ),
              "frame of 29 hexadecimal digits; expected two for each byte" );
   EXPECT_EQ( errorOf( "0" ), "frame of 1 hexadecimal digit; expected two for each byte" );
}

TEST( HexTest, AFrameHasAtLeastAnEthernetHeader ) {
   EXPECT_EQ( errorOf( header.substr( 2 ) ),
              "frame of 13 bytes; expected at least 14, an Ethernet header" );
   EXPECT_EQ( errorOf( "00" ), "frame of 1 byte; expected at least 14, an Ethernet header" );
   EXPECT_EQ( errorOf( "" ), "frame of 0 bytes; expected at least 14, an Ethernet header" );
   EXPECT_EQ( errorOf( header ), "no error" );
}

} // namespace
} // namespace Settings
