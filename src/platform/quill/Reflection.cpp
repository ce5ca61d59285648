#include "platform/quill/Reflection.h"

#include "platform/quill/Entity.h"
#include "platform/quill/Exception.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <iterator>

namespace Quill {

std::string displayAddress( void const * address ) {
   if ( !address ) {
      return "null";
   }
   char text[ 2 + 2 * sizeof address ] = { '0', 'x' };
   auto const end = std::to_chars( text + 2, std::end( text ),
                                   reinterpret_cast< std::uintptr_t >( address ), 16 );
   return { text, end.ptr };
}

void valueMismatch( char const * expected ) {
   throw RangeException( std::string( "value is not " ) + expected );
}

Attribute const * EntityType::attribute( std::string_view wanted ) const noexcept {
   auto const found = std::find_if( attributes.begin(), attributes.end(),
                                    [ & ]( auto const & a ) { return a.name == wanted; } );
   return found == attributes.end() ? nullptr : &*found;
}

Attribute const * EntityType::attribute( AttrId wanted ) const noexcept {
   auto const found = std::find_if( attributes.begin(), attributes.end(),
                                    [ & ]( auto const & a ) { return a.id == wanted; } );
   return found == attributes.end() ? nullptr : &*found;
}

} // namespace Quill
