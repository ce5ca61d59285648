#include "goodbye/Layers.h"

#include "goodbye/Bytes.h"

#include <tins/ethernetII.h>
#include <tins/ip.h>
#include <tins/ipv6.h>
#include <tins/rawpdu.h>
#include <tins/udp.h>

namespace Goodbye {

namespace {

Frame bytesOf( Tins::EthernetII frame ) {
   auto const bytes = frame.serialize();
   return Frame( bytes.begin(), bytes.end() );
}

// RFC 1112, 6.4: the low 23 bits of the group.
Mac groupMac( Ipv4 const & group ) {
   U32 const inNetworkOrder = group;
   auto const * const bytes = reinterpret_cast< U8 const * >( &inNetworkOrder );
   U8 const mac[] = { 1, 0, 0x5e, static_cast< U8 >( bytes[ 1 ] & 0x7f ), bytes[ 2 ], bytes[ 3 ] };
   return Mac( mac );
}

// RFC 2464, 7: the low 32 bits of the group.
Mac groupMac( Ipv6 const & group ) {
   auto const * const bytes = group.begin();
   U8 const mac[] = { 0x33, 0x33, bytes[ 12 ], bytes[ 13 ], bytes[ 14 ], bytes[ 15 ] };
   return Mac( mac );
}

template < class Address > Tins::EthernetII ethernet( Route< Address > const & route ) {
   return Tins::EthernetII( groupMac( route.destination ), route.sourceMac );
}

Tins::IP ipv4( Route< Ipv4 > const & route, Marks const & marks ) {
   Tins::IP ip( route.destination, route.source );
   ip.ttl( marks.timeToLive );
   ip.tos( marks.typeOfService );
   return ip;
}

Tins::IPv6 ipv6( Route< Ipv6 > const & route, U8 hopLimit ) {
   Tins::IPv6 ip( route.destination, route.source );
   ip.hop_limit( hopLimit );
   return ip;
}

} // namespace

Frame ethernetFrame( Mac const & source, Mac const & destination, U16 etherType,
                     std::string const & payload ) {
   Tins::EthernetII frame( destination, source );
   frame.payload_type( etherType );
   return bytesOf( frame / Tins::RawPDU( payload ) );
}

Frame ipv4Frame( Route< Ipv4 > const & route, U8 protocol, std::string const & payload,
                 Marks const & marks ) {
   auto ip = ipv4( route, marks );
   ip.protocol( protocol );
   return bytesOf( ethernet( route ) / ip / Tins::RawPDU( payload ) );
}

// The packet library writes one byte of padding too many after an option, into the payload.
Frame routerAlertFrame( Route< Ipv4 > const & route, U8 protocol, std::string const & payload ) {
   constexpr U16 etherType = 0x0800;
   constexpr std::size_t headerBytes = 24, checksumAt = 10;
   constexpr U32 routerAlert = 0x94040000;
   constexpr Marks marks;
   Bytes header;
   header.u8( 4 << 4 | headerBytes / 4 ).u8( marks.typeOfService );
   header.u16( static_cast< unsigned >( headerBytes + payload.size() ) );
   header.u32( 0 ).u8( marks.timeToLive ).u8( protocol ).u16( 0 );
   header.ip( route.source ).ip( route.destination ).u32( routerAlert );
   header.u16At( checksumAt, internetChecksum( header.view() ) );
   return ethernetFrame( route.sourceMac, groupMac( route.destination ), etherType,
                         header.view() + payload );
}

Frame ipv6Frame( Route< Ipv6 > const & route, U8 hopLimit, U8 protocol,
                 std::string const & payload ) {
   auto ip = ipv6( route, hopLimit );
   ip.next_header( protocol );
   return bytesOf( ethernet( route ) / ip / Tins::RawPDU( payload ) );
}

Frame ipv6Frame( Route< Ipv6 > const & route, U8 hopLimit, Tins::PDU const & payload ) {
   return bytesOf( ethernet( route ) / ipv6( route, hopLimit ) / payload );
}

Frame udpFrame( Route< Ipv4 > const & route, U16 port, Tins::PDU const & payload,
                Marks const & marks ) {
   return bytesOf( ethernet( route ) / ipv4( route, marks ) / Tins::UDP( port, port ) / payload );
}

Frame udpFrame( Route< Ipv6 > const & route, U16 port, Tins::PDU const & payload, U8 hopLimit ) {
   return ipv6Frame( route, hopLimit, Tins::UDP( port, port ) / payload );
}

} // namespace Goodbye
