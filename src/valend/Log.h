// The agent's own words, on standard error: one line each, with the journal's priority when the
// journal reads them.
#pragma once

#include <string>

namespace Valend {

enum class LogLevel : int {
   error = 3,
   warning = 4,
   notice = 5,
   info = 6,
};

void log( LogLevel level, std::string const & text );

} // namespace Valend
