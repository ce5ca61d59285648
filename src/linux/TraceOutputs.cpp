#include "linux/TraceOutputs.h"

#include "linux/LineWriter.h"
#include "linux/StandardError.h"
#include "platform/quill/Assert.h"
#include "platform/quill/Printable.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Valen::Linux {

namespace {

// "2026-01-31T12:00:00.123456Z ConfigSm/0 "; an overlong name of a unit is truncated.
class Stamp {
 public:
   explicit Stamp( Quill::TraceLine const & line ) noexcept {
      timespec now{};
      ::clock_gettime( CLOCK_REALTIME, &now );
      tm utc{};
      ::gmtime_r( &now.tv_sec, &utc );
      auto const date = std::strftime( text_.data(), text_.size(), "%Y-%m-%dT%H:%M:%S", &utc );
      auto const rest =
         std::snprintf( text_.data() + date, text_.size() - date, ".%06ldZ %s/%u ",
                        now.tv_nsec / 1000, line.point.unit, unsigned{ line.point.level } );
      length_ =
         std::min( date + static_cast< std::size_t >( std::max( rest, 0 ) ), text_.size() - 1 );
   }

   std::string_view view() const noexcept { return { text_.data(), length_ }; }

 private:
   std::array< char, 128 > text_{};
   std::size_t length_ = 0;
};

bool writeLine( int fd, std::string const & line ) noexcept {
   return ::write( fd, line.data(), line.size() ) == static_cast< ssize_t >( line.size() );
}

std::string joined( std::string_view head, std::string_view text ) {
   std::string line;
   line.reserve( head.size() + text.size() + 1 );
   return line.append( head ).append( Quill::printable( text ) ).append( 1, '\n' );
}

Fd openForAppending( std::string const & path ) {
   Fd file( ::open( path.c_str(),
                    O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK, 0640 ) );
   if ( !file && errno == ELOOP ) {
      throwErrno( "trace file " + path + " is a symbolic link, which is not followed", errno );
   }
   if ( !file ) {
      throwErrno( "cannot open trace file " + path, errno );
   }
   return file;
}

std::span< std::byte > mapped; // the ring's memory, for the abort hook

void syncRing() noexcept {
   ::msync( mapped.data(), mapped.size(), MS_SYNC );
}

std::span< std::byte > mapNewFile( std::string const & path, std::size_t bytes ) {
   auto const pageSize = static_cast< std::size_t >( ::sysconf( _SC_PAGESIZE ) );
   bytes = ( bytes + pageSize - 1 ) / pageSize * pageSize;
   Fd const file(
      ::open( path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NONBLOCK, 0640 ) );
   if ( !file ) {
      throwErrno( "cannot create trace ring " + path, errno );
   }
   // Allocate the disk space now: a write to a mapping fails with SIGBUS when the disk is full.
   if ( auto const error = ::posix_fallocate( file.get(), 0, static_cast< off_t >( bytes ) ) ) {
      throwErrno( "cannot allocate disk space for trace ring " + path, error );
   }
   auto * const memory =
      ::mmap( nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0 );
   if ( memory == MAP_FAILED ) {
      throwErrno( "cannot map trace ring " + path, errno );
   }
   return { static_cast< std::byte * >( memory ), bytes };
}

} // namespace

// --- StderrTraceSink -----------------------------------------------------------------------------

StderrTraceSink::StderrTraceSink()
    : StderrTraceSink( StandardError::isJournal() ? Reader::journal : Reader::other ) {}

void StderrTraceSink::line( Quill::TraceLine const & line ) noexcept {
   if ( journal() ) {
      StandardError::put( joined( line.point.level == 0 ? "<6>" : "<7>", line.text ) );
   } else {
      StandardError::put( joined( Stamp( line ).view(), line.text ) );
   }
}

// --- FileTraceSink -------------------------------------------------------------------------------

FileTraceSink::FileTraceSink( std::string path ) : path_( std::move( path ) ) {
   open();
}

FileTraceSink::~FileTraceSink() = default;

void FileTraceSink::open() {
   auto const file = std::make_shared< Fd >( openForAppending( path_ ) );
   writer_ = std::make_unique< LineWriter >(
      "valen-trace",
      LineWriter::Output{
         [ file ]( auto const & line ) { return writeLine( file->get(), line.text ); },
         []( U64 count ) {
            return LineWriter::Line{ std::to_string( count ) + " lines dropped\n", "" };
         } } );
}

void FileTraceSink::line( Quill::TraceLine const & line ) noexcept {
   auto const number = errno; // tracing must not change the traced code's errno
   writer_->put( { joined( Stamp( line ).view(), line.text ), "" } );
   errno = number;
}

void FileTraceSink::reopen() {
   auto old = std::exchange( writer_, nullptr );
   try {
      open();
   } catch ( ... ) {
      writer_ = std::move( old );
      throw;
   }
   lost_ += old->dropped();
   old->abandon(); // its thread writes the rest to the old file
}

U64 FileTraceSink::lost() const noexcept {
   return lost_ + writer_->dropped();
}

void FileTraceSink::flush() noexcept {
   writer_->flush();
}

// --- RingFile ------------------------------------------------------------------------------------

RingFile::RingFile( std::string const & path, std::size_t bytes ) {
   if ( bytes < Blipline::Ring::minSize ) {
      throw Quill::RangeException( "trace ring " + path + " needs at least " +
                                   std::to_string( Blipline::Ring::minSize ) + " bytes" );
   }
   if ( std::rename( path.c_str(), ( path + ".previous" ).c_str() ) < 0 && errno != ENOENT ) {
      throwErrno( "cannot rename trace ring " + path, errno );
   }
   memory_ = mapNewFile( path, bytes );
   ring_.emplace( memory_ );
   mapped = memory_;
   Quill::abortHookIs( &syncRing );
   Blipline::ringIs( &*ring_ );
}

RingFile::~RingFile() {
   Blipline::ringIs( nullptr );
   Quill::abortHookIs( nullptr );
   mapped = {};
   ring_.reset();
   ::munmap( memory_.data(), memory_.size() );
}

std::vector< std::byte > RingFile::read( std::string const & path ) {
   Fd const file( ::open( path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK ) );
   struct stat status;
   if ( !file || ::fstat( file.get(), &status ) < 0 ) {
      throwErrno( "cannot open trace ring " + path, errno );
   }
   std::vector< std::byte > bytes( static_cast< std::size_t >( status.st_size ) );
   std::size_t length = 0;
   while ( length < bytes.size() ) {
      auto const got = ::read( file.get(), bytes.data() + length, bytes.size() - length );
      if ( got < 0 ) {
         throwErrno( "cannot read trace ring " + path, errno );
      }
      if ( got == 0 ) {
         break;
      }
      length += static_cast< std::size_t >( got );
   }
   bytes.resize( length );
   return bytes;
}

} // namespace Valen::Linux
