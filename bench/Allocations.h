// Counts heap allocations. Linking Allocations.cpp replaces operator new by one that counts.
#pragma once

#include "platform/quill/Int.h"

namespace Valen::Bench {

// Calls of operator new so far, in any form.
U64 allocations() noexcept;

// Bytes of the main thread's heap in use, the allocator's overhead included.
U64 heapBytes() noexcept;

} // namespace Valen::Bench
