// Multicast DNS (RFC 6762).
#pragma once

#include "derivation/Heard.h"
#include "derivation/Layers.h"

namespace Derivation {

// The goodbye is the response with a time to live of 0 in each of its records (RFC 6762, 10.1): in the additional ones as well, since
// receivers keep those too. A response has a part of the records. Queries are of no speaker.
std::optional< Heard > mdns( Packet const & packet );

} // namespace Derivation
