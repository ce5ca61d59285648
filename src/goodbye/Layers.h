// The layers that carry a goodbye: Ethernet, IPv4, IPv6 and UDP, by the packet library.
#pragma once

#include "goodbye/Addresses.h"

#include <string>
#include <tins/pdu.h>

namespace Goodbye {

// The bytes of one Ethernet frame, without the checksum at its end, padded to the 60 bytes that are
// the least on a wire.
using Frame = std::string;

// From whom and to whom. A multicast address has the MAC address that follows from it.
template < class Address > struct Route {
   Mac sourceMac;
   Address source;
   Address destination; // a multicast address
};

Frame ethernetFrame( Mac const & source, Mac const & destination, U16 etherType,
                     std::string const & payload );

// How an IPv4 packet is marked.
struct Marks {
   U8 timeToLive = 1;       // a neighbour's, never forwarded
   U8 typeOfService = 0xc0; // precedence: internetwork control
};

Frame ipv4Frame( Route< Ipv4 > const & route, U8 protocol, std::string const & payload,
                 Marks const & marks = {} );
// With the router alert option of RFC 2113, which has routers look at what is not sent to them.
Frame routerAlertFrame( Route< Ipv4 > const & route, U8 protocol, std::string const & payload );
Frame ipv6Frame( Route< Ipv6 > const & route, U8 hopLimit, U8 protocol,
                 std::string const & payload );
Frame ipv6Frame( Route< Ipv6 > const & route, U8 hopLimit, Tins::PDU const & payload );

// From and to the same port, as multicast protocols use it.
Frame udpFrame( Route< Ipv4 > const & route, U16 port, Tins::PDU const & payload,
                Marks const & marks = {} );
Frame udpFrame( Route< Ipv6 > const & route, U16 port, Tins::PDU const & payload, U8 hopLimit );

} // namespace Goodbye
