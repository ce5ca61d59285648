#include "goodbye/Pim.h"

#include "goodbye/Bytes.h"

namespace Goodbye {

namespace {

constexpr U8 protocol = 103;
constexpr std::size_t checksumAt = 2;

Bytes hello() {
   constexpr unsigned version = 2, type = 0, holdTime = 1;
   Bytes hello;
   hello.u8( version << 4 | type ).u8( 0 ).u16( 0 );
   hello.u16( holdTime ).u16( 2 ).u16( 0 );
   return hello;
}

} // namespace

Frame pimGoodbye( Mac const & source, Ipv4 const & address ) {
   auto unit = hello();
   unit.u16At( checksumAt, internetChecksum( unit.view() ) );
   return ipv4Frame( { source, address, Ipv4( "224.0.0.13" ) }, protocol, unit.view() );
}

Frame pimGoodbye( Mac const & source, Ipv6 const & linkLocal ) {
   Route< Ipv6 > const route{ source, linkLocal, Ipv6( "ff02::d" ) };
   auto unit = hello();
   unit.u16At( checksumAt, internetChecksum( pseudoHeader( route.source, route.destination,
                                                           protocol, unit.size() ) +
                                             unit.view() ) );
   return ipv6Frame( route, 1, protocol, unit.view() );
}

} // namespace Goodbye
