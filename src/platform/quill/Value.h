// Quill::Value: any attribute's value in one generic form.
#pragma once

#include "platform/quill/Display.h"
#include "platform/quill/Int.h"
#include "platform/quill/Ptr.h"
#include "platform/quill/String.h"

#include <type_traits>
#include <variant>

namespace Quill {

class Entity;

// Counted out of line, for Entity is incomplete wherever this header stands alone.
template <> void Ptr< Entity const >::inc() const noexcept;
template <> void Ptr< Entity const >::dec() const noexcept;

// Nothing (an absent value), a bool, an integer, a number, bytes, or a handle to another entity.
// Names and values of other types appear as their display form.
using Value = std::variant< std::monostate, bool, S64, double, String, Ptr< Entity const > >;

template < class T > Value toValue( T const & value ) {
   if constexpr ( std::is_same_v< T, bool > ) {
      return value;
   } else if constexpr ( std::is_enum_v< T > || std::is_integral_v< T > ) {
      return static_cast< S64 >( value );
   } else if constexpr ( std::is_floating_point_v< T > ) {
      return static_cast< double >( value );
   } else if constexpr ( std::is_convertible_v< T, Ptr< Entity const > > ) {
      return value ? Value( Ptr< Entity const >( value ) ) : Value();
   } else if constexpr ( std::is_base_of_v< StringHandle, T > ) {
      return String( value.view() );
   } else {
      return String( display( value ) );
   }
}

// The reverse, for building an entity from generic values. Throws RangeException if `value` does
// not fit T.
[[noreturn]] void valueMismatch( char const * expected );

template < class T > T fromValue( Value const & value ) {
   if constexpr ( std::is_same_v< T, bool > ) {
      if ( auto const * truth = std::get_if< bool >( &value ) ) {
         return *truth;
      }
      valueMismatch( "a truth value" );
   } else if constexpr ( std::is_enum_v< T > || std::is_integral_v< T > ) {
      auto const * number = std::get_if< S64 >( &value );
      if ( number && static_cast< S64 >( static_cast< T >( *number ) ) == *number ) {
         return static_cast< T >( *number );
      }
      valueMismatch( "a whole number in range" );
   } else if constexpr ( requires { typename T::Target; } ) {
      if ( std::holds_alternative< std::monostate >( value ) ) {
         return T();
      }
      if ( auto const * handle = std::get_if< Ptr< Entity const > >( &value ) ) {
         using Target = typename T::Target;
         // Generic values carry handles as const. The caller owns the entity and may write to it.
         if ( auto const typed = ptrCast< Target const >( *handle ) ) {
            return T( const_cast< Target * >( typed.get() ) );
         }
      }
      valueMismatch( "a handle of the parameter's type" );
   } else {
      if ( auto const * bytes = std::get_if< String >( &value ) ) {
         return T( bytes->view() );
      }
      valueMismatch( "a string" );
   }
}

} // namespace Quill
