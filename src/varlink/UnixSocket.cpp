#include "varlink/UnixSocket.h"

#include "linux/Directory.h"
#include "linux/UnixAddress.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Varlink {

using Valen::Linux::errorText;
using Valen::Linux::Fd;
using Valen::Linux::requireFd;
using Valen::Linux::throwErrno;
using Valen::Linux::UnixAddress;

namespace {

Fd newSocket() {
   return requireFd( ::socket( AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0 ),
                     "cannot open a Unix socket" );
}

constexpr unsigned directoryMode = 0755;

bool isListenedAt( UnixAddress const & address ) {
   auto const probe = newSocket();
   return ::connect( probe.get(), address.get(), address.size() ) == 0 ||
          errno == EAGAIN; // alive, and busy
}

// That of the file at `path`, or of one that is open; an empty one if it does not exist.
Inode inodeOf( std::string const & path ) noexcept {
   struct stat status;
   return ::lstat( path.c_str(), &status ) == 0 ? Inode{ status.st_dev, status.st_ino } : Inode();
}
Inode inodeOf( Fd const & file ) noexcept {
   struct stat status;
   return ::fstat( file.get(), &status ) == 0 ? Inode{ status.st_dev, status.st_ino } : Inode();
}

[[noreturn]] void throwUsed( std::string const & path ) {
   throwErrno( "another process is listening at " + path + " (stop it, or set another socket)",
               EADDRINUSE );
}

// Throws unless a socket can be put at `path`.
void requireFree( std::string const & path, UnixAddress const & address ) {
   struct stat status;
   if ( ::lstat( path.c_str(), &status ) != 0 ) {
      return;
   }
   if ( !S_ISSOCK( status.st_mode ) ) {
      throwErrno( path + " exists and is not a socket", EADDRINUSE );
   }
   if ( isListenedAt( address ) ) { // by a process that does not know the lock
      throwUsed( path );
   }
}

// Beside the path, for a rename; in its place if a longer path does not fit in an address.
std::string pathOfNew( std::string const & path ) {
   auto const beside = path + ".new";
   return UnixAddress::at( beside ) ? beside : path;
}

// The groups of the process at the other end, `own` first.
std::vector< U32 > groupsOf( int fd, U32 own ) {
   std::vector< U32 > groups( 32 );
   auto length = static_cast< socklen_t >( groups.size() * sizeof( U32 ) );
   int result = 0;
   while ( ( result = ::getsockopt( fd, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &length ) ) < 0 &&
           errno == ERANGE ) {
      groups.resize( length / sizeof( U32 ) ); // as many as there are
   }
   groups.resize( result == 0 ? length / sizeof( U32 ) : 0 );
   groups.insert( groups.begin(), own );
   return groups;
}

} // namespace

LockFile::LockFile( std::string path ) : path_( std::move( path ) ) {
   do {
      file_ = Fd( ::open( path_.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600 ) );
      if ( !file_ || ::flock( file_.get(), LOCK_EX | LOCK_NB ) != 0 ) {
         throwErrno( "cannot lock " + path_, errno );
      }
      // A process that has ended since the file was opened has removed it.
   } while ( inodeOf( file_ ) != inodeOf( path_ ) );
}

LockFile::~LockFile() {
   if ( inodeOf( file_ ) == inodeOf( path_ ) ) {
      ::unlink( path_.c_str() );
   }
}

ListeningSocket::ListeningSocket( std::string const & path ) : path_( path ) {
   auto const failed = [ & ]( int number ) { throwErrno( "cannot listen at " + path_, number ); };
   auto const address = UnixAddress::at( path_ );
   if ( !address ) {
      failed( ENAMETOOLONG );
   }
   // If this fails, the lock reports it.
   Valen::Linux::makeDirectory( Valen::Linux::directoryOf( path_ ), directoryMode );
   try {
      lock_.emplace( path_ + ".lock" );
   } catch ( Quill::ErrnoException const & e ) {
      if ( e.number() == EWOULDBLOCK ) {
         throwUsed( path_ );
      }
      throw;
   }
   requireFree( path_, *address );
   auto const beside = pathOfNew( path_ );
   socket_ = newSocket();
   ::unlink( beside.c_str() ); // of a process that was killed
   auto const at = UnixAddress::at( beside );
   if ( ::bind( socket_.get(), at->get(), at->size() ) != 0 ||
        ::chmod( beside.c_str(), 0666 ) != 0 || ::listen( socket_.get(), 128 ) != 0 ||
        ::rename( beside.c_str(), path_.c_str() ) != 0 ) {
      auto const number = errno;
      ::unlink( beside.c_str() );
      failed( number );
   }
   inode_ = inodeOf( path_ );
}

ListeningSocket::~ListeningSocket() {
   if ( inodeOf( path_ ) == inode_ ) {
      ::unlink( path_.c_str() );
   }
}

Fd connectTo( std::string const & path ) {
   auto const failed = []( int number ) {
      throw Quill::ErrnoException( errorText( number ), number );
   };
   auto const address = UnixAddress::at( path );
   if ( !address ) {
      failed( ENAMETOOLONG );
   }
   Fd fd( ::socket( AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0 ) );
   if ( !fd || ::connect( fd.get(), address->get(), address->size() ) != 0 ) {
      failed( errno );
   }
   return fd;
}

Caller callerOf( int fd ) {
   ucred credentials{};
   socklen_t length = sizeof credentials;
   if ( ::getsockopt( fd, SOL_SOCKET, SO_PEERCRED, &credentials, &length ) != 0 ) {
      return Caller();
   }
   return { credentials.uid, credentials.pid, groupsOf( fd, credentials.gid ) };
}

} // namespace Varlink
