// What happens when memory runs out: the process ends at once, so that the service manager restarts it and the
// journal's shutdowns are finished. To go on after a failed allocation would leave what it was part of half done.
#pragma once

namespace Valend {

// The exit status of a process that ran out of memory (EX_OSERR of sysexits.h).
constexpr int outOfMemoryStatus = 71;

// Ends the process when an allocation with `new` fails, in any thread: with a line on standard error, and
// without destructors.
void endWhenOutOfMemory() noexcept;

} // namespace Valend
