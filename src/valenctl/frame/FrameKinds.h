// The kinds of goodbye frames that `valenctl frame` builds.
#pragma once

#include "valenctl/frame/FrameBuilds.h"

#include <span>

namespace Valenctl {

struct FrameKind {
   // Which source addresses its frames may have.
   enum class Source : U8 { mac, ipv4, ipv6, either };

   char const * name;
   char const * goodbye;                    // the protocol, and what makes the frame a goodbye
   char const * clause;                     // the standard that specifies it
   char const * effect;                     // what a receiver does, in lines of a terminal
   Source source;                           // what --ip may be
   FrameBuild ( *build )( CLI::App & app ); // adds the kind's options
};

// All kinds, in the order in which help lists them.
std::span< FrameKind const > frameKinds();

} // namespace Valenctl
