// The Internet Group Management Protocol: version 2 (RFC 2236) and version 3 (RFC 3376).
#pragma once

#include "goodbye/Layers.h"

#include <vector>

namespace Goodbye {

// A Leave Group message to all routers.
Frame igmp2Leave( Mac const & source, Ipv4 const & address, Ipv4 const & group );

// The maximum number of groups in a report of 1500 bytes.
inline constexpr std::size_t maxIgmp3Groups = 183;

// A report with a record for each group: change to include mode without sources.
Frame igmp3Leave( Mac const & source, Ipv4 const & address, std::vector< Ipv4 > const & groups );

} // namespace Goodbye
