#include "valend/base/OutOfMemory.h"

#include "linux/TraceOutputs.h"

#include <new>
#include <string_view>
#include <unistd.h>

namespace Valend {

namespace {

constexpr std::string_view plainLine =
   "valend: out of memory, exiting; shutdowns in progress are resumed at the next start\n";
constexpr std::string_view journalLine =
   "<2>out of memory, exiting; shutdowns in progress are resumed at the next start\n";

std::string_view line = plainLine;

// Must not allocate.
[[noreturn]] void end() {
   [[maybe_unused]] auto const written = ::write( STDERR_FILENO, line.data(), line.size() );
   ::_exit( outOfMemoryStatus );
}

} // namespace

void endWhenOutOfMemory() noexcept {
   line = Valen::Linux::StderrTraceSink().journal() ? journalLine : plainLine;
   std::set_new_handler( end );
}

} // namespace Valend
