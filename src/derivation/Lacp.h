// The Link Aggregation Control Protocol (IEEE 802.1AX).
#pragma once

#include "derivation/Heard.h"
#include "derivation/Layers.h"

namespace Derivation {

// The actor is out of sync, and neither collects nor distributes. All else stays, as what it knows of the partner.
std::optional< Heard > lacp( Packet const & packet );

} // namespace Derivation
