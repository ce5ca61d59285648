#include "valend/base/Log.h"

#include "linux/StandardError.h"
#include "platform/quill/Printable.h"

#include <algorithm>

namespace Valend {

using Valen::Linux::StandardError;

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

void log( LogLevel level, std::string const & text, LogFields const & fields ) {
   static bool const journal = StandardError::isJournal();
   auto line = text;
   std::replace( line.begin(), line.end(), '\n', ' ' );
   line = Quill::printable( line ); // names of the kernel may have any byte
   if ( journal ) {
      StandardError::put( "<" + std::to_string( static_cast< int >( level ) ) + ">" + line + '\n',
                          journalMessage( level, line, fields ) );
   } else {
      StandardError::put( "valend: " + line + '\n' );
   }
}

} // namespace Valend
