// The options of IPv4 (RFC 791, 3.1) and those of an IPv6 hop-by-hop header (RFC 8200, 4.2).
#pragma once

#include "derivation/Reader.h"

namespace Derivation {

// Read all options. Throw Refused if they do not fill the header, or if receivers that do not know an option drop
// the packet for it.
void verifyIpv4Options( Reader options );
void verifyHopByHopOptions( Reader options );

} // namespace Derivation
