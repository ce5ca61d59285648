#include "platform/trace/Twinlog.h"

#include "platform/trace/ShortCopy.h"

#include <algorithm>
#include <charconv>
#include <iterator>

namespace Twinlog {

void Text::append( std::string_view bytes ) noexcept {
   auto const count = std::min( bytes.size(), capacity - length_ );
   shortCopy( buffer_ + length_, bytes.data(), count );
   length_ += count;
}

void Text::append( Value const & value, bool hexadecimal ) noexcept {
   if ( value.kind == Value::Kind::text ) {
      return append( value.text );
   }
   auto * const begin = buffer_ + length_;
   auto * const end = std::end( buffer_ );
   auto const result = hexadecimal ? std::to_chars( begin, end, value.number, 16 )
                       : value.kind == Value::Kind::number
                          ? std::to_chars( begin, end, static_cast< S64 >( value.number ) )
                          : std::to_chars( begin, end, value.number );
   length_ = std::min( length_ + static_cast< std::size_t >( result.ptr - begin ), capacity );
}

void format( Text & text, std::string_view format, std::span< Value const > values ) noexcept {
   auto value = values.begin();
   auto const end = format.end();
   for ( auto at = format.begin(); at != end && !text.full(); ) {
      auto const literal = at;
      while ( at != end && *at != '%' ) { // formats are short: no call of find()
         ++at;
      }
      text.append( { literal, at } );
      if ( end - at >= 2 && ( at[ 1 ] == 's' || at[ 1 ] == 'x' ) && value != values.end() ) {
         text.append( *value++, at[ 1 ] == 'x' );
         at += 2;
      } else if ( at != end ) {
         text.append( *at++ );
      }
   }
}

void formatLine( Text & text, std::string_view signature, std::string_view format,
                 std::span< Value const > values ) noexcept {
   text.append( signature );
   text.append( ':' );
   text.append( ' ' );
   Twinlog::format( text, format, values );
}

} // namespace Twinlog
