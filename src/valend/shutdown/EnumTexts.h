// The texts of an enumeration, in one table: what is written, and read back.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace Valend {

// One row. A table has one row for each value, in the order of the values.
template < class Enum > struct EnumText {
   Enum value;
   char const * text;
};

// Whether the rows are the values from 0 to `last`, in order. For a static_assert beside the table.
template < class Enum, std::size_t count >
constexpr bool hasEveryValue( EnumText< Enum > const ( &table )[ count ], Enum last ) {
   for ( std::size_t i = 0; i < count; ++i ) {
      if ( table[ i ].value != static_cast< Enum >( i ) ) {
         return false;
      }
   }
   return count == static_cast< std::size_t >( last ) + 1;
}

template < class Enum, std::size_t count >
constexpr char const * textIn( EnumText< Enum > const ( &table )[ count ], Enum value ) noexcept {
   return table[ static_cast< std::size_t >( value ) ].text;
}

// Nothing when no value has this text.
template < class Enum, std::size_t count >
constexpr std::optional< Enum > valueIn( EnumText< Enum > const ( &table )[ count ],
                                         std::string_view text ) noexcept {
   for ( auto const & row : table ) {
      if ( row.text == text ) {
         return row.value;
      }
   }
   return std::nullopt;
}

} // namespace Valend
