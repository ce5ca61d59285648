// Files that are always whole: who reads one sees what was written before, or all that is new.
#pragma once

#include <string>

namespace Valend {

// Puts `text` in the place of the file's content: it goes to a file of that name with ".new" behind,
// which then takes the other's place. Returns what went wrong, with the path and the system's words;
// empty when nothing did. Then the old file still stands.
std::string writeAtomically( std::string const & path, std::string const & text, unsigned mode );

} // namespace Valend
