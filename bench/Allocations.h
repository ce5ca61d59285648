// Counts what a program takes from the heap. A program that links Allocations.cpp has its operator
// new replaced by one that counts.
#pragma once

#include "platform/quill/Int.h"

namespace Valen::Bench {

// How often operator new was called so far, in any form.
U64 allocations() noexcept;

// Bytes of the heap in use now, with the allocator's own overhead. Of the main thread.
U64 heapBytes() noexcept;

} // namespace Valen::Bench
