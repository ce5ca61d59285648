// Loaded into valend with LD_PRELOAD: makes single system calls fail that its loop makes for a network namespace.
// $FAILING_CALLS has words "NAMESPACE:CALL:N:ERRNO": the Nth of these calls for it fails, once. The calls
// are open, ioctl, fstat, setns; and in the namespace: socket, bind, sendto. Each word whose call has failed is a
// line of the file $FAILED_CALLS. The calls of other threads do not count.
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <map>
#include <sstream>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr std::string_view directory = "/run/netns/";

template < class Function > Function * next( char const * name ) {
   return reinterpret_cast< Function * >( ::dlsym( RTLD_NEXT, name ) );
}

// The namespace that a path names; empty for other paths.
std::string namespaceOf( std::string_view path ) {
   return path.starts_with( directory ) ? std::string( path.substr( directory.size() ) ) : "";
}

bool isLoop() {
   return ::gettid() == ::getpid();
}

// What the loop has opened: the link of a namespace's descriptor does not have its path.
std::map< int, std::string > & opened() {
   static auto & descriptors = *new std::map< int, std::string >;
   return descriptors;
}
std::map< int, std::string > & sockets() {
   static auto & descriptors = *new std::map< int, std::string >;
   return descriptors;
}
std::string & current() {
   static auto & name = *new std::string;
   return name;
}

void record( std::string const & word ) {
   auto const * const file = std::getenv( "FAILED_CALLS" );
   auto const line = word + "\n";
   auto const fd = static_cast< int >( ::syscall(
      SYS_openat, AT_FDCWD, file ? file : "", O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600 ) );
   ::syscall( SYS_write, fd, line.data(), line.size() );
   ::syscall( SYS_close, fd );
}

// Whether this call is to fail; errno is set then.
bool fails( std::string const & netNs, std::string const & call ) {
   static auto & counts = *new std::map< std::string, int >;
   if ( netNs.empty() || !isLoop() ) {
      return false;
   }
   auto const * const words = std::getenv( "FAILING_CALLS" );
   auto const wanted = netNs + ":" + call + ":" + std::to_string( ++counts[ netNs + call ] ) + ":";
   std::istringstream stream( words ? words : "" );
   for ( std::string word; stream >> word; ) {
      if ( word.starts_with( wanted ) ) {
         record( word );
         errno = std::atoi( word.c_str() + wanted.size() );
         return true;
      }
   }
   return false;
}

std::string lookUp( std::map< int, std::string > const & names, int fd ) {
   if ( !isLoop() ) {
      return std::string();
   }
   auto const found = names.find( fd );
   return found == names.end() ? std::string() : found->second;
}

int opening( char const * name, char const * path, int flags, mode_t mode ) {
   auto const netNs = namespaceOf( path );
   if ( fails( netNs, "open" ) ) {
      return -1;
   }
   auto const fd = next< int( char const *, int, ... ) >( name )( path, flags, mode );
   if ( fd >= 0 && isLoop() ) {
      opened()[ fd ] = netNs;
      sockets().erase( fd );
   }
   return fd;
}

} // namespace

extern "C" {

int open( char const * path, int flags, ... ) {
   va_list more;
   va_start( more, flags );
   auto const mode = flags & O_CREAT ? va_arg( more, mode_t ) : 0;
   va_end( more );
   return opening( "open", path, flags, mode );
}

int open64( char const * path, int flags, ... ) {
   va_list more;
   va_start( more, flags );
   auto const mode = flags & O_CREAT ? va_arg( more, mode_t ) : 0;
   va_end( more );
   return opening( "open64", path, flags, mode );
}

int ioctl( int fd, unsigned long request, ... ) noexcept {
   va_list more;
   va_start( more, request );
   auto * const argument = va_arg( more, void * );
   va_end( more );
   if ( fails( lookUp( opened(), fd ), "ioctl" ) ) {
      return -1;
   }
   return next< int( int, unsigned long, ... ) >( "ioctl" )( fd, request, argument );
}

int fstat( int fd, struct stat * status ) noexcept {
   if ( fails( lookUp( opened(), fd ), "fstat" ) ) {
      return -1;
   }
   return next< int( int, struct stat * ) >( "fstat" )( fd, status );
}

int setns( int fd, int type ) noexcept {
   auto const netNs = lookUp( opened(), fd );
   if ( fails( netNs, "setns" ) ) {
      return -1;
   }
   auto const result = next< int( int, int ) >( "setns" )( fd, type );
   if ( result == 0 && isLoop() ) {
      current() = netNs;
   }
   return result;
}

int socket( int family, int type, int protocol ) noexcept {
   if ( isLoop() && fails( current(), "socket" ) ) {
      return -1;
   }
   auto const fd = next< int( int, int, int ) >( "socket" )( family, type, protocol );
   if ( fd >= 0 && isLoop() ) {
      sockets()[ fd ] = current();
      opened().erase( fd );
   }
   return fd;
}

int bind( int fd, sockaddr const * address, socklen_t size ) noexcept {
   if ( fails( lookUp( sockets(), fd ), "bind" ) ) {
      return -1;
   }
   return next< int( int, sockaddr const *, socklen_t ) >( "bind" )( fd, address, size );
}

ssize_t sendto( int fd, void const * bytes, std::size_t count, int flags, sockaddr const * address,
                socklen_t size ) {
   if ( fails( lookUp( sockets(), fd ), "sendto" ) ) {
      return -1;
   }
   return next< ssize_t( int, void const *, std::size_t, int, sockaddr const *, socklen_t ) >(
      "sendto" )( fd, bytes, count, flags, address, size );
}

} // extern "C"
