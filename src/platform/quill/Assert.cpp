#include "platform/quill/Assert.h"

#include <cstdio>
#include <cstdlib>
#include <utility>

namespace Quill {

namespace {

AbortHook abortHook = nullptr;

} // namespace

AbortHook abortHookIs( AbortHook hook ) noexcept {
   return std::exchange( abortHook, hook );
}

void assertionFailed( char const * expression, char const * file, int line,
                      char const * function ) noexcept {
   std::fprintf( stderr, "assertion failed: %s at %s:%d in %s\n", expression, file, line,
                 function );
   if ( auto const hook = std::exchange( abortHook, nullptr ) ) {
      hook();
   }
   std::abort();
}

void abortWith( char const * text ) noexcept {
   std::fprintf( stderr, "%s\n", text );
   if ( auto const hook = std::exchange( abortHook, nullptr ) ) {
      hook();
   }
   std::abort();
}

} // namespace Quill
