#include "valend/base/StateDirectory.h"

#include "linux/Directory.h"
#include "valend/base/Log.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Valend {

using Valen::Linux::errorText;
using Valen::Linux::Fd;

namespace {

std::string withoutSlash( std::string path ) {
   while ( path.size() > 1 && path.back() == '/' ) {
      path.pop_back();
   }
   return path;
}

// Empty when only the user of this process and root can change what is in the directory.
std::string whoElseMayWrite( int directory ) {
   struct stat status {};
   if ( ::fstat( directory, &status ) < 0 ) {
      return "";
   }
   if ( status.st_mode & 022 ) {
      char octal[ 8 ];
      std::snprintf( octal, sizeof octal, "%04o", unsigned{ status.st_mode } & 07777 );
      return std::string( "has mode " ) + octal;
   }
   bool const ours = status.st_uid == ::geteuid() || status.st_uid == 0;
   return ours ? "" : "belongs to uid " + std::to_string( status.st_uid );
}

} // namespace

StateDirectory::StateDirectory( std::string path )
    : StateDirectory( std::move( path ),
                      []( std::string const & text ) { log( LogLevel::warning, text ); } ) {}

StateDirectory::StateDirectory( std::string path, Warning const & warning )
    : path_( withoutSlash( std::move( path ) ) ) {
   auto const why = open();
   if ( usedByAnother_ ) {
      throw Quill::ErrnoException( why + "; stop it, or set another state-directory", EWOULDBLOCK );
   }
   auto const others = fd_ ? whoElseMayWrite( fd_.get() ) : "";
   if ( !others.empty() ) {
      warning(
         "state directory " + path_ + " " + others +
         ": other users can change shutdowns and frames; only valend's user should write there" );
   }
}

std::string StateDirectory::open() {
   if ( fd_ ) {
      return "";
   }
   if ( path_.empty() ) {
      return "no state directory";
   }
   auto directory =
      Valen::Linux::makeDirectory( path_, mode ) ? Valen::Linux::openDirectory( path_ ) : Fd();
   if ( !directory ) {
      return "cannot open " + path_ + ": " + errorText( errno );
   }
   if ( ::flock( directory.get(), LOCK_EX | LOCK_NB ) < 0 ) {
      usedByAnother_ = errno == EWOULDBLOCK;
      return usedByAnother_ ? path_ + " is used by another valend process"
                            : "cannot lock " + path_ + ": " + errorText( errno );
   }
   fd_ = std::move( directory );
   return "";
}

std::optional< std::string > StateDirectory::content( std::string const & name,
                                                      std::size_t limit ) const {
   Fd const file( ::openat( fd(), name.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK ) );
   struct stat status {};
   if ( !file || ::fstat( file.get(), &status ) < 0 ) {
      return std::nullopt;
   }
   if ( !S_ISREG( status.st_mode ) || static_cast< std::size_t >( status.st_size ) > limit ) {
      errno = EFBIG;
      return std::nullopt;
   }
   std::string content( static_cast< std::size_t >( status.st_size ), '\0' );
   std::size_t got = 0;
   while ( got < content.size() ) {
      auto const count = ::read( file.get(), content.data() + got, content.size() - got );
      if ( count < 0 ) {
         return std::nullopt;
      }
      if ( count == 0 ) {
         break;
      }
      got += static_cast< std::size_t >( count );
   }
   content.resize( got );
   return content;
}

int StateDirectory::rename( std::string const & from, std::string const & to ) const noexcept {
   return ::renameat( fd(), from.c_str(), fd(), to.c_str() ) < 0 ? errno : 0;
}

} // namespace Valend
