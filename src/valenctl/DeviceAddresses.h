// What a kernel device is called on the network.
#pragma once

#include "goodbye/Addresses.h"

#include <optional>
#include <string>

namespace Valenctl {

// A device has each of these or not.
struct DeviceAddresses {
   std::optional< Goodbye::Mac > mac;
   std::optional< Goodbye::Ipv4Prefix > ipv4; // the first
   std::optional< Goodbye::Ipv6 > linkLocal;  // the first
};

// Asks the kernel about `device` in the network namespace `netNs`: a name as of `ip netns`, a path
// if it has a slash, or nothing for the process's own. Throws std::runtime_error, whose text says
// what is not there or not allowed.
DeviceAddresses deviceAddresses( std::string const & device, std::string const & netNs );

} // namespace Valenctl
