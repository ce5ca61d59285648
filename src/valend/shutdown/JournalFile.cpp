#include "valend/shutdown/JournalFile.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Valend {

using Valen::Linux::Fd;

namespace {

constexpr int writing = O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW | O_CLOEXEC;

// Room for `length` bytes beyond the end of the file, which is at `from`; the file does not grow.
// Returns errno, or 0.
int allocate( int file, std::size_t from, std::size_t length ) noexcept {
   int result = 0;
   do {
      result = ::fallocate( file, FALLOC_FL_KEEP_SIZE, static_cast< off_t >( from ),
                            static_cast< off_t >( length ) );
   } while ( result < 0 && errno == EINTR );
   return result < 0 ? errno : 0;
}

} // namespace

JournalFile::JournalFile( StateDirectory & directory, std::string name, std::string header )
    : directory_( directory ), name_( std::move( name ) ), header_( std::move( header ) ) {}

std::string JournalFile::failed( char const * what, int number ) const {
   return std::string( "cannot " ) + what + " " + path() + ": " + Valen::Linux::errorText( number );
}

std::string JournalFile::open() {
   if ( file_ ) {
      return "";
   }
   auto why = directory_.open();
   if ( !why.empty() ) {
      return why;
   }
   Fd file( ::openat( directory_.fd(), name_.c_str(), writing, 0600 ) );
   struct stat status {};
   if ( !file || ::fstat( file.get(), &status ) < 0 ) {
      return failed( "open", errno );
   }
   file_ = std::move( file );
   bytes_ = reserved_ = static_cast< std::size_t >( status.st_size );
   return bytes_ > 0 ? "" : append( header_ );
}

std::string JournalFile::append( std::string const & text ) {
   auto why = open();
   if ( !why.empty() ) {
      return why;
   }
   auto const written = ::write( file_.get(), text.data(), text.size() );
   if ( written == static_cast< ssize_t >( text.size() ) ) {
      bytes_ += text.size();
      reserved_ = std::max( reserved_, bytes_ );
      return "";
   }
   auto const number = written < 0 ? errno : ENOSPC;
   if ( written > 0 && ::ftruncate( file_.get(), static_cast< off_t >( bytes_ ) ) < 0 ) {
      // A damaged line, which the next start reports.
      [[maybe_unused]] auto const ended = ::write( file_.get(), "\n", 1 );
   }
   file_.close(); // the next line opens it again
   return failed( "write", number );
}

std::string JournalFile::reserve( std::size_t bytes ) {
   auto why = open();
   if ( !why.empty() || !canReserve_ || fits( bytes ) ) {
      return why;
   }
   auto length = bytes + reserveStep;
   auto number = allocate( file_.get(), bytes_, length );
   if ( number == ENOSPC || number == EDQUOT || number == EFBIG ) {
      length = bytes;
      number = allocate( file_.get(), bytes_, length );
   }
   if ( number == EOPNOTSUPP || number == ENOSYS ) {
      canReserve_ = false;
      return "";
   }
   if ( number ) {
      return failed( "write", number );
   }
   reserved_ = bytes_ + length;
   return "";
}

void JournalFile::release( std::size_t bytes ) {
   if ( file_ && reserved_ - bytes_ > bytes + 2 * reserveStep &&
        ::ftruncate( file_.get(), static_cast< off_t >( bytes_ ) ) == 0 ) {
      reserved_ = bytes_;
   }
}

std::string JournalFile::replace( std::string const & text, std::size_t bytes ) {
   auto const beside = name_ + ".new";
   auto const failure = [ & ]( int number ) {
      ::unlinkat( directory_.fd(), beside.c_str(), 0 );
      return failed( "replace", number );
   };
   ::unlinkat( directory_.fd(), beside.c_str(), 0 ); // of a crash
   Fd file( ::openat( directory_.fd(), beside.c_str(), writing | O_EXCL, 0600 ) );
   auto const whole = header_ + text;
   auto const written = file ? ::write( file.get(), whole.data(), whole.size() ) : -1;
   if ( written != static_cast< ssize_t >( whole.size() ) ) {
      return failure( written < 0 ? errno : ENOSPC );
   }
   auto const length = bytes + reserveStep;
   if ( auto const number = canReserve_ ? allocate( file.get(), whole.size(), length ) : 0 ) {
      return failure( number );
   }
   if ( auto const number = rename( "", ".1" ) ) {
      return failure( number );
   }
   if ( auto const number = rename( ".new", "" ) ) {
      return failure( number );
   }
   // The room that was reserved in the old file.
   [[maybe_unused]] auto const released =
      ::ftruncate( file_.get(), static_cast< off_t >( bytes_ ) );
   file_ = std::move( file );
   bytes_ = whole.size();
   reserved_ = bytes_ + ( canReserve_ ? length : 0 );
   return "";
}

} // namespace Valend
