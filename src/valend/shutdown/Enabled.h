// What becomes of a request to enable an interface.
#pragma once

#include "platform/quill/Int.h"
#include "valend/base/Refusal.h"
#include "valend/kernel/LinkPort.h"

#include <functional>
#include <variant>

namespace Valend {

enum class Enabled : U8 {
   up,        // the link was down and is up
   alreadyUp, // it was up
   aborted,   // a shutdown was running and is aborted; the link stayed up
};

// The link is up, or why it is not.
using EnableResult = std::variant< Enabled, Refusal >;
using EnableObserver = std::function< void( EnableResult const & result ) >;

// Why a link could not be set up.
Refusal whyNotUp( LinkAnswer const & answer );

} // namespace Valend
