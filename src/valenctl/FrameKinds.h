// The kinds of goodbye frames that `valenctl frame` builds.
#pragma once

#include "valenctl/FrameBuilds.h"

#include <span>

namespace Valenctl {

struct FrameKind {
   // Which source addresses its frames may have.
   enum class Source : U8 { mac, ipv4, ipv6, either };

   char const * name;
   char const * goodbye; // what says goodbye in it
   char const * clause;  // where that is laid down
   char const * effect;  // what who receives it does, in lines of a terminal
   Source source;
   FrameBuild ( *build )( CLI::App & app );
};

// In the order in which help lists them.
std::span< FrameKind const > frameKinds();

} // namespace Valenctl
