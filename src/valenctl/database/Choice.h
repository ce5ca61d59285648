// Which interfaces of which hosts a command is about, by what the daemons have written.
#pragma once

#include "valenctl/database/Hosts.h"

namespace Valenctl {

// An interface of one of several hosts.
struct Chosen {
   Host const * host;
   std::string interface;
};

// Nothing can be chosen as it was asked for.
class NoSuchChoice : public std::runtime_error {
 public:
   using runtime_error::runtime_error;
};

// The chosen interfaces of the hosts that are not stale, sorted by host; pointers into `hosts`. `selection` is as the
// API's methods take it: "interfaces", "vrf", "device", "ready" or "all". An interface that was named must be on each
// of the hosts, a VRF on one of them at least. Throws NoSuchChoice.
std::vector< Chosen > choose( std::vector< Host > const & hosts, Json const & selection );

} // namespace Valenctl
