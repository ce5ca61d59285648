#include "Allocations.h"

#include <cstdlib>
#include <malloc.h>
#include <new>

namespace {

U64 count = 0;

void * allocate( std::size_t size ) {
   ++count;
   if ( auto * const memory = std::malloc( size ? size : 1 ) ) {
      return memory;
   }
   throw std::bad_alloc();
}

} // namespace

// The other forms of operator new and delete call these.
void * operator new( std::size_t size ) {
   return allocate( size );
}
void operator delete( void * memory ) noexcept {
   std::free( memory );
}
void operator delete( void * memory, std::size_t /* size */ ) noexcept {
   std::free( memory );
}

void * operator new( std::size_t size, std::align_val_t alignment ) {
   ++count;
   auto const unit = static_cast< std::size_t >( alignment );
   if ( auto * const memory = std::aligned_alloc( unit, ( size + unit - 1 ) / unit * unit ) ) {
      return memory;
   }
   throw std::bad_alloc();
}
void operator delete( void * memory, std::align_val_t /* alignment */ ) noexcept {
   std::free( memory );
}
void operator delete( void * memory, std::size_t /* size */,
                      std::align_val_t /* alignment */ ) noexcept {
   std::free( memory );
}

namespace Valen::Bench {

U64 allocations() noexcept {
   return count;
}

U64 heapBytes() noexcept {
   auto const info = ::mallinfo2();
   return info.uordblks + info.hblkhd;
}

} // namespace Valen::Bench
