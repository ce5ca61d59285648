// A call's parameters as plain values: which C++ type stands for which described type.
//
// Argument< T >::accepts returns whether T can hold what a type describes; Argument< T >::of makes the
// value of what was checked against the description already, or nothing when it is out of T's range.
#pragma once

#include "platform/quill/Int.h"
#include "valend/base/EnumTexts.h"
#include "varlink/Description.h"
#include "varlink/Errors.h"

#include <algorithm>
#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace Valend {

using Varlink::Json;

template < class T > struct Argument {
   static_assert( std::is_enum_v< T >, "this type has no Argument" );
   static bool accepts( Varlink::Type const & type ) {
      auto const texts = enumTexts( T() );
      return type.kind == Varlink::Type::Kind::enumeration &&
             std::equal(
                texts.begin(), texts.end(), type.values.begin(), type.values.end(),
                []( auto const & each, auto const & value ) { return each.text == value; } );
   }
   static std::optional< T > of( Json const & value ) {
      return valueOf< T >( value.get_ref< std::string const & >() );
   }
};

template <> struct Argument< std::string > {
   static bool accepts( Varlink::Type const & type ) {
      return type.kind == Varlink::Type::Kind::string;
   }
   static std::optional< std::string > of( Json const & value ) { return value; }
};

template <> struct Argument< bool > {
   static bool accepts( Varlink::Type const & type ) {
      return type.kind == Varlink::Type::Kind::boolean;
   }
   static std::optional< bool > of( Json const & value ) { return value.get< bool >(); }
};

// Not below 0.
template <> struct Argument< U64 > {
   static bool accepts( Varlink::Type const & type ) {
      return type.kind == Varlink::Type::Kind::integer;
   }
   static std::optional< U64 > of( Json const & value ) {
      auto const number = value.get< S64 >();
      return number < 0 ? std::nullopt : std::optional( static_cast< U64 >( number ) );
   }
};

template < class T > struct Argument< std::vector< T > > {
   static bool accepts( Varlink::Type const & type ) {
      return type.kind == Varlink::Type::Kind::array && Argument< T >::accepts( *type.element );
   }
   static std::optional< std::vector< T > > of( Json const & value ) {
      std::vector< T > list;
      for ( auto const & element : value ) {
         auto made = Argument< T >::of( element );
         if ( !made ) {
            return std::nullopt;
         }
         list.push_back( *std::move( made ) );
      }
      return list;
   }
};

// One that may be null or left out.
template < class T > struct Argument< std::optional< T > > {
   static bool accepts( Varlink::Type const & type ) {
      return type.kind == Varlink::Type::Kind::optional && Argument< T >::accepts( *type.element );
   }
   static std::optional< std::optional< T > > of( Json const & value ) {
      if ( value.is_null() ) {
         return std::optional< T >();
      }
      auto made = Argument< T >::of( value );
      if ( !made ) {
         return std::nullopt; // out of range, which is not the same as left out
      }
      return std::optional< std::optional< T > >( std::in_place, std::move( made ) );
   }
};

// The parameter of that name. Throws InvalidParameter when it is out of T's range.
template < class T > T argument( Json const & parameters, std::string const & name ) {
   auto const found = parameters.find( name );
   auto value = Argument< T >::of( found == parameters.end() ? Json() : *found );
   if ( !value ) {
      throw Varlink::Errors::invalidParameter( name );
   }
   return *std::move( value );
}

} // namespace Valend
