#include "varlink/UnixSocket.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace Varlink {

using Valen::Linux::Fd;
using Valen::Linux::requireFd;
using Valen::Linux::throwErrno;

namespace {

sockaddr_un addressOf( std::string const & path ) {
   sockaddr_un address{};
   address.sun_family = AF_UNIX;
   if ( path.size() >= sizeof address.sun_path ) {
      throwErrno( "socket " + path, ENAMETOOLONG );
   }
   std::memcpy( address.sun_path, path.data(), path.size() );
   return address;
}

Fd newSocket() {
   return requireFd( ::socket( AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0 ),
                     "a Unix socket" );
}

bool somebodyAnswers( sockaddr_un const & address ) {
   auto const probe = newSocket();
   return ::connect( probe.get(), reinterpret_cast< sockaddr const * >( &address ),
                     sizeof address ) == 0 ||
          errno == EAGAIN; // alive, and busy
}

void removeStale( std::string const & path, sockaddr_un const & address ) {
   struct stat status;
   if ( ::lstat( path.c_str(), &status ) != 0 ) {
      return;
   }
   if ( !S_ISSOCK( status.st_mode ) ) {
      throwErrno( path + " is not a socket, and is left alone", EADDRINUSE );
   }
   if ( somebodyAnswers( address ) ) {
      throwErrno( "another agent answers at " + path, EADDRINUSE );
   }
   ::unlink( path.c_str() );
}

// The groups of whoever is at the other end, `own` first.
std::vector< U32 > groupsOf( int fd, U32 own ) {
   std::vector< U32 > groups( 32 );
   auto length = static_cast< socklen_t >( groups.size() * sizeof( U32 ) );
   int result = 0;
   while ( ( result = ::getsockopt( fd, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &length ) ) < 0 &&
           errno == ERANGE ) {
      groups.resize( length / sizeof( U32 ) ); // as many as it takes
   }
   groups.resize( result == 0 ? length / sizeof( U32 ) : 0 );
   groups.insert( groups.begin(), own );
   return groups;
}

} // namespace

Fd listenAt( std::string const & path ) {
   auto const address = addressOf( path );
   std::error_code ignored; // bind says what is wrong with the folder
   std::filesystem::create_directories( std::filesystem::path( path ).parent_path(), ignored );
   removeStale( path, address );
   auto fd = newSocket();
   if ( ::bind( fd.get(), reinterpret_cast< sockaddr const * >( &address ), sizeof address ) != 0 ||
        ::chmod( path.c_str(), 0666 ) != 0 || ::listen( fd.get(), 128 ) != 0 ) {
      throwErrno( "socket " + path, errno );
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
