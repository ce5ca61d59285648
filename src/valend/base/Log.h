// The daemon's log: to the system journal, with fields, when the journal reads standard error;
// otherwise lines on standard error. It never waits for the reader of either (linux/StandardError.h).
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace Valend {

enum class LogLevel : int {
   error = 3,
   warning = 4,
   notice = 5,
   info = 6,
};

// Names are capital letters, digits and "_", and do not begin with "_".
using LogFields = std::vector< std::pair< std::string, std::string > >;

// Writes one line. `fields` go to the journal only. Newlines in the text become spaces.
void log( LogLevel level, std::string const & text, LogFields const & fields = {} );

// A message in the journal's native protocol: "NAME=value" and a newline for each field; a value that
// contains a newline is preceded by its length instead.
std::string journalMessage( LogLevel level, std::string const & text, LogFields const & fields );

} // namespace Valend
