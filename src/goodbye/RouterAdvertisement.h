// IPv6 Neighbor Discovery, RFC 4861.
#pragma once

#include "goodbye/Layers.h"

namespace Goodbye {

// A router advertisement to all nodes with a router lifetime of 0.
Frame routerAdvertisementGoodbye( Mac const & source, Ipv6 const & linkLocal );

} // namespace Goodbye
