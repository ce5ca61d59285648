// The layers below a goodbye: Ethernet, IPv4, IPv6 and UDP, built with the packet library.
#pragma once

#include "goodbye/Addresses.h"

#include <string>
#include <tins/pdu.h>

namespace Goodbye {

// The bytes of an Ethernet frame without its frame check sequence, padded to the minimum of 60 bytes.
using Frame = std::string;

// The sender and the destination. The destination's MAC address follows from its multicast address.
template < class Address > struct Route {
   Mac sourceMac;
   Address source;
   Address destination; // a multicast address
};

Frame ethernetFrame( Mac const & source, Mac const & destination, U16 etherType,
                     std::string const & payload );

// Fields of the IPv4 header.
struct Marks {
   U8 timeToLive = 1;       // link-local: never forwarded
   U8 typeOfService = 0xc0; // precedence: internetwork control
};

Frame ipv4Frame( Route< Ipv4 > const & route, U8 protocol, std::string const & payload,
                 Marks const & marks = {} );
// With the router alert option of RFC 2113: routers examine the packet although it is not sent to them.
Frame routerAlertFrame( Route< Ipv4 > const & route, U8 protocol, std::string const & payload );
Frame ipv6Frame( Route< Ipv6 > const & route, U8 hopLimit, U8 protocol,
                 std::string const & payload );
Frame ipv6Frame( Route< Ipv6 > const & route, U8 hopLimit, Tins::PDU const & payload );

// With the same source and destination port, as in multicast protocols.
Frame udpFrame( Route< Ipv4 > const & route, U16 port, Tins::PDU const & payload,
                Marks const & marks = {} );
Frame udpFrame( Route< Ipv6 > const & route, U16 port, Tins::PDU const & payload, U8 hopLimit );

} // namespace Goodbye
