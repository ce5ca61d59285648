// Memory for small objects. What the framework makes many of, entities and reactors, entries and
// strings, is small and lives long: cut from large blocks it needs no header of its own, lies close
// together, and is had and given back in a few instructions. The process keeps the blocks.
//
// Under the address sanitizer every object comes from the heap by itself, so that a use after its
// end is seen. Single-threaded, like everything that stands on the framework.
#pragma once

#include <cstddef>

namespace Quill {

// Memory for one object of `size` bytes that needs no stricter alignment than a pointer.
void * poolAllocate( std::size_t size );
// Gives it back; `size` must be what it was had with.
void poolDeallocate( void * memory, std::size_t size ) noexcept;

} // namespace Quill
