// The listening end of a Unix socket.
#pragma once

#include "linux/Fd.h"
#include "varlink/Call.h"

#include <string>

namespace Varlink {

// Listens at `path`, open to all users of the machine; who they are the kernel tells. Makes the
// folder, and replaces a socket that nobody answers at. Throws Quill::ErrnoException: EADDRINUSE
// when somebody does, ENAMETOOLONG when the path does not fit an address.
Valen::Linux::Fd listenAt( std::string const & path );

// Who is at the other end of a connection.
Caller callerOf( int fd );

} // namespace Varlink
