// The multicast groups that a device is a member of, as the kernel lists them, and the goodbyes that leave them.
#pragma once

#include "derivation/Heard.h"
#include "platform/quill/Int.h"

namespace Derivation {

// Without a report, routers stop to forward a group after twice their query interval and a response interval (RFC 3376, 8.4;
// RFC 3810, 9.4).
inline constexpr std::chrono::seconds membershipHoldTime( 260 );

// A device that is a member of groups. Addresses are their bytes in network order.
struct Member {
   std::string mac;
   std::string ipv4;      // empty: it leaves no IPv4 group
   std::string linkLocal; // of IPv6; empty: it leaves no IPv6 group
   std::size_t mtu = 1500;
   // The versions that the routers speak.
   int igmpVersion = 3; // or 2
   int mldVersion = 2;  // or 1
};

// What is heard of the member in each of the frames that it takes: the greeting joins groups, and the goodbye leaves them.
// The same groups in another order make no difference.
//
// 224.0.0.x and ff02:: are never left, nor what is not reported at all: the host hears its neighbors in these groups up to its
// end, and a switch sends a group only where it was reported.
std::vector< Heard > membershipsOf( Member const & member, std::vector< std::string > groups );

} // namespace Derivation
