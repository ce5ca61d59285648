#include "valend/base/OutOfMemory.h"

#include "linux/StandardError.h"

#include <new>
#include <poll.h>
#include <string_view>
#include <unistd.h>

namespace Valend {

namespace {

constexpr std::string_view plainLine =
   "valend: out of memory, exiting; shutdowns in progress are resumed at the next start\n";
constexpr std::string_view journalLine =
   "<2>out of memory, exiting; shutdowns in progress are resumed at the next start\n";

std::string_view line = plainLine;

// Must not allocate, nor wait for a reader: a pipe that is full loses the line.
[[noreturn]] void end() {
   pollfd output{ STDERR_FILENO, POLLOUT, 0 };
   if ( ::poll( &output, 1, 0 ) == 0 ) {
      ::_exit( outOfMemoryStatus );
   }
   [[maybe_unused]] auto const written = ::write( STDERR_FILENO, line.data(), line.size() );
   ::_exit( outOfMemoryStatus );
}

} // namespace

void endWhenOutOfMemory() noexcept {
   line = Valen::Linux::StandardError::isJournal() ? journalLine : plainLine;
   std::set_new_handler( end );
}

} // namespace Valend
