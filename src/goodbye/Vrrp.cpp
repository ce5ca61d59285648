#include "goodbye/Vrrp.h"

#include "goodbye/Bytes.h"

namespace Goodbye {

namespace {

constexpr U8 protocol = 112;
constexpr U8 hopLimit = 255; // receivers drop others
constexpr U8 advertisement = 1;
constexpr U8 resigns = 0; // the priority
constexpr std::size_t checksumAt = 6;
Ipv4 const allRouters4( "224.0.0.18" );
Ipv6 const allRouters6( "ff02::12" );

Mac virtualMac( U8 family, U8 id ) {
   U8 const mac[] = { 0, 0, 0x5e, 0, family, id };
   return Mac( mac );
}

Route< Ipv4 > routeOf( VrrpGoodbye< Ipv4 > const & goodbye ) {
   return { goodbye.sourceMac.value_or( virtualMac( 1, goodbye.id ) ), goodbye.source,
            allRouters4 };
}

Route< Ipv6 > routeOf( VrrpGoodbye< Ipv6 > const & goodbye ) {
   return { goodbye.sourceMac.value_or( virtualMac( 2, goodbye.id ) ), goodbye.source,
            allRouters6 };
}

// The message up to its addresses, with an empty checksum.
template < class Address >
Bytes message( unsigned version, VrrpGoodbye< Address > const & goodbye ) {
   Bytes message;
   message.u8( version << 4 | advertisement ).u8( goodbye.id ).u8( resigns );
   message.u8( static_cast< unsigned >( goodbye.addresses.size() ) );
   message.u16( goodbye.interval ).u16( 0 );
   for ( auto const & address : goodbye.addresses ) {
      message.ip( address );
   }
   return message;
}

template < class Address > std::string version3( VrrpGoodbye< Address > const & goodbye ) {
   auto const route = routeOf( goodbye );
   auto unit = message( 3, goodbye );
   unit.u16At( checksumAt, internetChecksum( pseudoHeader( route.source, route.destination,
                                                           protocol, unit.size() ) +
                                             unit.view() ) );
   return unit.view();
}

} // namespace

Frame vrrp2Goodbye( VrrpGoodbye< Ipv4 > const & goodbye ) {
   // The high byte of the interval is the authentication type: no authentication.
   auto unit = message( 2, goodbye );
   unit.zeros( 8 ); // authentication data
   unit.u16At( checksumAt, internetChecksum( unit.view() ) );
   return ipv4Frame( routeOf( goodbye ), protocol, unit.view(), { hopLimit } );
}

Frame vrrp3Goodbye( VrrpGoodbye< Ipv4 > const & goodbye ) {
   return ipv4Frame( routeOf( goodbye ), protocol, version3( goodbye ), { hopLimit } );
}

Frame vrrp3Goodbye( VrrpGoodbye< Ipv6 > const & goodbye ) {
   return ipv6Frame( routeOf( goodbye ), hopLimit, protocol, version3( goodbye ) );
}

} // namespace Goodbye
