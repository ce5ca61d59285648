// Directories that are opened once and then used by their descriptor: what happens to the path later does not
// redirect the files in them.
#pragma once

#include "linux/Fd.h"

#include <string>

namespace Valen::Linux {

// Creates the directory `path`, and those above it that do not exist. Whatever the umask, the
// permissions of `path` are exactly `mode`, and those of the others 0755. A directory that exists is
// not changed. Returns false, with errno set, if that fails.
bool makeDirectory( std::string const & path, unsigned mode );

// The directory part of `path`: "." if it has none.
std::string directoryOf( std::string const & path );

// Opens a directory, for openat() and others. The result is empty, with errno set, if that fails.
Fd openDirectory( std::string const & path ) noexcept;

} // namespace Valen::Linux
