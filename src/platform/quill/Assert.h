// Assertions: invariants of our own, checked in every build type.
//
// A failed assertion runs the first hook (which writes the lines before it), prints the source text of the expression, its file and line and the function
// on standard error, runs the abort hook (which saves the trace ring) and aborts. Input and answers
// of the kernel are never asserted.
#pragma once

namespace Quill {

using AbortHook = void ( * )() noexcept;

// Installs the hook that runs once before the last text is printed, and makes standard error ready for
// it; null removes it. Returns the old one.
AbortHook beforeAbortIs( AbortHook hook ) noexcept;

// Installs the hook that runs once before the process aborts; null removes it. Returns the old one.
AbortHook abortHookIs( AbortHook hook ) noexcept;

[[noreturn]] void assertionFailed( char const * expression, char const * file, int line,
                                   char const * function ) noexcept;

// Ends the process with `text` on standard error, after the abort hook.
[[noreturn]] void abortWith( char const * text ) noexcept;

} // namespace Quill

#define VALEN_ASSERT( expression )                                                                 \
   ( ( expression )                                                                                \
        ? void()                                                                                   \
        : ::Quill::assertionFailed( #expression, __FILE__, __LINE__, __PRETTY_FUNCTION__ ) )
