#include "goodbye/Lldp.h"

#include "goodbye/Bytes.h"

namespace Goodbye {

namespace {

constexpr U16 etherType = 0x88cc;
constexpr std::size_t maxIdBytes = 255;
enum Tlv : U8 { chassisId = 1, portId = 2, timeToLive = 3 };

// The numbers of the types of ids.
struct Subtypes {
   U8 mac;
   U8 interfaceName;
   U8 local;
};
constexpr Subtypes ofChassis{ 4, 6, 7 };
constexpr Subtypes ofPort{ 3, 5, 7 };

LldpId parseId( std::string const & text, Subtypes const & subtypes ) {
   auto const colon = text.find( ':' );
   auto const kind = text.substr( 0, colon );
   auto const value = colon == std::string::npos ? "" : text.substr( colon + 1 );
   if ( kind == "mac" ) {
      return { subtypes.mac, Bytes().mac( parseMac( value ) ).view() };
   }
   if ( ( kind != "name" && kind != "local" ) || value.empty() ) {
      throw BadText( "\"" + text + "\" is not mac:ADDRESS, name:TEXT or local:TEXT" );
   }
   if ( value.size() > maxIdBytes ) {
      throw BadText( "an id of " + std::to_string( value.size() ) + " bytes; at most " +
                     std::to_string( maxIdBytes ) + " fit" );
   }
   return { kind == "name" ? subtypes.interfaceName : subtypes.local, value };
}

void add( Bytes & unit, Tlv type, std::string const & value ) {
   unit.u16( static_cast< unsigned >( type << 9 | value.size() ) ).text( value );
}

std::string bytesOf( LldpId const & id ) {
   return Bytes().u8( id.subtype ).text( id.value ).view();
}

} // namespace

LldpId parseLldpChassis( std::string const & text ) {
   return parseId( text, ofChassis );
}

LldpId parseLldpPort( std::string const & text ) {
   return parseId( text, ofPort );
}

Frame lldpShutdown( LldpShutdown const & shutdown ) {
   Bytes unit;
   add( unit, chassisId, bytesOf( shutdown.chassis ) );
   add( unit, portId, bytesOf( shutdown.port ) );
   add( unit, timeToLive, Bytes().u16( 0 ).view() );
   unit.u16( 0 ); // the end
   return ethernetFrame( shutdown.source, shutdown.destination, etherType, unit.view() );
}

} // namespace Goodbye
