#include "platform/trace/Twinlog.h"

#include <charconv>

namespace Twinlog {

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
   while ( !format.empty() && !text.full() ) {
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

void formatLine( Text & text, std::string_view signature, std::string_view format,
                 std::span< Value const > values ) noexcept {
   text.append( signature );
   text.append( ": " );
   Twinlog::format( text, format, values );
}

} // namespace Twinlog
