// RIP version 2, RFC 2453.
#pragma once

#include "goodbye/Layers.h"

#include <vector>

namespace Goodbye {

// The maximum number of routes in one message.
inline constexpr std::size_t maxRipRoutes = 25;

// A response with the metric 16 (unreachable) for each route.
Frame ripPoison( Mac const & source, Ipv4 const & address,
                 std::vector< Ipv4Prefix > const & routes );

} // namespace Goodbye
