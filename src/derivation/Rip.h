// The Routing Information Protocol, versions 1 and 2 (RFC 2453), and RIPng for IPv6 (RFC 2080).
#pragma once

#include "derivation/Heard.h"
#include "derivation/Layers.h"

namespace Derivation {

// The goodbye is the response with metric 16 for every route: none can be reached. A response has a part of the routes. Passwords
// and the next hops of RIPng stay. Requests are of no speaker.
std::optional< Heard > rip( Packet const & packet );
std::optional< Heard > ripng( Packet const & packet );

} // namespace Derivation
