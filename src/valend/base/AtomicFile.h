// Files that are replaced as a whole: a reader sees the old content or the new. Or that grow, on the disk.
#pragma once

#include <string>

namespace Valend {

// Whether what was written survives a power failure as soon as the call returns. That waits for the disk: never on the
// loop.
enum class Sync : unsigned char { no, yes };

// Replaces the content of the file `path` by `text`: writes a new file "PATH.new" and renames it. Both are
// in the directory that the path has when this begins, and neither follows a symbolic link. Its permissions
// are exactly `mode`, whatever the umask. Returns an empty text, or "cannot write PATH: REASON"; the old file is then
// unchanged.
std::string writeAtomically( std::string const & path, std::string const & text, unsigned mode,
                             Sync sync = Sync::no );

// The same in a directory that is open on `directory`: a change of the directory's path has no effect. The
// directory part of `path` is only for the texts.
std::string writeAtomically( int directory, std::string const & path, std::string const & text,
                             unsigned mode, Sync sync = Sync::no );

// Appends `text` to the file, which must exist in that directory and not be a symbolic link, and waits for the disk.
// Returns an empty text, or "cannot write PATH: REASON"; then a part of the text may be there.
std::string appendSynced( int directory, std::string const & path, std::string const & text );

} // namespace Valend
