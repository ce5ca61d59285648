// The reflection tables (Reflection.h) of an entity's class, built from its attribute lines at
// compile time.
#pragma once

#include "platform/quill/AttributeTags.h"
#include "platform/quill/Entity.h"
#include "platform/quill/Exception.h"
#include "platform/quill/LinkQueue.h"

#include <array>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>

namespace Quill {

// --- The elements of an attribute, by what holds them --------------------------------------------

template < class M, auto keyOf >
void visitElements( Members< M, keyOf > const & members, Attribute::Visitor const & visitor ) {
   for ( auto const & member : members ) {
      visitor( display( ( *member.*keyOf )() ), toValue( Ptr< Entity const >( member.get() ) ) );
   }
}

template < class K, class V >
void visitElements( Map< K, V > const & map, Attribute::Visitor const & visitor ) {
   for ( auto const & entry : map ) {
      visitor( display( entry.key ), toValue( entry.value ) );
   }
}

template < class K >
void visitElements( Set< K > const & set, Attribute::Visitor const & visitor ) {
   for ( K const & key : set ) {
      visitor( display( key ), toValue( key ) );
   }
}

template < class T >
void visitElements( LinkQueue< T > const & queue, Attribute::Visitor const & visitor ) {
   U32 position = 0;
   for ( auto const & element : queue ) {
      visitor( std::to_string( position++ ), toValue( element ) );
   }
}

template < class T > void visitElements( T const & value, Attribute::Visitor const & visitor ) {
   visitor( std::string(), toValue( value ) );
}

// The element whose key has that display form; an empty value if there is no such element.
template < class T > Value elementOf( T const & holder, std::string_view wanted ) {
   Value found;
   visitElements( holder, [ & ]( std::string const & key, Value const & value ) {
      if ( key == wanted ) {
         found = value;
      }
   } );
   return found;
}

// Members are found without a walk if their key can be formed from its display form.
template < class M, auto keyOf >
requires std::is_constructible_v< typename Members< M, keyOf >::Key, std::string_view >
   Value elementOf( Members< M, keyOf > const & members, std::string_view wanted ) {
   try {
      typename Members< M, keyOf >::Key const key( wanted );
      return toValue( Ptr< Entity const >( members.find( key ).get() ) );
   } catch ( RangeException const & ) {
      return Value(); // no member has a key that cannot be formed
   }
}

// --- The tables ---------------------------------------------------------------------------------

// One attribute's operations on any entity of its class.
template < class Tag > struct TagOperations {
   static auto const & get( Entity const & entity ) {
      return Tag::get( static_cast< typename Tag::Owner const & >( entity ) );
   }

   static void visit( Entity const & entity, Attribute::Visitor const & visitor ) {
      visitElements( get( entity ), visitor );
   }

   static U32 count( Entity const & entity ) {
      if constexpr ( Tag::kind > AttrKind::single ) {
         return get( entity ).count();
      } else {
         return 1;
      }
   }

   static Value element( Entity const & entity, std::string_view wanted ) {
      return elementOf( get( entity ), wanted );
   }

   static std::string keyText( void const * key ) {
      if constexpr ( std::is_void_v< typename Tag::Key > ) {
         (void)key;
         return std::string();
      } else {
         return display( *static_cast< typename Tag::Key const * >( key ) );
      }
   }

   static constexpr Attribute attribute() {
      return { Tag::id, Tag::kind, Tag::name(), &visit, &count, &element, &keyText };
   }
};

template < class T > Ptr< Entity > constructEntity( std::span< Value const > parameters ) {
   using Tags = ParameterTags< T >;
   if ( parameters.size() != std::tuple_size_v< Tags > ) {
      throw RangeException( std::string( T::quillTypeName ) + " takes " +
                            std::to_string( std::tuple_size_v< Tags > ) +
                            " constructor parameters, not " + std::to_string( parameters.size() ) );
   }
   return [ & ]< std::size_t... i >( std::index_sequence< i... > )->Ptr< Entity > {
      return make< T >(
         fromValue< typename std::tuple_element_t< i, Tags >::Type >( parameters[ i ] )... );
   }
   ( std::make_index_sequence< std::tuple_size_v< Tags > >() );
}

template < class T > EntityType const & entityTypeOf() {
   static constexpr auto attributes = []< class... Tags >( std::tuple< Tags... > ) {
      return std::array< Attribute, sizeof...( Tags ) >{ TagOperations< Tags >::attribute()... };
   }( attributeTags< T >() );
   static constexpr EntityType type{ T::quillTypeName, attributes, &constructEntity< T > };
   return type;
}

} // namespace Quill
