#include "settings/OpenFile.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <system_error>
#include <unistd.h>

namespace Settings {

namespace {

using Why = CannotOpen::Why;

CannotOpen failure( int number ) {
   return { Why::missing, "cannot open: " + std::generic_category().message( number ) };
}

bool isDevNull( struct stat const & status ) noexcept {
   return S_ISCHR( status.st_mode ) && status.st_rdev == makedev( 1, 3 );
}

} // namespace

OpenFile openForReading( std::string const & path ) {
   // Without O_NONBLOCK it would wait for the writer of a FIFO.
   auto const descriptor = ::open( path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC );
   if ( descriptor < 0 ) {
      throw failure( errno );
   }
   OpenFile file( ::fdopen( descriptor, "r" ) );
   if ( !file ) {
      auto const number = errno;
      ::close( descriptor );
      throw failure( number );
   }
   struct stat status {};
   if ( ::fstat( descriptor, &status ) < 0 ) {
      throw failure( errno );
   }
   if ( S_ISDIR( status.st_mode ) ) {
      throw CannotOpen{ Why::directory, "cannot read: Is a directory" };
   }
   if ( !S_ISREG( status.st_mode ) && !isDevNull( status ) ) {
      throw CannotOpen{ Why::notRegular, "cannot read: not a regular file" };
   }
   return file;
}

} // namespace Settings
