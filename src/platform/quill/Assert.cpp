#include "platform/quill/Assert.h"

#include <cstdio>
#include <cstdlib>
#include <utility>

namespace Quill {

namespace {

AbortHook beforeAbort = nullptr;
AbortHook abortHook = nullptr;

void run( AbortHook & hook ) noexcept {
   if ( auto const once = std::exchange( hook, nullptr ) ) {
      once();
   }
}

} // namespace

AbortHook beforeAbortIs( AbortHook hook ) noexcept {
   return std::exchange( beforeAbort, hook );
}

AbortHook abortHookIs( AbortHook hook ) noexcept {
   return std::exchange( abortHook, hook );
}

void assertionFailed( char const * expression, char const * file, int line,
                      char const * function ) noexcept {
   run( beforeAbort );
   std::fprintf( stderr, "assertion failed: %s at %s:%d in %s\n", expression, file, line,
                 function );
   run( abortHook );
   std::abort();
}

void abortWith( char const * text ) noexcept {
   run( beforeAbort );
   std::fprintf( stderr, "%s\n", text );
   run( abortHook );
   std::abort();
}

} // namespace Quill
