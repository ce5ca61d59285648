// Times as text.
#pragma once

#include <chrono>
#include <string>

namespace Valenctl {

// A time since 1970 in UTC, with as many decimals as the unit has: "2026-01-31T12:00:00.123Z",
// "2026-01-31T12:00:00.123456Z".
std::string timeText( std::chrono::milliseconds sinceEpoch );
std::string timeText( std::chrono::microseconds sinceEpoch );

} // namespace Valenctl
