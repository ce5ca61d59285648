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

// Base of a class whose objects are made in the pool, but not counted by type (Allocation.h does both).
class Pooled {
 public:
   static void * operator new( std::size_t size ) { return poolAllocate( size ); }
   static void operator delete( void * memory, std::size_t size ) noexcept {
      poolDeallocate( memory, size );
   }

 protected:
   Pooled() = default;
   ~Pooled() = default;
};

// Makes a container of the standard library allocate in the pool.
template < class T > class PoolAllocator {
 public:
   using value_type = T;

   PoolAllocator() = default;
   template < class U > PoolAllocator( PoolAllocator< U > const & ) noexcept {} // NOLINT

   T * allocate( std::size_t count ) {
      return static_cast< T * >( poolAllocate( count * sizeof( T ) ) );
   }
   void deallocate( T * memory, std::size_t count ) noexcept {
      poolDeallocate( memory, count * sizeof( T ) );
   }

   bool operator==( PoolAllocator const & ) const noexcept = default;
};

} // namespace Quill
