// The two ends of a Unix socket.
#pragma once

#include "linux/Fd.h"
#include "varlink/Call.h"

#include <optional>
#include <string>
#include <sys/types.h>

namespace Varlink {

// Identifies a file, whatever its name.
struct Inode {
   dev_t device = 0;
   ino_t number = 0;
   bool operator==( Inode const & ) const = default;
};

// A file that one process at a time has locked. The lock ends with the process, however that ends.
class LockFile {
 public:
   // Does not wait. Throws Quill::ErrnoException: EWOULDBLOCK when another process has it.
   explicit LockFile( std::string path );
   ~LockFile(); // removes the file
   LockFile( LockFile const & ) = delete;
   LockFile & operator=( LockFile const & ) = delete;

 private:
   std::string const path_;
   Valen::Linux::Fd file_;
};

// A socket that listens at a path, open to all users of the machine; the kernel tells who they are.
// At most one process has it, by a lock on the file "PATH.lock". The socket gets its name when it listens.
class ListeningSocket {
 public:
   // Makes the directory, and replaces a socket at which no process listens any more. Throws
   // Quill::ErrnoException: EADDRINUSE when another process has it or the path is not a socket,
   // ENAMETOOLONG when it does not fit in an address.
   explicit ListeningSocket( std::string const & path );
   ~ListeningSocket(); // removes the socket, unless it is another one now
   ListeningSocket( ListeningSocket const & ) = delete;
   ListeningSocket & operator=( ListeningSocket const & ) = delete;

   int fd() const noexcept { return socket_.get(); }

 private:
   std::string const path_;
   std::optional< LockFile > lock_;
   Valen::Linux::Fd socket_;
   Inode inode_; // of the socket at the path
};

// A blocking connection to the socket at `path`. Throws Quill::ErrnoException, whose text is errno's
// alone: the caller knows whom it wanted to reach.
Valen::Linux::Fd connectTo( std::string const & path );

// The user at the other end of a connection.
Caller callerOf( int fd );

} // namespace Varlink
