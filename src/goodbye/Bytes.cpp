#include "goodbye/Bytes.h"

namespace Goodbye {

Bytes & Bytes::text( std::string_view text ) {
   bytes_ += text;
   return *this;
}

Bytes & Bytes::zeros( std::size_t count ) {
   bytes_.append( count, '\0' );
   return *this;
}

Bytes & Bytes::ip( Ipv4 const & address ) {
   U32 const inNetworkOrder = address;
   return bytes( reinterpret_cast< U8 const * >( &inNetworkOrder ), sizeof inNetworkOrder );
}

Bytes & Bytes::u16At( std::size_t position, unsigned value ) {
   bytes_.replace( position, 2, Bytes().u16( value ).view() );
   return *this;
}

Bytes & Bytes::number( U32 value, int length ) {
   while ( length-- ) {
      bytes_ += static_cast< char >( value >> 8 * length & 0xff );
   }
   return *this;
}

Bytes & Bytes::bytes( U8 const * begin, std::size_t count ) {
   bytes_.append( reinterpret_cast< char const * >( begin ), count );
   return *this;
}

U16 internetChecksum( std::string const & bytes ) {
   U32 sum = 0;
   for ( std::size_t i = 0; i < bytes.size(); ++i ) {
      sum += static_cast< U32 >( static_cast< U8 >( bytes[ i ] ) ) << ( i % 2 ? 0 : 8 );
      sum = ( sum & 0xffff ) + ( sum >> 16 );
   }
   return static_cast< U16 >( ~sum );
}

std::string pseudoHeader( Ipv4 const & from, Ipv4 const & to, U8 protocol, std::size_t length ) {
   return Bytes()
      .ip( from )
      .ip( to )
      .u8( 0 )
      .u8( protocol )
      .u16( static_cast< U16 >( length ) )
      .view();
}

std::string pseudoHeader( Ipv6 const & from, Ipv6 const & to, U8 protocol, std::size_t length ) {
   return Bytes()
      .ip( from )
      .ip( to )
      .u32( static_cast< U32 >( length ) )
      .zeros( 3 )
      .u8( protocol )
      .view();
}

} // namespace Goodbye
