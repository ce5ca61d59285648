// Open Shortest Path First, version 2 (RFC 2328) and version 3 (RFC 5340).
#pragma once

#include "derivation/Heard.h"
#include "derivation/Layers.h"

namespace Derivation {

// The goodbye is the Hello without neighbors: a neighbor that is not listed ends the adjacency. Link-local signaling (RFC 5613)
// is left out, since it may ask for a graceful restart. A speaker without neighbors leaves already.
// Other packets are of no speaker.
std::optional< Heard > ospf2( Packet const & packet );
std::optional< Heard > ospf3( Packet const & packet );

} // namespace Derivation
