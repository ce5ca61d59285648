// Feeds any bytes to the reader of a database's replies: as a whole, and in pieces. The replies must be the same, and so
// must be the end of reading. No reply may have more than its bound, as it is sent or in memory.
#include "database/ReplyReader.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>

namespace {

using Database::Reply;

void require( bool condition ) {
   if ( !condition ) {
      std::abort();
   }
}

bool same( Reply const & a, Reply const & b ) {
   return a.type == b.type && a.text == b.text && a.number == b.number &&
          std::equal( a.items.begin(), a.items.end(), b.items.begin(), b.items.end(), same );
}

std::size_t memoryOf( Reply const & reply ) {
   auto bytes = reply.text.size() + reply.items.size() * sizeof( Reply );
   for ( auto const & item : reply.items ) {
      bytes += memoryOf( item );
   }
   return bytes;
}

struct Reading {
   std::vector< Reply > replies;
   std::string error;
};

// The sizes of the pieces are in `sizes`, again and again; none: one piece.
Reading read( std::string_view bytes, std::string_view sizes, std::size_t bound ) {
   Database::ReplyReader reader( bound );
   Reading reading;
   for ( std::size_t piece = 0; !bytes.empty(); ++piece ) {
      auto const size = sizes.empty()
                           ? bytes.size()
                           : 1 + static_cast< unsigned char >( sizes[ piece % sizes.size() ] );
      reader.feed( bytes.substr( 0, size ) );
      bytes.remove_prefix( std::min( size, bytes.size() ) );
      while ( auto reply = reader.next() ) {
         require( memoryOf( *reply ) <= bound && !reply->lost() );
         require( reader.error().empty() );
         reading.replies.push_back( std::move( *reply ) );
      }
   }
   require( !reader.tooLarge() || !reader.error().empty() );
   reader.feed( "+OK\r\n" );
   require( reader.error().empty() || !reader.next() );
   reading.error = reader.error();
   return reading;
}

} // namespace

// The first bytes are the sizes of the pieces, after their number.
extern "C" int LLVMFuzzerTestOneInput( std::uint8_t const * data, std::size_t size ) {
   std::string_view bytes( reinterpret_cast< char const * >( data ), size );
   if ( bytes.empty() ) {
      return 0;
   }
   auto const count = static_cast< std::size_t >( data[ 0 ] % 8 );
   auto const sizes = bytes.substr( 1, count );
   bytes.remove_prefix( std::min( 1 + count, bytes.size() ) );

   // What waits to be read counts as well, so a bound below the size of a piece can be exceeded by many replies.
   auto const bound = std::max< std::size_t >( 1000, size );
   auto const whole = read( bytes, "", bound );
   auto const cut = read( bytes, sizes, bound );
   auto const bytewise = read( bytes, std::string_view( "\0", 1 ), bound );
   for ( auto const * other : { &cut, &bytewise } ) {
      require( std::equal( whole.replies.begin(), whole.replies.end(), other->replies.begin(),
                           other->replies.end(), same ) );
      require( whole.error == other->error );
   }
   read( bytes, sizes, 100 );
   return 0;
}
