// The two ends of a Unix socket.
#pragma once

#include "linux/Fd.h"
#include "varlink/Call.h"

#include <string>

namespace Varlink {

// Listens at `path`, open to all users of the machine; the kernel tells who they are. Makes the
// directory, and replaces a socket at which no process listens any more. Throws
// Quill::ErrnoException: EADDRINUSE when another process listens there or the path is not a socket,
// ENAMETOOLONG when it does not fit in an address.
Valen::Linux::Fd listenAt( std::string const & path );

// A blocking connection to the socket at `path`. Throws Quill::ErrnoException, whose text is errno's
// alone: the caller knows whom it wanted to reach.
Valen::Linux::Fd connectTo( std::string const & path );

// The user at the other end of a connection.
Caller callerOf( int fd );

} // namespace Varlink
