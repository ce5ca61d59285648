#include "platform/trace/Twinlog.h"

#include <algorithm>
#include <charconv>
#include <cstring>

namespace Twinlog {

void Text::append( std::string_view bytes ) noexcept {
   auto const count = std::min( bytes.size(), capacity - length_ );
   if ( count ) {
      std::memcpy( buffer_ + length_, bytes.data(), count );
   }
   length_ += count;
}

void Text::append( Value const & value, bool hexadecimal ) noexcept {
   if ( value.kind == Value::Kind::text ) {
      return append( value.text );
   }
   char digits[ 24 ];
   auto const end = digits + sizeof digits;
   auto const result = hexadecimal ? std::to_chars( digits, end, value.number, 16 )
                       : value.kind == Value::Kind::number
                          ? std::to_chars( digits, end, static_cast< S64 >( value.number ) )
                          : std::to_chars( digits, end, value.number );
   append( { digits, static_cast< std::size_t >( result.ptr - digits ) } );
}

void format( Text & text, std::string_view format, std::span< Value const > values ) noexcept {
   auto value = values.begin();
   while ( !format.empty() ) {
      auto const percent = std::min( format.find( '%' ), format.size() );
      text.append( format.substr( 0, percent ) );
      format.remove_prefix( percent );
      bool const placeholder = format.size() >= 2 && ( format[ 1 ] == 's' || format[ 1 ] == 'x' );
      if ( placeholder && value != values.end() ) {
         text.append( *value++, format[ 1 ] == 'x' );
         format.remove_prefix( 2 );
      } else if ( !format.empty() ) {
         text.append( format.substr( 0, 1 ) );
         format.remove_prefix( 1 );
      }
   }
}

} // namespace Twinlog
