// The Hot Standby Router Protocol: version 1 (RFC 2281) and version 2.
#pragma once

#include "derivation/Heard.h"
#include "derivation/Layers.h"

namespace Derivation {

// The active router resigns. Messages other than hello and resign are nothing.
std::optional< Heard > hsrp( Packet const & packet );

} // namespace Derivation
