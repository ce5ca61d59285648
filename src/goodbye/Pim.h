// Protocol Independent Multicast, RFC 7761.
#pragma once

#include "goodbye/Layers.h"

namespace Goodbye {

// A Hello with a hold time of 0.
Frame pimGoodbye( Mac const & source, Ipv4 const & address );
Frame pimGoodbye( Mac const & source, Ipv6 const & linkLocal );

} // namespace Goodbye
