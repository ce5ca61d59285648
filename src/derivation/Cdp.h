// The Cisco Discovery Protocol.
#pragma once

#include "derivation/Heard.h"
#include "derivation/Layers.h"

namespace Derivation {

// Its time to live is 0. All TLVs stay.
std::optional< Heard > cdp( Packet const & packet );

} // namespace Derivation
