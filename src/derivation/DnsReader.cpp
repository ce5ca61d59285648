#include "derivation/DnsReader.h"

#include "derivation/Words.h"

namespace Derivation {

namespace {

std::string lowered( std::string text ) {
   for ( auto & c : text ) {
      if ( c >= 'A' && c <= 'Z' ) {
         c = static_cast< char >( c - 'A' + 'a' );
      }
   }
   return text;
}

} // namespace

// Each pointer must point before the part of the name it ends, so that they have an end; RFC 1035 says "prior".
std::string DnsReader::name( Reader & at ) {
   constexpr U8 pointer = 0xc0, longest = 63;
   constexpr std::size_t mostBytes = 255, mostPointers = 127;
   std::string text;
   std::size_t bytes = 0, pointers = 0;
   auto partBegin = at.at();
   auto reader = at;
   while ( true ) {
      auto const labelAt = reader.at();
      auto const length = reader.u8();
      require( pointers == 0 || isInName_[ labelAt ], Reason::badValue );
      isInName_[ labelAt ] = true;
      if ( length == 0 ) {
         break;
      }
      if ( ( length & pointer ) == pointer ) {
         auto const to = begin_ + ( ( length & ~unsigned{ pointer } ) << 8 | reader.u8() );
         require( to < partBegin && ++pointers <= mostPointers, Reason::badValue );
         if ( pointers == 1 ) {
            at = reader;
         }
         partBegin = to;
         reader = Reader( frame_, to, frame_.size() );
         continue;
      }
      bytes += 1U + length;
      require( length <= longest && bytes < mostBytes, Reason::badValue );
      text += ( text.empty() ? "" : "." ) + nameText( reader.bytes( length ) );
   }
   if ( pointers == 0 ) {
      at = reader;
   }
   return text.empty() ? "." : lowered( std::move( text ) );
}

DnsRecord DnsReader::record( Reader & at ) {
   auto owner = name( at );
   auto const type = at.u16();
   auto const classAndFlush = at.u16();
   auto const ttlAt = at.at();
   auto const ttl = at.u32();
   return { std::move( owner ), type, classAndFlush, ttlAt, ttl, at.part( at.u16() ) };
}

} // namespace Derivation
