// Counts what a piece of work costs: system calls, by tracing a forked child, and allocations.
#pragma once

#include <functional>

namespace Valen::Test {

// How many system calls `work` makes when a forked child runs it; -1 when it cannot be told.
int systemCallsOf( std::function< void() > const & work );

// How often this process has called operator new.
unsigned long allocations();

} // namespace Valen::Test
