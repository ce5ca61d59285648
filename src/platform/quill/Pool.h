// Memory for small objects. Entities, reactors, entries and strings are small, many and long-lived.
// Cut from large blocks, they need no header of their own, are close together in memory, and are
// allocated and freed in a few instructions. The process keeps the blocks.
//
// Under the address sanitizer every object is allocated separately, so that a use after free is
// found. Single-threaded, like the whole framework.
#pragma once

#include <cstddef>

namespace Quill {

// Memory for one object of `size` bytes that needs no stricter alignment than a pointer.
void * poolAllocate( std::size_t size );
// Frees it; `size` must be the size it was allocated with.
void poolDeallocate( void * memory, std::size_t size ) noexcept;

} // namespace Quill
