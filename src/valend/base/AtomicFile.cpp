#include "valend/base/AtomicFile.h"

#include "linux/Fd.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace Valend {

namespace {

// Returns whether all was written; else errno is set.
bool writeAll( int file, std::string_view text ) {
   while ( !text.empty() ) {
      auto const written = ::write( file, text.data(), text.size() );
      if ( written < 0 && errno != EINTR ) {
         return false;
      }
      text.remove_prefix( written < 0 ? 0 : static_cast< std::size_t >( written ) );
   }
   return true;
}

// So that a new name in it survives a power failure.
bool syncDirectoryOf( std::string const & path ) {
   auto const slash = path.rfind( '/' );
   auto const directory = slash == path.npos ? "." : path.substr( 0, slash + 1 );
   Valen::Linux::Fd const fd( ::open( directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC ) );
   return fd && ::fsync( fd.get() ) == 0;
}

std::string cannotWrite( std::string const & path, int number ) {
   return "cannot write " + path + ": " + Valen::Linux::errorText( number );
}

} // namespace

std::string writeAtomically( std::string const & path, std::string const & text, unsigned mode,
                             Sync sync ) {
   auto const beside = path + ".new";
   auto const failure = [ & ]( std::string const & where ) {
      auto const number = errno;
      ::unlink( beside.c_str() );
      return cannotWrite( where, number );
   };
   // What is there, from a crash or from another user of the directory, is not written to.
   ::unlink( beside.c_str() );
   Valen::Linux::Fd file(
      ::open( beside.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode & 0600 ) );
   if ( !file || !writeAll( file.get(), text ) || ::fchmod( file.get(), mode ) < 0 ||
        ( sync == Sync::yes && ::fsync( file.get() ) < 0 ) ) {
      return failure( beside );
   }
   file.close();
   if ( ::rename( beside.c_str(), path.c_str() ) < 0 ) {
      return failure( path );
   }
   return sync == Sync::yes && !syncDirectoryOf( path ) ? cannotWrite( path, errno ) : "";
}

std::string appendSynced( std::string const & path, std::string const & text ) {
   Valen::Linux::Fd const file(
      ::open( path.c_str(), O_WRONLY | O_APPEND | O_NOFOLLOW | O_CLOEXEC ) );
   return file && writeAll( file.get(), text ) && ::fdatasync( file.get() ) == 0
             ? ""
             : cannotWrite( path, errno );
}

} // namespace Valend
