// IPv6 router advertisements (RFC 4861).
#pragma once

#include "derivation/Heard.h"
#include "derivation/Layers.h"

namespace Derivation {

// Hosts stop using a router whose lifetime is 0 as their default router. Prefixes and routes (RFC 4191) stay valid. An
// answer to a single host is nothing: what is derived is for all of them.
std::optional< Heard > routerAdvertisement( Packet const & packet );

} // namespace Derivation
