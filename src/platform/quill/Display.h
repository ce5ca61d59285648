// The display forms of values, in traces and error texts.
#pragma once

#include <string>
#include <type_traits>

namespace Quill {

// The display form of a handle: its address in hexadecimal, "null" when it is absent.
std::string displayAddress( void const * address );

// The display form of a value: names as they are, numbers in decimal, truth values as "true" and
// "false", handles by displayAddress, other types by their own `displayValue()`.
template < class T > std::string display( T const & value ) {
   if constexpr ( requires { value.displayValue(); } ) {
      return value.displayValue();
   } else if constexpr ( std::is_same_v< T, bool > ) {
      return value ? "true" : "false";
   } else if constexpr ( std::is_enum_v< T > ) {
      return std::to_string( static_cast< std::underlying_type_t< T > >( value ) );
   } else if constexpr ( std::is_arithmetic_v< T > ) {
      return std::to_string( value );
   } else if constexpr ( requires { value.get(); } ) {
      return displayAddress( value.get() );
   } else {
      return std::string( value.view() );
   }
}

} // namespace Quill
