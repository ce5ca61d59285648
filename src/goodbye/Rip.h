// RIP version 2, RFC 2453.
#pragma once

#include "goodbye/Layers.h"

#include <vector>

namespace Goodbye {

// The most routes that one message holds.
inline constexpr std::size_t maxRipRoutes = 25;

// A response that gives each route the metric 16: unreachable.
Frame ripPoison( Mac const & source, Ipv4 const & address,
                 std::vector< Ipv4Prefix > const & routes );

} // namespace Goodbye
