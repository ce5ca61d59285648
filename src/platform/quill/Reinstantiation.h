// The re-instantiation rule: asking for a keyed object that exists returns it if it was made from
// the same parameters, and fails otherwise. Members of entities (CollectionFields.h) and children of
// reactors (Children.h) follow it.
#pragma once

#include "platform/quill/AttributeTags.h"
#include "platform/quill/Display.h"
#include "platform/quill/Exception.h"

#include <string>
#include <tuple>
#include <type_traits>
#include <utility>

namespace Quill {

// Throws NameInUseException: the object exists and its parameter `name` (with its leading
// underscore) has another value.
[[noreturn]] void parameterDiffers( char const * name, std::string const & newValue,
                                    std::string const & currentValue );

template < class T >
void requireSameParameter( char const * name, T const & newValue, T const & currentValue ) {
   if ( !( newValue == currentValue ) ) {
      parameterDiffers( name, display( newValue ), display( currentValue ) );
   }
}

// A constructor parameter of a class that is not an entity: its name in the rule's text, and the
// accessor of the value that the object was made from.
template < class Accessor > struct Parameter {
   constexpr Parameter( char const * n, Accessor a ) : name( n ), accessor( a ) {}
   char const * name;
   Accessor accessor;
};

// Such a class lists its parameters in `quillParameters()`, in order and without the key.
template < class T >
concept ListsParameters = requires {
   T::quillParameters();
};

template < class T, class Accessor, class Value >
bool hasParameter( T const & object, Parameter< Accessor > parameter, Value const & value ) {
   return ( object.*parameter.accessor )() == value;
}

// Whether `object` was made from `values`.
template < ListsParameters T, class... Values >
bool hasParameters( T const & object, Values const &... values ) {
   return std::apply(
      [ & ]( auto... parameters ) { return ( hasParameter( object, parameters, values ) && ... ); },
      T::quillParameters() );
}

template < class T, class Accessor, class Value >
void requireParameter( T const & object, Parameter< Accessor > parameter, Value const & value ) {
   using Type = std::remove_cvref_t< decltype( ( object.*parameter.accessor )() ) >;
   requireSameParameter< Type >( parameter.name, value, ( object.*parameter.accessor )() );
}

// Throws NameInUseException, which names the first difference, unless `object` was made from
// `values`.
template < ListsParameters T, class... Values >
void requireSameParameters( T const & object, Values const &... values ) {
   std::apply(
      [ & ]( auto... parameters ) { ( requireParameter( object, parameters, values ), ... ); },
      T::quillParameters() );
}

// The same for an entity, whose attribute lines name the parameters. The first one is its key.
template < class M, class... Values >
void requireSameParameters( M const & member, Values const &... values ) {
   using Tags = ParameterTags< M >;
   static_assert( std::tuple_size_v< Tags > == sizeof...( Values ) + 1 );
   [ & ]< std::size_t... i >( std::index_sequence< i... > ) {
      ( requireSameParameter< typename std::tuple_element_t< i + 1, Tags >::Type >(
           std::tuple_element_t< i + 1, Tags >::parameterName, values,
           std::tuple_element_t< i + 1, Tags >::get( member ) ),
        ... );
   }
   ( std::make_index_sequence< sizeof...( Values ) >() );
}

} // namespace Quill
