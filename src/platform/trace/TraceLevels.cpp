#include "platform/trace/TraceLevels.h"

#include "platform/quill/Exception.h"

#include <algorithm>

namespace Quill {

namespace {

[[noreturn]] void badPattern( std::string_view pattern ) {
   throw RangeException( "trace pattern \"" + std::string( pattern ) +
                         "\" is not NAME/LEVEL or NAME/FIRST-LAST with levels 0 to 9" );
}

U32 levelDigit( std::string_view pattern, char digit ) {
   if ( digit < '0' || digit > '9' ) {
      badPattern( pattern );
   }
   return static_cast< U32 >( digit - '0' );
}

} // namespace

TraceLevels::TraceLevels( std::string_view text ) : text_( text ) {
   while ( !text.empty() ) {
      auto const comma = std::min( text.find( ',' ), text.size() );
      patterns_.push_back( parsed( text.substr( 0, comma ) ) );
      text.remove_prefix( std::min( comma + 1, text.size() ) );
   }
}

TraceLevels::Pattern TraceLevels::parsed( std::string_view pattern ) {
   auto const slash = pattern.rfind( '/' );
   if ( slash == std::string_view::npos || slash == 0 ) {
      badPattern( pattern );
   }
   auto const range = pattern.substr( slash + 1 );
   bool const isRange = range.size() == 3 && range[ 1 ] == '-';
   if ( !isRange && range.size() != 1 ) {
      badPattern( pattern );
   }
   auto const first = levelDigit( pattern, range.front() );
   auto const last = levelDigit( pattern, range.back() );
   if ( first > last ) {
      badPattern( pattern );
   }
   return { std::string( pattern.substr( 0, slash ) ), ( 2u << last ) - ( 1u << first ) };
}

bool TraceLevels::Pattern::matches( std::string_view unit ) const noexcept {
   if ( name.ends_with( '*' ) ) {
      return unit.starts_with( std::string_view( name ).substr( 0, name.size() - 1 ) );
   }
   return unit == name;
}

U32 TraceLevels::maskOf( std::string_view unit ) const noexcept {
   U32 mask = 0;
   for ( auto const & pattern : patterns_ ) {
      if ( pattern.matches( unit ) ) {
         mask = pattern.mask;
      }
   }
   return mask;
}

} // namespace Quill
