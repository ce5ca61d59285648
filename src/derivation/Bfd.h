// Bidirectional Forwarding Detection over one hop (RFC 5881) and over several (RFC 5883).
#pragma once

#include "derivation/Heard.h"
#include "derivation/Layers.h"

namespace Derivation {

// The goodbye is the packet in state AdminDown (RFC 5880, 6.8.16), which answers no poll and polls not. The discriminators stay,
// since they say which session it is. A simple password stays as well.
std::optional< Heard > bfd( Packet const & packet );

} // namespace Derivation
