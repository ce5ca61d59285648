#include "valend/base/Log.h"

#include "linux/Fd.h"
#include "linux/TraceOutputs.h"
#include "linux/UnixAddress.h"

#include <algorithm>
#include <unistd.h>

namespace Valend {

namespace {

// A length is eight bytes, little endian, before the value.
void appendField( std::string & message, std::string const & name, std::string const & value ) {
   message += name;
   if ( value.find( '\n' ) == value.npos ) {
      message += '=';
   } else {
      message += '\n';
      for ( int byte = 0; byte < 8; ++byte ) {
         message += static_cast< char >( value.size() >> ( 8 * byte ) & 255 );
      }
   }
   message += value + '\n';
}

} // namespace

std::string journalMessage( LogLevel level, std::string const & text, LogFields const & fields ) {
   std::string message;
   appendField( message, "MESSAGE", text );
   appendField( message, "PRIORITY", std::to_string( static_cast< int >( level ) ) );
   appendField( message, "SYSLOG_IDENTIFIER", "valend" );
   for ( auto const & [ name, value ] : fields ) {
      appendField( message, name, value );
   }
   return message;
}

bool sendToJournal( std::string const & message, std::string const & socket ) noexcept {
   // Not blocking: the journal may be stuck, and shutdowns must not wait for it.
   static Valen::Linux::Fd const fd(
      ::socket( AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0 ) );
   auto const address = Valen::Linux::UnixAddress::at( socket );
   return fd && address &&
          ::sendto( fd.get(), message.data(), message.size(), MSG_NOSIGNAL, address->get(),
                    address->size() ) == static_cast< ssize_t >( message.size() );
}

void log( LogLevel level, std::string const & text, LogFields const & fields ) {
   static bool const journal = Valen::Linux::StderrTraceSink().journal();
   auto line = text;
   std::replace( line.begin(), line.end(), '\n', ' ' );
   if ( journal && sendToJournal( journalMessage( level, line, fields ) ) ) {
      return;
   }
   line = ( journal ? "<" + std::to_string( static_cast< int >( level ) ) + ">" : "valend: " ) +
          line + '\n';
   // One call, so that lines of several processes do not mix. A failure cannot be reported anywhere.
   [[maybe_unused]] auto const written = ::write( STDERR_FILENO, line.data(), line.size() );
}

} // namespace Valend
