// Operations, administration and maintenance of links (IEEE 802.3, clause 57).
#pragma once

#include "derivation/Heard.h"
#include "derivation/Layers.h"

namespace Derivation {

// Its flags have the dying gasp. OAMPDUs other than Information are nothing.
std::optional< Heard > oam( Packet const & packet );

} // namespace Derivation
