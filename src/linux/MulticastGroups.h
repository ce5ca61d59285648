// The multicast groups that a device is a member of, and the addresses with which the kernel reports them.
#pragma once

#include "linux/NetNs.h"

#include <map>
#include <set>
#include <string>
#include <vector>

namespace Valen::Linux {

// Addresses are their bytes in network order; those that the device does not have are empty.
struct MulticastGroups {
   std::string mac;
   std::string ipv4;      // the first one, from which the kernel reports IPv4 groups
   std::string linkLocal; // the same for IPv6
   unsigned mtu = 0;
   int igmpVersion = 3;               // that the routers speak
   std::vector< std::string > groups; // of IPv4 and IPv6

   bool operator==( MulticastGroups const & ) const = default;
};

// Reads those of all `devices`, which are given by their indexes, from /proc; any thread may. A device that does not
// exist is not in the result. The files have all devices of the namespace, so that reading them once for many is
// much faster. Throws Quill::ErrnoException.
std::map< U32, MulticastGroups > multicastGroups( NetNs const & netNs,
                                                  std::set< U32 > const & devices );

} // namespace Valen::Linux
