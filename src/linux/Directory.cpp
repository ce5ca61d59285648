#include "linux/Directory.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>

namespace Valen::Linux {

namespace {

constexpr unsigned modeAbove = 0755;

// Private until the permissions are set.
bool makeOne( std::string const & path, unsigned mode ) noexcept {
   if ( ::mkdir( path.c_str(), mode & 0700 ) < 0 ) {
      return false;
   }
   Fd const made( ::open( path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC ) );
   return made && ::fchmod( made.get(), mode ) == 0;
}

} // namespace

bool makeDirectory( std::string const & path, unsigned mode ) {
   if ( makeOne( path, mode ) || errno == EEXIST ) {
      return true;
   }
   auto const above = directoryOf( path );
   return errno == ENOENT && above != path && makeDirectory( above, modeAbove ) &&
          ( makeOne( path, mode ) || errno == EEXIST );
}

std::string directoryOf( std::string const & path ) {
   auto const named = path.find_last_not_of( '/' ); // "a/b//" is "a/b"
   auto const slash = named == path.npos ? 0 : path.rfind( '/', named );
   if ( slash == path.npos ) {
      return ".";
   }
   auto const end = path.find_last_not_of( '/', slash );
   return end == path.npos ? "/" : path.substr( 0, end + 1 );
}

Fd openDirectory( std::string const & path ) noexcept {
   return Fd( ::open( path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC ) );
}

} // namespace Valen::Linux
