// The formats of the data of DNS records.
#pragma once

#include "derivation/DnsReader.h"

namespace Derivation {

// Throws Refused if the data are not of the format of their type. Those of unknown types are taken as they are (RFC 3597, 3).
void verifyData( DnsReader & dns, DnsRecord const & record );

} // namespace Derivation
