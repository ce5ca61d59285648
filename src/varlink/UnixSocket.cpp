#include "varlink/UnixSocket.h"

#include "linux/UnixAddress.h"

#include <cerrno>
#include <filesystem>
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

bool isListenedAt( UnixAddress const & address ) {
   auto const probe = newSocket();
   return ::connect( probe.get(), address.get(), address.size() ) == 0 ||
          errno == EAGAIN; // alive, and busy
}

void removeStale( std::string const & path, UnixAddress const & address ) {
   struct stat status;
   if ( ::lstat( path.c_str(), &status ) != 0 ) {
      return;
   }
   if ( !S_ISSOCK( status.st_mode ) ) {
      throwErrno( path + " exists and is not a socket", EADDRINUSE );
   }
   if ( isListenedAt( address ) ) {
      throwErrno( "another process is listening at " + path, EADDRINUSE );
   }
   ::unlink( path.c_str() );
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

Fd listenAt( std::string const & path ) {
   auto const failed = [ & ]( int number ) { throwErrno( "cannot listen at " + path, number ); };
   auto const address = UnixAddress::at( path );
   if ( !address ) {
      failed( ENAMETOOLONG );
   }
   std::error_code ignored; // bind reports what is wrong with the directory
   std::filesystem::create_directories( std::filesystem::path( path ).parent_path(), ignored );
   removeStale( path, *address );
   auto fd = newSocket();
   if ( ::bind( fd.get(), address->get(), address->size() ) != 0 ||
        ::chmod( path.c_str(), 0666 ) != 0 || ::listen( fd.get(), 128 ) != 0 ) {
      failed( errno );
   }
   return fd;
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
