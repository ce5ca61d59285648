// Copying of pieces that are mostly a few bytes long, such as names and the words of a format: for
// those a call of memcpy costs more than the copying.
#pragma once

#include <cstddef>
#include <cstring>

namespace Twinlog {

// Two copies of `Width` bytes that meet or overlap; for Width to 2 * Width bytes.
template < std::size_t Width >
inline void copyEnds( char * to, char const * from, std::size_t size ) noexcept {
   char first[ Width ];
   char last[ Width ];
   std::memcpy( first, from, Width );
   std::memcpy( last, from + size - Width, Width );
   std::memcpy( to, first, Width );
   std::memcpy( to + size - Width, last, Width );
}

// As memcpy; either pointer may be null when `size` is 0.
inline void shortCopy( char * to, char const * from, std::size_t size ) noexcept {
   if ( size > 32 ) {
      std::memcpy( to, from, size );
   } else if ( size >= 16 ) {
      copyEnds< 16 >( to, from, size );
   } else if ( size >= 8 ) {
      copyEnds< 8 >( to, from, size );
   } else if ( size >= 4 ) {
      copyEnds< 4 >( to, from, size );
   } else if ( size >= 2 ) {
      copyEnds< 2 >( to, from, size );
   } else if ( size == 1 ) {
      *to = *from;
   }
}

} // namespace Twinlog
