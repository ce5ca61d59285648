// The kernel's devices and their addresses.
#pragma once

#include "goodbye/Addresses.h"

#include <optional>
#include <string>
#include <vector>

namespace Valenctl {

// Each is empty when the device does not have one.
struct DeviceAddresses {
   std::optional< Goodbye::Mac > mac;
   std::optional< Goodbye::Ipv4Prefix > ipv4; // the first
   std::optional< Goodbye::Ipv6 > linkLocal;  // the first
};

// Asks the kernel for the addresses of `device` in the network namespace `netNs`: a name that
// `ip netns` lists, a path if it contains a slash, or empty for the process's own namespace. Throws
// std::runtime_error with what does not exist or is not permitted.
DeviceAddresses deviceAddresses( std::string const & device, std::string const & netNs );

// The devices in that namespace, by their index. Throws the same.
std::vector< std::string > deviceNames( std::string const & netNs );

} // namespace Valenctl
