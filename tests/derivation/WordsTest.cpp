#include "derivation/Words.h"

#include "tests/derivation/Frames.h"

namespace Derivation::Test {
namespace {

TEST( WordsTest, Ipv6AddressesAreShort ) {
   struct Case {
      std::string bytes, text;
   };
   for ( auto const & [ bytes, text ] : {
            Case{ "fe80 .... .... .. ...01", "fe80::1" },
            Case{ ".... .... .... ....", "::" },
            Case{ ".... .... .... ...01", "::1" },
            Case{ "2001 0db8 .... .... ....", "2001:db8::" },
            Case{ "2001 0db8 0000 0001 0001 0001 0001 0001", "2001:db8:0:1:1:1:1:1" },
            Case{ "2001 0000 0000 0001 0000 0000 0000 0001", "2001:0:0:1::1" },
            Case{ "2001 0db8 0000 0000 0001 0000 0000 0001", "2001:db8::1:0:0:1" },
            Case{ "0001 0002 0003 0004 0005 0006 0007 abcd", "1:2:3:4:5:6:7:abcd" },
         } ) {
      ASSERT_EQ( hex( bytes ).size(), 16 ) << text;
      EXPECT_EQ( ipText( hex( bytes ) ), text );
   }
}

TEST( WordsTest, OnlyWhatIsPrintableIsText ) {
   EXPECT_EQ( nameText( "Ethernet1/2 ~" ), "Ethernet1/2 ~" );
   EXPECT_EQ( nameText( hex( "4142 0a" ) ), "41420a" );
   EXPECT_EQ( nameText( hex( "41c3a4" ) ), "41c3a4" );
   EXPECT_EQ( nameText( hex( "7f" ) ), "7f" );
   EXPECT_EQ( nameText( "" ), "" );
}

} // namespace
} // namespace Derivation::Test
