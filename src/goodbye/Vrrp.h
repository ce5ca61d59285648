// The Virtual Router Redundancy Protocol: version 2 (RFC 3768) and version 3 (RFC 5798).
#pragma once

#include "goodbye/Layers.h"

#include <optional>
#include <vector>

namespace Goodbye {

template < class Address > struct VrrpGoodbye {
   U8 id = 1;                        // of the virtual router, from 1
   Address source;                   // the interface's own, link-local if IPv6
   std::vector< Address > addresses; // of the virtual router
   U16 interval = 1;                 // of advertisements, in the version's unit
   std::optional< Mac > sourceMac;   // default: the virtual router's
};

// The maximum number of addresses of a virtual router: the IPv6 addresses that fit in 1500 bytes.
inline constexpr std::size_t maxVrrpAddresses = 90;

// Advertisements with priority 0: the master resigns. The interval is in seconds in version 2, and in
// hundredths of a second, up to 4095, in version 3.
Frame vrrp2Goodbye( VrrpGoodbye< Ipv4 > const & goodbye );
Frame vrrp3Goodbye( VrrpGoodbye< Ipv4 > const & goodbye );
Frame vrrp3Goodbye( VrrpGoodbye< Ipv6 > const & goodbye );

} // namespace Goodbye
