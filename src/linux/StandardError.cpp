#include "linux/StandardError.h"

#include "linux/Fd.h"
#include "linux/UnixAddress.h"
#include "platform/quill/Assert.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <string_view>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Valen::Linux {

namespace {

StandardError * installed = nullptr;

// Waits while a descriptor that another process made non-blocking is full.
bool writeAll( std::string_view text ) noexcept {
   while ( !text.empty() ) {
      auto const written = ::write( STDERR_FILENO, text.data(), text.size() );
      if ( written >= 0 ) {
         text.remove_prefix( static_cast< std::size_t >( written ) );
      } else if ( errno == EAGAIN ) {
         pollfd writable{ STDERR_FILENO, POLLOUT, 0 };
         ::poll( &writable, 1, -1 );
      } else if ( errno != EINTR ) {
         return false;
      }
   }
   return true;
}

bool write( LineWriter::Line const & line ) {
   return ( !line.message.empty() &&
            sendToJournal( line.message, JournalWait::untilSent ) == JournalSent::sent ) ||
          writeAll( line.text );
}

LineWriter::Line droppedLine( U64 count ) {
   auto const text = std::to_string( count ) + " lines dropped: ";
   return StandardError::isJournal()
             ? LineWriter::Line{ "<4>" + text + "the journal was not reading\n", "" }
             : LineWriter::Line{ "valend: " + text + "standard error was not read\n", "" };
}

} // namespace

StandardError::StandardError() : writer_( "valen-stderr", { &write, &droppedLine } ) {
   VALEN_ASSERT( !installed );
   installed = this;
   Quill::beforeAbortIs( &beforeAbort );
}

StandardError::~StandardError() {
   Quill::beforeAbortIs( nullptr );
   installed = nullptr;
}

void StandardError::put( std::string text, std::string message ) {
   auto const number = errno; // tracing must not change the traced code's errno
   if ( !installed ) {
      if ( message.empty() || sendToJournal( message ) == JournalSent::failed ) {
         writeAll( text );
      }
   } else {
      bool const drops = !installed->writer_.put( { std::move( text ), std::move( message ) } );
      bool const begins = drops && !std::exchange( installed->wasDropping_, drops );
      installed->wasDropping_ = drops;
      if ( begins && installed->whenDropping_ ) {
         installed->whenDropping_();
      }
   }
   errno = number;
}

bool StandardError::isJournal() noexcept {
   auto const * const stream = std::getenv( "JOURNAL_STREAM" );
   struct stat status;
   if ( !stream || ::fstat( STDERR_FILENO, &status ) < 0 ) {
      return false;
   }
   return stream == std::to_string( status.st_dev ) + ":" + std::to_string( status.st_ino );
}

// The last text is written by the thread that aborts. It must not wait for a reader that has stopped, so
// standard error is replaced, for this process, when it cannot be written to.
void StandardError::beforeAbort() noexcept {
   bool const flushed = installed && installed->writer_.flush();
   pollfd writable{ STDERR_FILENO, POLLOUT, 0 };
   if ( flushed && ::poll( &writable, 1, 0 ) > 0 ) {
      return;
   }
   if ( Fd const none( ::open( "/dev/null", O_WRONLY | O_CLOEXEC ) ); none ) {
      ::dup2( none.get(), STDERR_FILENO );
   } else {
      ::close( STDERR_FILENO );
   }
}

JournalSent sendToJournal( std::string const & message, JournalWait wait,
                           std::string const & socket ) noexcept {
   auto const address = UnixAddress::at( socket );
   Fd const fd( ::socket( AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0 ) );
   if ( !fd || !address ) {
      return JournalSent::failed;
   }
   int const flags = MSG_NOSIGNAL | ( wait == JournalWait::none ? MSG_DONTWAIT : 0 );
   if ( ::sendto( fd.get(), message.data(), message.size(), flags, address->get(),
                  address->size() ) >= 0 ) {
      return JournalSent::sent;
   }
   return errno == EAGAIN ? JournalSent::full : JournalSent::failed;
}

} // namespace Valen::Linux
