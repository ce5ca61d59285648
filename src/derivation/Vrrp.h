// The Virtual Router Redundancy Protocol: version 2 (RFC 3768) and version 3 (RFC 5798).
#pragma once

#include "derivation/Heard.h"
#include "derivation/Layers.h"

namespace Derivation {

// Only the master advertises. It resigns with priority 0.
std::optional< Heard > vrrp( Packet const & packet );

// Inside an authentication header (RFC 4302), whose key is needed for a goodbye. Nothing if something else is inside.
std::optional< Heard > vrrpInAuthenticationHeader( Packet const & packet );

} // namespace Derivation
