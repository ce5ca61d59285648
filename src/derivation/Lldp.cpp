#include "derivation/Lldp.h"

#include "derivation/Editor.h"
#include "derivation/Words.h"

namespace Derivation {

namespace {

enum Type : U8 { end = 0, chassisId = 1, portId = 2, timeToLive = 3 };
constexpr std::size_t maxIdBytes = 255;
constexpr std::string_view nearestBridge( "\x01\x80\xc2\0\0\x0e", 6 );

struct Tlv {
   unsigned type;
   Reader value;
};

Tlv next( Reader & message ) {
   unsigned const head = message.u16();
   return { head >> 9, message.part( head & 0x1ff, Reason::tlvBeyondEnd ) };
}

Reader mandatory( Reader & message, Type type ) {
   auto const tlv = next( message );
   require( tlv.type == type, Reason::tlvMissing );
   return tlv.value;
}

// The subtypes of ids of a chassis and of a port have different numbers.
std::string idText( Reader id, U8 macSubtype, U8 addressSubtype ) {
   require( id.left() > 1 && id.left() <= 1 + maxIdBytes, Reason::badLength );
   auto const subtype = id.u8();
   auto const value = id.bytes( id.left() );
   constexpr std::string_view ipv4( "\1" ), ipv6( "\2" ); // numbers of address families
   if ( subtype == macSubtype && value.size() == 6 ) {
      return macText( value );
   }
   if ( subtype == addressSubtype && ( ( value.starts_with( ipv4 ) && value.size() == 5 ) ||
                                       ( value.starts_with( ipv6 ) && value.size() == 17 ) ) ) {
      return ipText( value.substr( 1 ) );
   }
   return nameText( value );
}

// After the mandatory ones.
void verifyOptional( Reader & message ) {
   while ( true ) {
      auto const tlv = next( message );
      if ( tlv.type == end ) {
         require( tlv.value.atEnd(), Reason::badLength );
         return;
      }
      require( tlv.type > timeToLive, Reason::tlvMissing );
   }
}

} // namespace

std::optional< Heard > lldp( Packet const & packet ) {
   auto message = packet.message();
   Heard heard;
   heard.speaker = "chassis " + idText( mandatory( message, chassisId ), 4, 5 );
   heard.speaker += ", port " + idText( mandatory( message, portId ), 3, 4 );
   auto ttl = mandatory( message, timeToLive );
   require( ttl.left() == 2, Reason::badLength );
   auto const ttlAt = ttl.at();
   auto const seconds = ttl.u16();
   verifyOptional( message );

   if ( packet.destinationMac() != nearestBridge ) {
      heard.part = "for " + macText( packet.destinationMac() ); // each scope gets its own
   }
   heard.says = valueText( "ttl", seconds );
   heard.holdTime = std::chrono::seconds( seconds );
   heard.leaves = seconds == 0;
   if ( !heard.leaves ) {
      Editor editor( packet );
      editor.u16( ttlAt, 0 );
      editor.finish( heard );
      heard.change = changeText( "ttl", seconds, 0 );
   }
   return heard;
}

} // namespace Derivation
