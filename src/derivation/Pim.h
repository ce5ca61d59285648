// Protocol Independent Multicast (RFC 7761).
#pragma once

#include "derivation/Heard.h"
#include "derivation/Layers.h"

namespace Derivation {

// The goodbye is the Hello with a hold time of 0. Other messages are of no speaker.
std::optional< Heard > pim( Packet const & packet );

} // namespace Derivation
