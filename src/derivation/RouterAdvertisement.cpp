#include "derivation/RouterAdvertisement.h"

#include "derivation/Editor.h"
#include "derivation/Words.h"

namespace Derivation {

namespace {

constexpr U8 multicast = 0xff; // the first byte of such addresses

void verifyOptions( Reader & message ) {
   while ( !message.atEnd() ) {
      message.skip( 1 ); // the type
      std::size_t const length = 8U * message.u8();
      require( length != 0, Reason::badLength );
      message.part( length - 2, Reason::tlvBeyondEnd );
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
