// The Link Layer Discovery Protocol (IEEE 802.1AB).
#pragma once

#include "derivation/Heard.h"
#include "derivation/Layers.h"

namespace Derivation {

// Receivers of a time to live of 0 ignore the other TLVs, which stay.
std::optional< Heard > lldp( Packet const & packet );

} // namespace Derivation
