// The texts of an enumeration's values, written once: for the API, for files, for people.
//
// Beside the enumeration is its table, which argument-dependent lookup finds:
//   constexpr auto enumTexts( Color ) {
//      return std::to_array< EnumText< Color > >( { { Color::red, "red" } } );
//   }
#pragma once

#include <array>
#include <optional>
#include <string_view>

namespace Valend {

template < class Enum > struct EnumText {
   Enum value;
   char const * text;
};

// Whether the table of `Enum` has the values from 0 to `last`, in order: for a static_assert below it.
template < class Enum > constexpr bool hasEveryValue( Enum last ) {
   std::size_t next = 0;
   for ( auto const & each : enumTexts( last ) ) {
      if ( each.value != static_cast< Enum >( next++ ) ) {
         return false;
      }
   }
   return next == static_cast< std::size_t >( last ) + 1;
}

// The value's text; the table must have it.
template < class Enum > constexpr char const * textOf( Enum value ) {
   char const * found = nullptr;
   for ( auto const & each : enumTexts( value ) ) {
      found = each.value == value ? each.text : found;
   }
   return found;
}

// The value of the text; nothing when no value has it.
template < class Enum > constexpr std::optional< Enum > valueOf( std::string_view text ) {
   for ( auto const & each : enumTexts( Enum() ) ) {
      if ( each.text == text ) {
         return each.value;
      }
   }
   return std::nullopt;
}

} // namespace Valend
