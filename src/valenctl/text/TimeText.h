// Times as text.
#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace Valenctl {

// A time since 1970 in UTC, with as many decimals as the unit has: "2026-01-31T12:00:00.123Z",
// "2026-01-31T12:00:00.123456Z".
std::string timeText( std::chrono::milliseconds sinceEpoch );
std::string timeText( std::chrono::microseconds sinceEpoch );

// The time since 1970 that an operator gives: how long before `now` ("30s", "5m", "2h", "1d"), in UTC as
// timeText prints it ("2026-01-31T12:00:00Z", with decimals or without), or local ("2026-01-31 12:00",
// "2026-01-31 12:00:00"). Nothing for any other text.
std::optional< std::chrono::milliseconds > timeFrom( std::string const & text,
                                                     std::chrono::milliseconds now );

// A duration for people: "250 ms", "12 s", "3 min", "2 h".
std::string durationText( std::chrono::milliseconds duration );

} // namespace Valenctl
