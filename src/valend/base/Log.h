// The agent's own words: to the journal, with fields, when the system's journal reads standard
// error; else on standard error, one line each.
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

// `fields` are for the journal alone. Newlines become blanks in the text.
void log( LogLevel level, std::string const & text, LogFields const & fields = {} );

// A message as the journal's own socket takes it: "NAME=value" and a newline for each field; a value
// that has a newline in it comes after its length.
std::string journalMessage( LogLevel level, std::string const & text, LogFields const & fields );

// Sends a message to the journal that listens at `socket`. False when that cannot be done.
bool sendToJournal( std::string const & message,
                    std::string const & socket = "/run/systemd/journal/socket" ) noexcept;

} // namespace Valend
