#include "tests/derivation/Frames.h"

namespace Derivation::Test::CdpCases {
namespace {

std::string tlv( std::size_t type, std::string const & value ) {
   return u16( type ) + u16( 4 + value.size() ) + value;
}

std::string const device = tlv( 1, "R1" ), port = tlv( 3, "Ethernet1" );
std::string const system = hex( "aaaa 03 ..0c 2000" );

std::string cdp( std::string const & message ) {
   return llc( "01000ccccccc", system + message );
}

std::string even( std::string const & versionAndTtl, std::string const & tlvs ) {
   return cdp( summed( hex( versionAndTtl ) + u16( 0 ) + tlvs, 2 ) );
}

// The checksum has `last` for the last byte.
std::string odd( std::string const & versionAndTtl, std::string const & tlvs,
                 std::string const & last ) {
   auto const message = hex( versionAndTtl ) + u16( 0 ) + tlvs;
   auto const sum = checksum( message.substr( 0, message.size() - 1 ) + hex( last ) );
   return cdp( patched( message, 2, sum ) );
}

std::string const hello = even( "02b4", device + port + tlv( 5, "v" ) );
Sample const plain( "cdp", hello );
Sample const oddBytes( "cdp, odd", odd( "02b4", device + port, "0031" ) );
Sample const highByte( "cdp, odd with a high byte",
                       odd( "02b4", device + port + tlv( 5, "v" + hex( "ff" ) ), "fffe" ) );

TEST( CdpTest, TheTimeToLiveBecomes0 ) {
   auto const heard = heardOf( hello );
   EXPECT_EQ( heard.protocol, "cdp" );
   EXPECT_EQ( heard.speaker, "device R1, port Ethernet1" );
   EXPECT_EQ( heard.says, "ttl 180" );
   EXPECT_FALSE( heard.leaves );
   EXPECT_EQ( heard.holdTime, std::chrono::seconds( 180 ) );
   EXPECT_EQ( heard.greeting, hello );
   EXPECT_EQ( heard.goodbye, even( "0200", device + port + tlv( 5, "v" ) ) );
   EXPECT_EQ( heard.change, "ttl 180 -> 0" );
   EXPECT_EQ( heard.replaced, ( std::vector< Replaced >{ { 23, 1, 1 }, { 24, 2, 2 } } ) );
   EXPECT_TRUE( heardOf( heard.goodbye ).leaves );
}

// Receivers differ in what the last byte of an odd number counts, and get what the sender sends them.
TEST( CdpTest, AnOddLastByteIsAWord ) {
   struct Case {
      std::string text, last;
   };
   for ( auto const & [ text, last ] : {
            Case{ "E1", "0031" },              // the byte is the low one
            Case{ "E1", "3100" },              // as RFC 1071 pads
            Case{ "E" + hex( "80" ), "ff7f" }, // with its sign, less one
            Case{ "E" + hex( "ff" ), "fffe" },
            Case{ "E" + hex( "80" ), "0080" },
         } ) {
      auto const tlvs = device + tlv( 3, text ) + tlv( 5, "x" + text );
      EXPECT_EQ( heardOf( odd( "0178", tlvs, last ) ).goodbye, odd( "0100", tlvs, last ) ) << last;
      EXPECT_EQ( refusalOf( odd( "0178", tlvs, "1234" ) ), "cdp: the checksum is wrong" );
   }
}

TEST( CdpTest, ANumberThatIsCutOffIsRefused ) {
   struct Case {
      std::size_t type, bytes;
   };
   for ( auto const & [ type, bytes ] :
         { Case{ 4, 4 }, Case{ 10, 2 }, Case{ 11, 1 }, Case{ 15, 3 }, Case{ 16, 2 }, Case{ 17, 4 },
           Case{ 18, 1 }, Case{ 19, 1 } } ) {
      auto const with = [ number = type ]( std::size_t count ) {
         return even( "02b4", device + port + tlv( number, std::string( count, '\1' ) ) );
      };
      EXPECT_EQ( heardOf( with( bytes ) ).says, "ttl 180" ) << type;
      EXPECT_EQ( refusalOf( with( bytes - 1 ) ), "cdp: a length is wrong" ) << type;
   }
}

TEST( CdpTest, WrongMessagesAreRefused ) {
   std::string const missing = "cdp: a TLV is missing, or in the wrong place";
   EXPECT_EQ( refusalOf( even( "03b4", device + tlv( 3, "E1" ) ) ), "cdp: the version is unknown" );
   EXPECT_EQ( refusalOf( even( "02b4", device ) ), missing );
   EXPECT_EQ( refusalOf( even( "02b4", tlv( 3, "E1" ) ) ), missing );
   EXPECT_EQ( refusalOf( even( "02b4", device + tlv( 3, "" ) ) ), missing );
   EXPECT_EQ( refusalOf( even( "02b4", device + hex( "0003 0003" ) ) ), "cdp: a length is wrong" );
   EXPECT_EQ( refusalOf( even( "02b4", device + hex( "0003 0008 .." ) ) ),
              "cdp: a TLV goes beyond the end" );
   EXPECT_EQ( refusalOf( even( "02b4", device + hex( "0003" ) ) ), "cdp: it ends too early" );
   EXPECT_EQ( refusalOf( patched( hello, 23, "x" ) ), "cdp: the checksum is wrong" );
   EXPECT_EQ( refusalOf( patched( hello, 20, hex( "2004" ) ) ), "nothing" ) << "another protocol";
}

} // namespace
} // namespace Derivation::Test::CdpCases
