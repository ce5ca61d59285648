// Files that are replaced as a whole: a reader sees the old content or the new.
#pragma once

#include <string>

namespace Valend {

// Whether what was written survives a power failure as soon as the call returns. That waits for the disk: never on the
// loop.
enum class Sync : unsigned char { no, yes };

// Replaces the content of the file `path` by `text`: writes a new file "PATH.new" and renames it. Its
// permissions are exactly `mode`, whatever the umask. Returns an empty text, or "cannot write PATH: REASON"; the old file is then
// unchanged.
std::string writeAtomically( std::string const & path, std::string const & text, unsigned mode,
                             Sync sync = Sync::no );

// Appends `text` to the file, which must exist, and waits for the disk. Returns an empty text, or
// "cannot write PATH: REASON"; then a part of the text may be there.
std::string appendSynced( std::string const & path, std::string const & text );

} // namespace Valend
