// Counts the system calls of a function, by tracing a forked child process, and allocations.
#pragma once

#include <functional>

namespace Valen::Test {

// The number of system calls of `work` in a forked child process; -1 if it cannot be traced.
int systemCallsOf( std::function< void() > const & work );

// How often this process has called operator new.
unsigned long allocations();

} // namespace Valen::Test
