#include "derivation/Lldp.h"

#include "derivation/Editor.h"
#include "derivation/Words.h"

namespace Derivation {

namespace {

enum Type : U8 {
   end = 0,
   chassisId = 1,
   portId = 2,
   timeToLive = 3,
   lastText = 6, // the description of the port, the name and the description of the system
   capabilities = 7,
   managementAddress = 8,
   organization = 127
};
constexpr std::size_t maxIdBytes = 255, maxTextBytes = 255;
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

// By the number of an address family; 0 for others than IPv4 and IPv6.
std::size_t addressBytes( U8 family ) {
   return family == 1 ? 4 : family == 2 ? 16 : 0;
}

// The subtypes of ids of a chassis and of a port have different numbers.
std::string idText( Reader id, U8 macSubtype, U8 addressSubtype ) {
   require( id.left() > 1 && id.left() <= 1 + maxIdBytes, Reason::badLength );
   constexpr U8 lastSubtype = 7;
   auto const subtype = id.u8();
   require( subtype >= 1 && subtype <= lastSubtype, Reason::badValue );
   auto const value = id.bytes( id.left() );
   if ( subtype == macSubtype ) {
      require( value.size() == 6, Reason::badLength );
      return macText( value );
   }
   if ( subtype == addressSubtype ) {
      auto const bytes = addressBytes( u8At( value, 0 ) );
      require( bytes == 0 ? value.size() > 1 : value.size() == 1 + bytes, Reason::badLength );
      return bytes == 0 ? nameText( value ) : ipText( value.substr( 1 ) );
   }
   return nameText( value );
}

// 8.5.9.
void verifyManagementAddress( Reader & value ) {
   constexpr std::size_t longestAddress = 31;
   std::size_t const length = value.u8();
   require( length >= 2 && length <= 1 + longestAddress, Reason::badLength );
   auto const bytes = addressBytes( value.u8() );
   require( bytes == 0 || length == 1 + bytes, Reason::badLength );
   value.skip( length - 1 );
   value.skip( 1 + 4 ); // the number of the interface
   value.skip( value.u8() );
   require( value.atEnd(), Reason::badLength );
}

// 8.5.5 to 8.6.
void verify( unsigned type, Reader value ) {
   constexpr std::size_t capabilitiesBytes = 4, leastOrganization = 4;
   require( type > timeToLive, Reason::tlvMissing );
   if ( type <= lastText ) {
      require( value.left() <= maxTextBytes, Reason::badLength );
   } else if ( type == capabilities ) {
      require( value.left() == capabilitiesBytes, Reason::badLength );
   } else if ( type == managementAddress ) {
      verifyManagementAddress( value );
   } else if ( type == organization ) {
      require( value.left() >= leastOrganization, Reason::badLength );
   }
}

// After the mandatory ones.
void verifyOptional( Reader & message ) {
   while ( true ) {
      auto const tlv = next( message );
      if ( tlv.type == end ) {
         require( tlv.value.atEnd(), Reason::badLength );
         return;
      }
      verify( tlv.type, tlv.value );
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
