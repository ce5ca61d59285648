// Feeds any bytes to the reader of a trace ring. It must not read outside them, must terminate, and may
// report nothing worse than damage.
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
      // The record of a line has at least 16 bytes. Its text is made of what is in the memory, where a
      // number takes 16 bytes and at most 20 in the text.
      if ( ++lines > memory.size() / 16 || !inside ||
           line.text.view().size() > 2 * memory.size() ) {
         std::abort();
      }
      static_cast< void >( reader.wallTime( line.time ) );
   }
   // Memory that is not a ring has no lines, and a reader at the end stays at the end.
   if ( ( !reader.valid() && ( lines > 0 || !reader.damaged() ) ) || reader.next( line ) ) {
      std::abort();
   }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput( std::uint8_t const * data, std::size_t size ) {
   // A copy of exactly this size, so that the sanitizer detects a read past its end; aligned like a ring.
   std::vector< std::byte > const memory( reinterpret_cast< std::byte const * >( data ),
                                          reinterpret_cast< std::byte const * >( data ) + size );
   readAll( memory );
   // A snapshot of any bytes must be safe as well.
   readAll( Blipline::snapshot( memory ) );
   return 0;
}
