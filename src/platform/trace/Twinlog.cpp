#include "platform/trace/Twinlog.h"

#include "platform/trace/ShortCopy.h"

#include <algorithm>
#include <charconv>
#include <cstring>

namespace Twinlog {

namespace {

// What the longest number takes: -2^63 in decimal.
constexpr std::size_t maxDigits = 20;

} // namespace

void Text::append( std::string_view bytes ) noexcept {
   require( bytes.size() );
   shortCopy( bytes_ + length_, bytes.data(), bytes.size() );
   length_ += bytes.size();
}

void Text::append( Value const & value, bool hexadecimal ) noexcept {
   if ( value.kind == Value::Kind::text ) {
      return append( value.text );
   }
   require( maxDigits );
   auto * const begin = bytes_ + length_;
   auto * const end = bytes_ + size_;
   auto const result = hexadecimal ? std::to_chars( begin, end, value.number, 16 )
                       : value.kind == Value::Kind::number
                          ? std::to_chars( begin, end, static_cast< S64 >( value.number ) )
                          : std::to_chars( begin, end, value.number );
   length_ += static_cast< std::size_t >( result.ptr - begin );
}

void Text::grow( std::size_t bytes ) {
   auto const size = std::max( 2 * size_, length_ + bytes );
   std::unique_ptr< char[] > larger( new char[ size ] );
   std::memcpy( larger.get(), bytes_, length_ );
   allocated_ = std::move( larger );
   bytes_ = allocated_.get();
   size_ = size;
}

void format( Text & text, std::string_view format, std::span< Value const > values ) noexcept {
   auto value = values.begin();
   auto const end = format.end();
   for ( auto at = format.begin(); at != end; ) {
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
