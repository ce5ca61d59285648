#include "platform/quill/Pool.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <new>
#include <utility>

#if defined( __SANITIZE_ADDRESS__ )
#define QUILL_POOL 0
#elif defined( __has_feature )
#if __has_feature( address_sanitizer )
#define QUILL_POOL 0
#endif
#endif
#ifndef QUILL_POOL
#define QUILL_POOL 1
#endif

namespace Quill {

namespace {

constexpr std::size_t unit = sizeof( void * ); // sizes are multiples of it
constexpr std::size_t maxSize = 512;           // larger objects come from the heap
constexpr std::size_t blockSize = 64 << 10;

// A piece that was freed.
struct Piece {
   Piece * next;
};

class Pool {
 public:
   void * take( std::size_t size ) {
      auto *& free = free_[ size / unit ];
      if ( !free ) {
         return cut( size );
      }
      auto * const piece = std::exchange( free, free->next );
      __builtin_prefetch( free, 1 ); // in the cache by the time that the next object needs it
      return piece;
   }

   void give( void * memory, std::size_t size ) noexcept {
      auto *& free = free_[ size / unit ];
      free = new ( memory ) Piece{ free };
   }

 private:
   // The next piece of the block. A rest that is too small stays unused.
   void * cut( std::size_t size ) {
      if ( left_ < size ) {
         next_ = static_cast< std::byte * >( ::operator new( blockSize ) );
         left_ = blockSize;
      }
      left_ -= size;
      return std::exchange( next_, next_ + size );
   }

   std::array< Piece *, maxSize / unit + 1 > free_{}; // by size
   std::byte * next_ = nullptr;
   std::size_t left_ = 0;
};

// Never destroyed: objects with static storage free their memory at any time.
constinit Pool pool;

constexpr bool pooled( std::size_t size ) noexcept {
   return QUILL_POOL && size <= maxSize;
}

constexpr std::size_t rounded( std::size_t size ) noexcept {
   return std::max( unit, ( size + unit - 1 ) / unit * unit );
}

} // namespace

void * poolAllocate( std::size_t size ) {
   return pooled( size ) ? pool.take( rounded( size ) ) : ::operator new( size );
}

void poolDeallocate( void * memory, std::size_t size ) noexcept {
   if ( pooled( size ) ) {
      pool.give( memory, rounded( size ) );
   } else {
      ::operator delete( memory );
   }
}

} // namespace Quill
