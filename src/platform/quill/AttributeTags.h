// The attribute lines of an entity's class as a list of types, at compile time.
//
// Each line declares a tag, a type that describes the attribute, and an overload of
// `quillAttribute` that maps the line's number to the tag (Attributes.h). Trying the numbers one
// after the other yields the list, so none has to be maintained.
#pragma once

#include "platform/quill/Entity.h"

#include <tuple>
#include <type_traits>

namespace Quill {

// A source line of an entity's class.
template < int > struct Line {};

// How many lines the attributes of a class may span, counted from QUILL_ENTITY.
inline constexpr int attributeLines = 96;

// The tags of T's attribute lines, in order, as a tuple.
template < class T, int line = T::quillFirstLine > constexpr auto attributeTags() {
   if constexpr ( line == T::quillFirstLine + attributeLines ) {
      return std::tuple<>();
   } else if constexpr ( requires { T::quillAttribute( Line< line >() ); } ) {
      using Tag = decltype( T::quillAttribute( Line< line >() ) );
      return std::tuple_cat( std::tuple< Tag >(), attributeTags< T, line + 1 >() );
   } else {
      return attributeTags< T, line + 1 >();
   }
}

template < class... Tags > constexpr auto parameterTags( std::tuple< Tags... > ) {
   return std::tuple_cat( std::conditional_t< Tags::kind == AttrKind::parameter, std::tuple< Tags >,
                                              std::tuple<> >()... );
}

// The tags of T's constructor parameters, in order.
template < class T > using ParameterTags = decltype( parameterTags( attributeTags< T >() ) );

} // namespace Quill
