#include "valend/Log.h"

#include "linux/TraceOutputs.h"

#include <unistd.h>

namespace Valend {

void log( LogLevel level, std::string const & text ) {
   static bool const journal = Valen::Linux::StderrTraceSink().journal();
   auto line = journal ? "<" + std::to_string( static_cast< int >( level ) ) + ">" : "valend: ";
   for ( auto const character : text ) {
      line += character == '\n' ? ' ' : character;
   }
   line += '\n';
   // One call, so that lines of several processes do not mix; nobody to tell if it fails.
   [[maybe_unused]] auto const written = ::write( STDERR_FILENO, line.data(), line.size() );
}

} // namespace Valend
