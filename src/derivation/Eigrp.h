// The Enhanced Interior Gateway Routing Protocol (RFC 7868).
#pragma once

#include "derivation/Heard.h"
#include "derivation/Layers.h"

namespace Derivation {

// The goodbye is the Hello with 255 in each of the coefficients K1 to K5, which no router uses. A router may be in
// several autonomous systems: each is a part. Other packets are of no speaker.
std::optional< Heard > eigrp( Packet const & packet );

} // namespace Derivation
