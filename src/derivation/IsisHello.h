// The hellos of IS-IS (ISO 10589; RFC 5303).
#pragma once

#include "derivation/Heard.h"
#include "derivation/Layers.h"

namespace Derivation {

// On a LAN, the hello lists no neighbors; on a point-to-point link, its three-way state is down. PDUs other
// than hellos are nothing.
std::optional< Heard > isisHello( Packet const & packet );

} // namespace Derivation
