// Multicast groups of a host: the Internet Group Management Protocol (RFC 2236, RFC 3376) and Multicast Listener Discovery
// (RFC 2710, RFC 3810).
#pragma once

#include "derivation/Heard.h"
#include "derivation/Layers.h"

namespace Derivation {

// Reports, and messages that leave. They have no goodbye: the kernel sends a report only when a router asks, and often one for
// some of its groups, so the goodbye is made of its memberships (Memberships.h). Queries are of no speaker.
std::optional< Heard > igmp( Packet const & packet );
std::optional< Heard > mld( Packet const & packet );

} // namespace Derivation
