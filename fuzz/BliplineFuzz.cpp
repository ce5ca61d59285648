// Any bytes as the memory of a trace ring: the reader reads nothing outside them, comes to an end,
// and tells of damage at most.
#include "platform/trace/Blipline.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

void readAll( std::span< std::byte const > memory ) {
   Blipline::Reader reader( memory );
   Blipline::Line line;
   std::size_t lines = 0;
   while ( reader.next( line ) ) {
      auto const * const unit = reinterpret_cast< std::byte const * >( line.unit.data() );
      bool const inside =
         line.unit.empty() ||
         ( unit >= memory.data() && unit + line.unit.size() <= memory.data() + memory.size() );
      // A line takes the 16 bytes of its record at least.
      if ( ++lines > memory.size() / 16 || !inside ||
           line.text.view().size() > Twinlog::Text::capacity ) {
         std::abort();
      }
      static_cast< void >( reader.wallTime( line.time ) );
   }
   // What is no ring has no lines; and the end stays the end.
   if ( ( !reader.valid() && ( lines > 0 || !reader.damaged() ) ) || reader.next( line ) ) {
      std::abort();
   }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput( std::uint8_t const * data, std::size_t size ) {
   // A copy of just this size, so that a read behind its end is seen, and aligned as a ring is.
   std::vector< std::byte > const memory( reinterpret_cast< std::byte const * >( data ),
                                          reinterpret_cast< std::byte const * >( data ) + size );
   readAll( memory );
   // A snapshot may be asked for of any bytes, too.
   readAll( Blipline::snapshot( memory ) );
   return 0;
}
