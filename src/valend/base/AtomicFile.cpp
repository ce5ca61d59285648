#include "valend/base/AtomicFile.h"

#include "linux/Directory.h"

#include <cerrno>
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

std::string nameOf( std::string const & path ) {
   return path.substr( path.rfind( '/' ) + 1 ); // npos + 1 is 0
}

std::string cannotWrite( std::string const & path, int number ) {
   return "cannot write " + path + ": " + Valen::Linux::errorText( number );
}

} // namespace

std::string writeAtomically( std::string const & path, std::string const & text, unsigned mode,
                             Sync sync ) {
   auto const directory = Valen::Linux::openDirectory( Valen::Linux::directoryOf( path ) );
   return directory ? writeAtomically( directory.get(), path, text, mode, sync )
                    : cannotWrite( path + ".new", errno );
}

std::string writeAtomically( int directory, std::string const & path, std::string const & text,
                             unsigned mode, Sync sync ) {
   auto const name = nameOf( path );
   auto const beside = name + ".new";
   auto const failed = [ & ]( std::string const & where ) {
      auto const number = errno;
      ::unlinkat( directory, beside.c_str(), 0 );
      return cannotWrite( where, number );
   };
   // What is there, from a crash or from another user of the directory, is not written to.
   ::unlinkat( directory, beside.c_str(), 0 );
   Valen::Linux::Fd file( ::openat( directory, beside.c_str(),
                                    O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                                    mode & 0600 ) );
   if ( !file || !writeAll( file.get(), text ) || ::fchmod( file.get(), mode ) < 0 ||
        ( sync == Sync::yes && ::fsync( file.get() ) < 0 ) ) {
      return failed( path + ".new" );
   }
   file.close();
   if ( ::renameat( directory, beside.c_str(), directory, name.c_str() ) < 0 ) {
      return failed( path );
   }
   // So that the new name survives a power failure.
   return sync == Sync::yes && ::fsync( directory ) < 0 ? cannotWrite( path, errno ) : "";
}

std::string appendSynced( int directory, std::string const & path, std::string const & text ) {
   Valen::Linux::Fd const file(
      ::openat( directory, nameOf( path ).c_str(), O_WRONLY | O_APPEND | O_NOFOLLOW | O_CLOEXEC ) );
   return file && writeAll( file.get(), text ) && ::fdatasync( file.get() ) == 0
             ? ""
             : cannotWrite( path, errno );
}

} // namespace Valend
