// Files that are replaced as a whole: a reader sees the old content or the new.
#pragma once

#include <string>

namespace Valend {

// Replaces the content of the file `path` by `text`: writes a new file "PATH.new" and renames it. Its
// permissions are exactly `mode`, whatever the umask. Returns an empty text, or "cannot write PATH: REASON"; the old file is then
// unchanged.
std::string writeAtomically( std::string const & path, std::string const & text, unsigned mode );

} // namespace Valend
