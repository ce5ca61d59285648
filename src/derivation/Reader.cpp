#include "derivation/Reader.h"

namespace Derivation {

Reader::Reader( std::string_view frame, std::size_t at, std::size_t end )
    : frame_( frame.substr( 0, end ) ), at_( at ), end_( frame_.size() ) {
   require( at_ <= end_ && end_ == end, Reason::cutOff );
}

std::string_view Reader::bytes( std::size_t count ) {
   require( count <= left(), Reason::cutOff );
   auto const found = frame_.substr( at_, count );
   at_ += count;
   return found;
}

Reader Reader::part( std::size_t count, char const * reason ) {
   require( count <= left(), reason );
   Reader const found( frame_, at_, at_ + count );
   at_ += count;
   return found;
}

U32 Reader::number( std::size_t count ) {
   U32 value = 0;
   for ( char const byte : bytes( count ) ) {
      value = value << 8 | static_cast< U8 >( byte );
   }
   return value;
}

U8 u8At( std::string_view frame, std::size_t at ) {
   return static_cast< U8 >( frame.at( at ) );
}

U16 u16At( std::string_view frame, std::size_t at ) {
   return static_cast< U16 >( u8At( frame, at ) << 8 | u8At( frame, at + 1 ) );
}

void putNumber( std::string & frame, std::size_t at, std::size_t bytes, U32 value ) {
   for ( std::size_t i = bytes; i > 0; --i ) {
      frame.at( at + i - 1 ) = static_cast< char >( value );
      value >>= 8;
   }
}

} // namespace Derivation
