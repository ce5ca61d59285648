#include "goodbye/Ospf.h"

#include "goodbye/Bytes.h"

namespace Goodbye {

Frame ospfGoodbye( OspfGoodbye const & goodbye ) {
   constexpr U8 protocol = 89, version = 2, hello = 1;
   constexpr U8 externalRouting = 2; // the option is not set in a stub area
   constexpr std::size_t lengthAt = 2, checksumAt = 12;
   Bytes unit;
   unit.u8( version ).u8( hello ).u16( 0 ).ip( goodbye.router ).ip( goodbye.area ).u16( 0 );
   unit.zeros( 2 + 8 ); // no authentication
   unit.ip( goodbye.address.mask() ).u16( goodbye.helloInterval );
   unit.u8( goodbye.stub ? 0 : externalRouting ).u8( 0 ); // priority 0: never elected
   unit.u32( goodbye.deadInterval ).zeros( 4 + 4 );       // no designated router, no backup
   unit.u16At( lengthAt, static_cast< unsigned >( unit.size() ) );
   unit.u16At( checksumAt, internetChecksum( unit.view() ) );
   Route< Ipv4 > const route{ goodbye.source, goodbye.address.address, Ipv4( "224.0.0.5" ) };
   return ipv4Frame( route, protocol, unit.view() );
}

} // namespace Goodbye
