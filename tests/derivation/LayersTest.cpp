#include "derivation/Layers.h"

#include "tests/derivation/Frames.h"

namespace Derivation::Test::LayersCases {
namespace {

Ip const ip4{
   .source = "c0000201", .destination = "e0000009", .protocol = 200, .payload = "message" };
Ip const ip6{ .source = "fe80 .... .... .. ...01",
              .destination = "ff02 .... .... .... .09",
              .protocol = 200,
              .payload = "message" };

Layers layers( std::string const & frame ) {
   auto const found = layersOf( frame );
   EXPECT_TRUE( found );
   return found.value_or( Layers{} );
}

std::string messageOf( std::string const & frame ) {
   auto const packet = packetOf( frame, layers( frame ) );
   auto message = packet.message();
   return std::string( message.bytes( message.left() ) );
}

std::string refusal( std::string const & frame ) {
   try {
      packetOf( frame, layers( frame ) );
   } catch ( Refused const & refused ) {
      return refused.reason();
   }
   return "";
}

TEST( LayersTest, TheCarrierHasANumber ) {
   struct Case {
      std::string frame;
      Carrier carrier;
      U16 number;
      std::string message;
   };
   std::string const group = "0180c2..14";
   std::vector< Case > const cases{
      { ethernet( group, 0x88b5, "m" ), Carrier::ethernet, 0x88b5, "m" },
      { ethernet( group, 0x8809, hex( "01" ) + "m" ), Carrier::slow, 1, "\1m" },
      { llc( group, hex( "fefe 03" ) + "m" ) + "padding", Carrier::llc, 0xfefe, "m" },
      { llc( group, hex( "aaaa 03 ..0c 2000" ) + "m" ) + "pad", Carrier::snap, 0x2000, "m" },
      { ipv4( ip4 ) + "padding", Carrier::ipv4, 200, "message" },
      { ipv6( ip6 ) + "padding", Carrier::ipv6, 200, "message" },
      { ipv4( udp( ip4, 1000, "m" ) ) + "padding", Carrier::udp4, 1000, "m" },
      { ipv6( udp( ip6, 1000, "m" ) ) + "padding", Carrier::udp6, 1000, "m" },
   };
   for ( auto const & [ frame, carrier, number_, message ] : cases ) {
      for ( auto const & each : { frame, tagged( frame ), tagged( frame, "88a8 0001" ) } ) {
         EXPECT_EQ( layers( each ).carrier, carrier ) << message;
         EXPECT_EQ( layers( each ).number, number_ );
         EXPECT_EQ( messageOf( each ), message );
      }
   }
}

TEST( LayersTest, IpOptionsAreSkipped ) {
   auto ip = ip4;
   ip.options = hex( "94040000" );
   EXPECT_EQ( messageOf( ipv4( ip ) ), "message" );
   ip = ip6;
   ip.protocol = 58;
   ip.payload = hex( "86" ) + "message";
   ip.options = hex( "00 0502 .. 0100" );
   EXPECT_EQ( layers( ipv6( ip ) ).carrier, Carrier::icmp6 );
   EXPECT_EQ( layers( ipv6( ip ) ).number, 0x86 );
   EXPECT_EQ( messageOf( ipv6( ip ) ), ip.payload );
}

TEST( LayersTest, WrongIpOptionsAreRefused ) {
   auto refused4 = []( char const * options ) {
      auto ip = ip4;
      ip.options = hex( options );
      return refusal( ipv4( ip ) );
   };
   EXPECT_EQ( refused4( "01 9404 0000 01 00 ff" ), "" );
   EXPECT_EQ( refused4( "0703 04 00" ), "" );
   EXPECT_EQ( refused4( "9403 00 00" ), Reason::badLength );
   EXPECT_EQ( refused4( "0701 0000" ), Reason::badLength );
   EXPECT_EQ( refused4( "0700 0000" ), Reason::badLength );
   for ( auto const * const tooShort :
         { "0702 0000", "0b02 0000", "0c03 0000", "1904 0000", "5204 0000", "4403 0000",
           "8202 0000", "8302 0000", "8803 0000", "8902 0000" } ) {
      EXPECT_EQ( refused4( tooShort ), Reason::badLength ) << tooShort;
   }
   EXPECT_EQ( refused4( "4404 0500 8303 04 8903 04 8804 0001 0000" ), "" );
   EXPECT_EQ( refused4( "8202 0000 8805 0000" ), Reason::badLength );
   EXPECT_EQ( refused4( "5e02 0000" ), "" ) << "unknown";
   EXPECT_EQ( refused4( "0705 0000" ), Reason::tlvBeyondEnd );
   EXPECT_EQ( refused4( "0101 0107" ), Reason::cutOff );
   auto refused6 = []( char const * options ) {
      auto ip = ip6;
      ip.options = hex( options );
      return refusal( ipv6( ip ) );
   };
   EXPECT_EQ( refused6( "00 0502 .. 0100" ), "" );
   EXPECT_EQ( refused6( "00 ......" ), "" );
   EXPECT_EQ( refused6( "00 1e04 ...." ), "" ) << "unknown, to be skipped";
   EXPECT_EQ( refused6( "00 0501 00 0101 00" ), Reason::badLength );
   EXPECT_EQ( refused6( "00 0503 000000 00" ), Reason::badLength );
   for ( auto const * const wrong : { "00 0402 00000000", "00 0704 00000000", "00 0f04 00000000",
                                      "00 2604 00000000", "00 3003 00000000" } ) {
      EXPECT_EQ( refused6( wrong ), Reason::badLength ) << wrong;
   }
   for ( auto const * const right : { "00 0401 04000000", "01 0708 ........ ....",
                                      "01 0f0a ........ .. ..", "00 3004 05dc0000" } ) {
      EXPECT_EQ( refused6( right ), "" ) << right;
   }
   EXPECT_EQ( refused6( "00 0502 0000 0101" ), Reason::tlvBeyondEnd );
   EXPECT_EQ( refused6( "00 ..... 01" ), Reason::cutOff );
   for ( auto const * const drops : { "00 4104 ....", "00 8104 ....", "00 c104 ...." } ) {
      EXPECT_EQ( refused6( drops ), Reason::badValue ) << drops;
   }
}

TEST( LayersTest, WhatHasNoMessageHasNoCarrier ) {
   std::string const group = "0180c2..14";
   EXPECT_EQ( layers( tagged( tagged( ipv4( ip4 ) ) ) ).number, 0x8100 ) << "a second tag";
   EXPECT_FALSE( layersOf( llc( group, hex( "fefe 13" ) + "m" ) ) );
   EXPECT_FALSE( layersOf( llc( group, hex( "aaaa 03 ..0d 2000" ) + "m" ) ) );
   EXPECT_FALSE( layersOf( patched( ipv4( ip4 ), 14, hex( "55" ) ) ) );
   EXPECT_FALSE( layersOf( patched( ipv4( ip4 ), 14, hex( "44" ) ) ) );
   EXPECT_FALSE( layersOf( patched( ipv6( ip6 ), 14, hex( "5c" ) ) ) );
   EXPECT_FALSE( layersOf( patched( ipv4( ip4 ), 20, hex( "0001" ) ) ) ) << "a later fragment";
}

TEST( LayersTest, WrongLayersAreRefused ) {
   auto const four = ipv4( ip4 ), six = ipv6( ip6 );
   EXPECT_EQ( refusal( patched( four, 24, hex( "1234" ) ) ), Reason::badChecksum );
   EXPECT_EQ( refusal( four.substr( 0, four.size() - 1 ) ), Reason::cutOff );
   EXPECT_EQ( refusal( six.substr( 0, six.size() - 1 ) ), Reason::cutOff );
   EXPECT_EQ( refusal( patched( four, 16, u16( 19 ) ) ), Reason::badLength );
   auto const header = [ & ]( std::size_t at, std::string const & bytes ) {
      auto const changed = patched( four, at, bytes );
      return patched( changed, 14, summed( changed.substr( 14, 20 ), 10 ) );
   };
   EXPECT_EQ( refusal( header( 20, hex( "4000" ) ) ), "" ) << "not to be fragmented";
   EXPECT_EQ( refusal( header( 20, hex( "2000" ) ) ), Reason::fragment );
   auto const ieee = llc( "0180c2..14", hex( "fefe 03" ) + "m" );
   EXPECT_EQ( refusal( ieee.substr( 0, ieee.size() - 1 ) ), Reason::cutOff );
   EXPECT_EQ( refusal( patched( ieee, 12, u16( 2 ) ) ), Reason::badLength );
   auto ip = ip6;
   ip.options = hex( "00 0502 .. 0100" );
   EXPECT_EQ( refusal( patched( ipv6( ip ), 18, u16( 7 ) ) ), Reason::badLength );
}

TEST( LayersTest, TheUdpChecksumIsVerified ) {
   for ( auto const & [ frame, udpAt ] : { std::pair( ipv4( udp( ip4, 1000, "odd" ) ), 34U ),
                                           std::pair( ipv6( udp( ip6, 1000, "odd" ) ), 54U ) } ) {
      EXPECT_EQ( refusal( frame ), "" );
      EXPECT_EQ( refusal( patched( frame, udpAt + 6, hex( "1234" ) ) ), Reason::badChecksum );
      EXPECT_EQ( refusal( patched( frame, frame.size() - 1, "x" ) ), Reason::badChecksum );
      EXPECT_EQ( refusal( patched( frame, udpAt + 4, u16( 10 ) ) ), Reason::badLength );
      EXPECT_EQ( refusal( patched( frame, udpAt + 4, u16( 12 ) ) ), Reason::badLength );
   }
}

TEST( LayersTest, OverIpv4TheUdpChecksumMayBeAbsent ) {
   auto const four = patched( ipv4( udp( ip4, 1000, "odd" ) ), 40, u16( 0 ) );
   EXPECT_EQ( packetOf( four, layers( four ) ).frame, four );
   EXPECT_EQ( refusal( patched( ipv6( udp( ip6, 1000, "odd" ) ), 60, u16( 0 ) ) ),
              Reason::badChecksum );
}

// Before the device completes it, the checksum is the sum of the pseudo header, not complemented.
TEST( LayersTest, APartialUdpChecksumIsCompleted ) {
   for ( bool const version4 : { true, false } ) {
      auto const ip = udp( version4 ? ip4 : ip6, 1000, "odd" );
      auto const complete = version4 ? ipv4( ip ) : ipv6( ip );
      auto const complement = checksum( pseudoHeader( ip ) );
      std::string const sum{ static_cast< char >( ~complement[ 0 ] ),
                             static_cast< char >( ~complement[ 1 ] ) };
      auto const partial = patched( complete, version4 ? 40 : 60, sum );
      EXPECT_NE( partial, complete );
      EXPECT_EQ( packetOf( partial, layers( partial ) ).frame, complete );
   }
}

// Zero says that the sender made no checksum; 0xffff has the same value.
TEST( LayersTest, AUdpChecksumIsCompletedToAllOnesInPlaceOfZero ) {
   auto const odd = udp( ip4, 1000, u16( 0 ) ).payload;
   auto const ip = udp( ip4, 1000, odd.substr( 6, 2 ) );
   ASSERT_EQ( ip.payload.substr( 6, 2 ), u16( 0 ) );
   auto const complement = checksum( pseudoHeader( ip ) );
   std::string const sum{ static_cast< char >( ~complement[ 0 ] ),
                          static_cast< char >( ~complement[ 1 ] ) };
   auto const partial = patched( ipv4( ip ), 40, sum );
   EXPECT_EQ( packetOf( partial, layers( partial ) ).frame,
              patched( ipv4( ip ), 40, u16( 0xffff ) ) );
}

} // namespace
} // namespace Derivation::Test::LayersCases
