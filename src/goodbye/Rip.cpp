#include "goodbye/Rip.h"

#include "goodbye/Bytes.h"

#include <tins/rawpdu.h>

namespace Goodbye {

Frame ripPoison( Mac const & source, Ipv4 const & address,
                 std::vector< Ipv4Prefix > const & routes ) {
   constexpr U16 port = 520, ofInternet = 2;
   constexpr U8 response = 2, version = 2, unreachable = 16;
   Bytes unit;
   unit.u8( response ).u8( version ).u16( 0 );
   for ( auto const & route : routes ) {
      unit.u16( ofInternet ).u16( 0 ).ip( route.address & route.mask() ).ip( route.mask() );
      unit.u32( 0 ).u32( unreachable ); // next hop: the sender
   }
   return udpFrame( { source, address, Ipv4( "224.0.0.9" ) }, port, Tins::RawPDU( unit.view() ) );
}

} // namespace Goodbye
