#include "derivation/Editor.h"

#include "tests/derivation/Frames.h"

namespace Derivation::Test::EditorCases {
namespace {

Ip const ip4{ .source = "c0000201", .destination = "e0000009", .protocol = 200 };
Ip const ip6{
   .source = "fe80 .... .... .. ...01", .destination = "ff02 .... .... .... .09", .protocol = 200 };

Packet packet( std::string const & frame ) {
   return packetOf( frame, layersOf( frame ).value() );
}

// A message with a checksum at its second byte pair, over a pseudo header if there is one.
Ip with( Ip ip, std::string const & message, bool pseudo ) {
   ip.payload = message;
   ip.payload = summed( message, 2, pseudo ? pseudoHeader( ip ) : "" );
   return ip;
}

TEST( EditorTest, LengthsAndChecksumsFollowWhatIsLeftOut ) {
   std::string const before = "ab" + hex( ".." ) + "one of them",
                     after = "ab" + hex( ".." ) + "0ne them";
   auto const edited = []( std::string const & frame, bool pseudo ) {
      auto const all = packet( frame );
      auto const at = all.layers.message;
      Editor editor( all );
      editor.remove( at + 8, 3 );
      editor.u8( at + 4, '0' );
      editor.fixChecksum(
         { .at = at + 2, .begin = at, .end = all.layers.end, .pseudoHeader = pseudo } );
      Heard heard;
      editor.finish( heard );
      return heard.goodbye;
   };
   EXPECT_EQ( edited( ipv4( with( ip4, before, false ) ) + "pad", false ),
              ipv4( with( ip4, after, false ) ) + "pad" );
   EXPECT_EQ( edited( ipv6( with( ip6, before, true ) ) + "pad", true ),
              ipv6( with( ip6, after, true ) ) + "pad" );
}

TEST( EditorTest, SoDoThoseOfUdp ) {
   auto const edited = []( std::string const & frame ) {
      auto const all = packet( frame );
      Editor editor( all );
      editor.remove( all.layers.message, 1 );
      editor.remove( all.layers.message + 3, 2 );
      editor.u16( all.layers.message + 1, 0x4142 );
      Heard heard;
      editor.finish( heard );
      EXPECT_EQ( packet( heard.goodbye ).frame, heard.goodbye );
      return heard;
   };
   EXPECT_EQ( edited( ipv4( udp( ip4, 1000, "xabyz" ) ) + "pad" ).goodbye,
              ipv4( udp( ip4, 1000, "AB" ) ) + "pad" );
   EXPECT_EQ( edited( ipv6( udp( ip6, 1000, "xabyz" ) ) ).goodbye, ipv6( udp( ip6, 1000, "AB" ) ) );
   EXPECT_EQ( edited( ipv4( udp( ip4, 1000, "xabyz" ) ) ).replaced,
              ( std::vector< Replaced >{ { 16, 2, 2 },
                                         { 24, 2, 2 },
                                         { 38, 2, 2 },
                                         { 40, 2, 2 },
                                         { 42, 1, 0 },
                                         { 43, 2, 2 },
                                         { 45, 2, 0 } } ) );
}

TEST( EditorTest, AHoleIsNotInTheChecksum ) {
   std::string const head = "ab" + hex( ".." );
   auto const frame = [ & ]( std::string const & tail ) {
      auto const sum = checksum( head + "zz" + tail );
      return ipv4( { .source = ip4.source,
                     .destination = ip4.destination,
                     .protocol = 200,
                     .payload = "ab" + sum + "zz" + "secret" + tail } );
   };
   auto const all = packet( frame( "end" ) );
   auto const at = all.layers.message;
   Checksum const checksum_{
      .at = at + 2, .begin = at, .end = all.layers.end, .hole = 6, .holeBytes = 6 };
   EXPECT_TRUE( isCorrect( all, checksum_ ) );
   Editor editor( all );
   editor.u8( at + 12, 'E' );
   editor.fixChecksum( checksum_ );
   Heard heard;
   editor.finish( heard );
   EXPECT_EQ( heard.goodbye, frame( "End" ) );
}

// What follows the covered bytes is left out.
TEST( EditorTest, AChecksumMayEndWhereBytesAreLeftOut ) {
   auto const frame = []( std::string const & covered, std::string const & tail ) {
      auto ip = with( ip4, covered, false );
      ip.payload += tail;
      return ipv4( ip );
   };
   auto const all = packet( frame( "ab" + hex( ".." ) + "one", "tail" ) );
   auto const at = all.layers.message;
   Editor editor( all );
   editor.u8( at + 4, '0' );
   editor.remove( at + 7, 4 );
   editor.fixChecksum( { .at = at + 2, .begin = at, .end = at + 7 } );
   Heard heard;
   editor.finish( heard );
   EXPECT_EQ( heard.goodbye, frame( "ab" + hex( ".." ) + "0ne", "" ) );
}

} // namespace
} // namespace Derivation::Test::EditorCases
