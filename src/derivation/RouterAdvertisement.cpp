#include "derivation/RouterAdvertisement.h"

#include "derivation/Editor.h"
#include "derivation/Words.h"

#include <algorithm>

namespace Derivation {

namespace {

constexpr U8 multicast = 0xff; // the first byte of such addresses

constexpr std::size_t word = 8; // options are counted in

// How long those for router advertisements are, in words. Hosts ignore others (RFC 4861, 6.1.2).
struct Option {
   U8 type;
   U8 least, most;
};
constexpr U8 any = 255;
constexpr U8 route = 24, servers = 25, domains = 31, translator = 38;
constexpr Option options[] = {
   { 1, 1, any },        // the source's link-layer address (RFC 4861, 4.6.1)
   { 3, 4, 4 },          // a prefix (4.6.2)
   { 5, 1, 1 },          // the MTU (4.6.4)
   { 7, 1, 1 },          // the interval of advertisements (RFC 6275, 7.3)
   { 8, 1, 1 },          // a home agent (7.4)
   { 11, 4, any },       // how the address was generated (RFC 3971, 5.1)
   { 12, 3, any },       // a signature (5.2)
   { 13, 2, 2 },         // a timestamp (5.3.1)
   { 23, 3, 3 },         // an anchor point of mobility (RFC 5380, 4)
   { route, 1, 3 },      // RFC 4191, 2.3
   { servers, 3, any },  // of names (RFC 8106, 5.1)
   { 26, 1, 1 },         // more flags (RFC 5175, 4)
   { domains, 2, any },  // to search (RFC 8106, 5.2)
   { 32, 4, any },       // the signature of a proxy (RFC 6496, 5.1)
   { 34, 2, 3 },         // a context of compression (RFC 6775, 4.2)
   { 35, 3, 3 },         // a border router (4.3)
   { 36, 1, 1 },         // capabilities of compression (RFC 7400, 3.3)
   { 37, 1, any },       // a captive portal (RFC 8910, 2.3)
   { translator, 2, 2 }, // its prefix (RFC 8781, 4)
};

// A longer prefix takes more words.
void verifyRoute( Reader value ) {
   constexpr std::size_t bits = 128;
   std::size_t const length = value.u8();
   value.skip( 1 + 4 ); // the preference and the lifetime
   require( length <= bits, Reason::badValue );
   require( length <= 8 * value.left(), Reason::badLength );
}

// Names without compression, and padding.
void verifyDomains( Reader value ) {
   constexpr U8 longest = 63;
   value.skip( 2 + 4 ); // reserved; the lifetime
   while ( !value.atEnd() ) {
      while ( auto const length = value.u8() ) {
         require( length <= longest, Reason::badValue );
         value.skip( length );
      }
   }
}

void verify( U8 type, Reader value ) {
   auto const words = ( value.left() + 2 ) / word;
   auto const * const found =
      std::find_if( std::begin( options ), std::end( options ),
                    [ & ]( auto const & one ) { return one.type == type; } );
   if ( found == std::end( options ) ) {
      return;
   }
   require( words >= found->least && words <= found->most, Reason::badLength );
   if ( type == servers ) {
      require( words % 2 == 1, Reason::badLength );
   } else if ( type == translator ) {
      constexpr U16 codeMask = 7, lastCode = 5; // of the prefix length
      require( ( value.u16() & codeMask ) <= lastCode, Reason::badValue );
   } else if ( type == route ) {
      verifyRoute( value );
   } else if ( type == domains ) {
      verifyDomains( value );
   }
}

void verifyOptions( Reader & message ) {
   while ( !message.atEnd() ) {
      auto const type = message.u8();
      std::size_t const length = word * message.u8();
      require( length != 0, Reason::badLength );
      verify( type, message.part( length - 2, Reason::tlvBeyondEnd ) );
   }
}

bool isLinkLocal( std::string_view address ) {
   return u8At( address, 0 ) == 0xfe && ( u8At( address, 1 ) & 0xc0 ) == 0x80;
}

} // namespace

std::optional< Heard > routerAdvertisement( Packet const & packet ) {
   auto const & layers = packet.layers;
   auto message = packet.message();
   message.skip( 1 ); // the type
   auto const code = message.u8();
   Checksum const checksum{
      .at = message.at(), .begin = layers.message, .end = layers.end, .pseudoHeader = true };
   message.skip( 2 + 2 ); // the checksum; the hop limit for hosts, and flags
   auto const lifetimeAt = message.at();
   auto const lifetime = message.u16();
   message.skip( 4 + 4 ); // timers
   verifyOptions( message );
   requireCorrect( packet, checksum );
   requireUnforwarded( packet );
   require( code == 0 && isLinkLocal( packet.source() ), Reason::badValue );
   if ( u8At( packet.destination(), 0 ) != multicast ) {
      return std::nullopt;
   }

   Heard heard;
   heard.speaker = "router " + ipText( packet.source() );
   heard.says = valueText( "router lifetime", lifetime );
   heard.holdTime = std::chrono::seconds( lifetime );
   heard.leaves = lifetime == 0;
   if ( !heard.leaves ) {
      Editor editor( packet );
      editor.u16( lifetimeAt, 0 );
      editor.fixChecksum( checksum );
      editor.finish( heard );
      heard.change = changeText( "router lifetime", lifetime, 0 );
   }
   return heard;
}

} // namespace Derivation
