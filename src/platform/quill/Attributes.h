// The attribute lines of entities. An entity reads like its table:
//
//   class Intf final : public Quill::Entity {
//      QUILL_ENTITY( Valen::Intf )
//    public:
//      Intf( Corvid::IntfId intfId, Quill::Ptr< IntfMessage const > intfMessage );
//      QUILL_PARAMETER( Corvid::IntfId, intfId )
//      QUILL_SINGLE( Quill::Ptr< L3::Intf::Status const >, l3IntfStatus )
//   };
//
// Each line, which must be a line of its own, yields the accessor, the setter or key operations,
// the notification and the reflection of one attribute, and the tag by which a watch names it
// (`Intf::l3IntfStatusAttr`). A write that changes nothing is silent.
//
//   QUILL_PARAMETER( Type, x )         x()
//   QUILL_SINGLE( Type, x )            x(), xIs( value )
//   QUILL_MEMBERS( Member, x, keyOf )  x( key ), x(), xs(), xHas( key ), xIs( key, parameters... ),
//                                      xAdd( member ), xDel( key ), xDelAll()
//   QUILL_MAP( Key, Type, x )          x( key ), x(), xs(), xHas( key ), xIs( key, value ),
//                                      xDel( key ), xDelAll(); a null handle as the value removes
//   QUILL_SET( Key, x )                x(), xs(), xHas( key ), xIs( key ), xDel( key ), xDelAll()
//   QUILL_QUEUE( Type, x )             x(), x( position ), xs(), xEnq( value ), xDelAll()
//
// x() of a collection is for walking it; xs() counts.
#pragma once

#include "platform/quill/Allocation.h"
#include "platform/quill/Entity.h"
#include "platform/quill/Exception.h"
#include "platform/quill/LinkQueue.h"

#include <array>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>

namespace Quill {

// The place of an attribute line in its class; lines are what tells attributes apart.
template < int > struct Line {};

// How many lines after QUILL_ENTITY attribute lines may stand.
inline constexpr int attributeLines = 96;

// --- The re-instantiation rule -------------------------------------------------------------------

// Throws NameInUseException: the member exists and its parameter `name` (with its leading
// underscore) has another value.
[[noreturn]] void parameterDiffers( char const * name, std::string const & newValue,
                                    std::string const & currentValue );

template < class T >
void requireSameParameter( char const * name, T const & newValue, T const & currentValue ) {
   if ( !( newValue == currentValue ) ) {
      parameterDiffers( name, display( newValue ), display( currentValue ) );
   }
}

// --- From attribute lines to tables --------------------------------------------------------------

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

// Checks `parameters` against what `member` was built from, after its key.
template < class M, class... P > void requireSameParameters( M const & member, P const &... p ) {
   using Tags = ParameterTags< M >;
   static_assert( std::tuple_size_v< Tags > == sizeof...( P ) + 1 );
   [ & ]< std::size_t... i >( std::index_sequence< i... > ) {
      ( requireSameParameter< typename std::tuple_element_t< i + 1, Tags >::Type >(
           std::tuple_element_t< i + 1, Tags >::parameterName, p,
           std::tuple_element_t< i + 1, Tags >::get( member ) ),
        ... );
   }
   ( std::make_index_sequence< sizeof...( P ) >() );
}

template < class Tag > struct TagOperations {
   using Owner = typename Tag::Owner;

   static Owner const & cast( Entity const & entity ) {
      return static_cast< Owner const & >( entity );
   }

   static void visit( Entity const & entity, Attribute::Visitor const & visitor ) {
      auto const & value = Tag::get( cast( entity ) );
      if constexpr ( Tag::kind == AttrKind::members ) {
         for ( auto const & member : value ) {
            visitor( display( Tag::keyOf( *member ) ),
                     toValue( Ptr< Entity const >( member.get() ) ) );
         }
      } else if constexpr ( Tag::kind == AttrKind::map ) {
         for ( auto const & entry : value ) {
            visitor( display( entry.key ), toValue( entry.value ) );
         }
      } else if constexpr ( Tag::kind == AttrKind::set ) {
         for ( auto const & key : value ) {
            visitor( display( static_cast< typename Tag::Key const & >( key ) ),
                     toValue( static_cast< typename Tag::Key const & >( key ) ) );
         }
      } else if constexpr ( Tag::kind == AttrKind::queue ) {
         U32 position = 0;
         for ( auto const & element : value ) {
            visitor( std::to_string( position++ ), toValue( element ) );
         }
      } else {
         visitor( std::string(), toValue( value ) );
      }
   }

   static U32 count( Entity const & entity ) {
      if constexpr ( Tag::kind > AttrKind::single ) {
         return Tag::get( cast( entity ) ).count();
      } else {
         return 1;
      }
   }

   static Value element( Entity const & entity, std::string_view wanted ) {
      Value found;
      if constexpr ( Tag::kind == AttrKind::members &&
                     std::is_constructible_v< typename Tag::Key, std::string_view > ) {
         try { // a key that cannot be formed is not there
            found = toValue( Ptr< Entity const >(
               Tag::get( cast( entity ) ).find( typename Tag::Key( wanted ) ).get() ) );
         } catch ( RangeException const & ) {
            return found;
         }
      } else {
         visit( entity, [ & ]( std::string const & key, Value const & value ) {
            if ( key == wanted ) {
               found = value;
            }
         } );
      }
      return found;
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

template < class V > bool isNullHandle( V const & value ) noexcept {
   if constexpr ( requires { typename V::Target; } ) {
      return !value;
   } else {
      return false;
   }
}

} // namespace Quill

// clang-format off: it takes the macros' text apart

// Opens an entity's class: its type, its tracked allocation, its notifiees.
#define QUILL_ENTITY( QualifiedName )                                                              \
   QUILL_TRACKED( QualifiedName )                                                                  \
 public:                                                                                           \
   using Self = QualifiedName;                                                                     \
   using Notifiee = ::Quill::NotifieeOf< Self >;                                                   \
   using NotifieeConst = ::Quill::NotifieeOf< Self const >;                                        \
   static constexpr char const * quillTypeName = #QualifiedName;                                   \
   static constexpr int quillFirstLine = __LINE__;                                                 \
   static ::Quill::EntityType const & staticType() {                                               \
      return ::Quill::entityTypeOf< Self >();                                                      \
   }                                                                                               \
   ::Quill::EntityType const & entityType() const override {                                       \
      return staticType();                                                                         \
   }                                                                                               \
                                                                                                   \
 private:

// An entity's tables are large, and every unit that sees the class would make them. Behind the class,
// at global scope, this says that they are made elsewhere: by QUILL_ENTITY_TABLES, in one source.
#define QUILL_ENTITY_TABLES_ELSEWHERE( QualifiedName )                                             \
   extern template ::Quill::EntityType const & ::Quill::entityTypeOf< QualifiedName >();
#define QUILL_ENTITY_TABLES( QualifiedName )                                                       \
   template ::Quill::EntityType const & ::Quill::entityTypeOf< QualifiedName >();

// What every attribute line declares besides its own operations.
#define QUILL_ATTRIBUTE_TAG( tagKind, ValueType, KeyType, attr )                                   \
   struct attr##AttrBase {                                                                         \
      using Owner = Self;                                                                          \
      using Type = ValueType;                                                                      \
      using Key = KeyType;                                                                         \
      static constexpr ::Quill::AttrId id = __LINE__;                                              \
      static constexpr ::Quill::AttrKind kind = ::Quill::AttrKind::tagKind;                        \
      static constexpr char const * parameterName = "_" #attr;                                     \
      static constexpr char const * name() { return parameterName + 1; }                           \
      static auto const & get( Self const & entity ) { return entity.attr##_; }                    \
   };                                                                                              \
   static_assert( __LINE__ > quillFirstLine &&                                                     \
                  __LINE__ < quillFirstLine + ::Quill::attributeLines );                           \
   static attr##Attr quillAttribute( ::Quill::Line< __LINE__ > );

#define QUILL_PARAMETER( Type, attr )                                                              \
 public:                                                                                           \
   struct attr##Attr;                                                                              \
   QUILL_ATTRIBUTE_TAG( parameter, Type, void, attr )                                              \
   struct attr##Attr : attr##AttrBase {};                                                          \
   Type const & attr() const noexcept {                                                            \
      return attr##_;                                                                              \
   }                                                                                               \
                                                                                                   \
 private:                                                                                          \
   Type const attr##_;

#define QUILL_SINGLE( Type, attr )                                                                 \
 public:                                                                                           \
   struct attr##Attr;                                                                              \
   QUILL_ATTRIBUTE_TAG( single, Type, void, attr )                                                 \
   struct attr##Attr : attr##AttrBase {};                                                          \
   Type const & attr() const noexcept {                                                            \
      return attr##_;                                                                              \
   }                                                                                               \
   void attr##Is( Type value ) {                                                                   \
      if ( value == attr##_ ) {                                                                    \
         return;                                                                                   \
      }                                                                                            \
      std::swap( attr##_, value ); /* the old value goes after everybody was told */               \
      notify( attr##Attr::id );                                                                    \
   }                                                                                               \
                                                                                                   \
 private:                                                                                          \
   Type attr##_{};

#define QUILL_MEMBERS( MemberType, attr, keyAttr )                                                 \
 public:                                                                                           \
   struct attr##Attr;                                                                              \
   using attr##Collection = ::Quill::Members< MemberType, &MemberType::keyAttr >;                  \
   QUILL_ATTRIBUTE_TAG( members, MemberType, attr##Collection::Key, attr )                         \
   struct attr##Attr : attr##AttrBase {                                                            \
      static auto keyOf( MemberType const & member ) { return member.keyAttr(); }                  \
   };                                                                                              \
   using attr##Key = attr##Collection::Key;                                                        \
   ::Quill::Ptr< MemberType > attr( attr##Key const & key ) const noexcept {                       \
      return attr##_.find( key );                                                                  \
   }                                                                                               \
   attr##Collection const & attr() const noexcept {                                                \
      return attr##_;                                                                              \
   }                                                                                               \
   U32 attr##s() const noexcept {                                                                  \
      return attr##_.count();                                                                      \
   }                                                                                               \
   bool attr##Has( attr##Key const & key ) const noexcept {                                        \
      return attr##_.has( key );                                                                   \
   }                                                                                               \
   /* The member under `key`, made from it and `parameters` when there is none. Fails with */      \
   /* NameInUseException when one exists that was made from other parameters. */                   \
   template < class... P >::Quill::Ptr< MemberType > attr##Is( attr##Key key, P... parameters ) {  \
      if ( auto const existing = attr##_.find( key ) ) {                                           \
         ::Quill::requireSameParameters( *existing, parameters... );                               \
         return existing;                                                                          \
      }                                                                                            \
      auto const member = ::Quill::make< MemberType >( key, std::move( parameters )... );          \
      member->parentIs( this );                                                                    \
      attr##_.insert( member );                                                                    \
      notify( attr##Attr::id, &key );                                                              \
      return member;                                                                               \
   }                                                                                               \
   /* Puts in a member that was made, and filled, outside. Its key must be free. */                \
   void attr##Add( ::Quill::Ptr< MemberType > member ) {                                           \
      auto const key = member->keyAttr();                                                          \
      VALEN_ASSERT( !attr##_.has( key ) );                                                         \
      member->parentIs( this );                                                                    \
      attr##_.insert( std::move( member ) );                                                       \
      notify( attr##Attr::id, &key );                                                              \
   }                                                                                               \
   void attr##Del( attr##Key key ) {                                                               \
      if ( auto const member = attr##_.remove( key ) ) {                                           \
         member->parentIs( nullptr );                                                              \
         notify( attr##Attr::id, &key );                                                           \
      }                                                                                            \
   }                                                                                               \
   void attr##DelAll() {                                                                           \
      for ( auto const & member : attr##_ ) {                                                      \
         attr##Del( member->keyAttr() );                                                           \
      }                                                                                            \
   }                                                                                               \
                                                                                                   \
 private:                                                                                          \
   attr##Collection attr##_;

#define QUILL_MAP( KeyType, ValueType, attr )                                                      \
 public:                                                                                           \
   struct attr##Attr;                                                                              \
   using attr##Collection = ::Quill::Map< KeyType, ValueType >;                                    \
   QUILL_ATTRIBUTE_TAG( map, ValueType, KeyType, attr )                                            \
   struct attr##Attr : attr##AttrBase {};                                                          \
   /* The value under `key`; an empty one when there is none. */                                   \
   ValueType attr( KeyType const & key ) const {                                                   \
      auto const * const value = attr##_.find( key );                                              \
      return value ? *value : ValueType();                                                         \
   }                                                                                               \
   attr##Collection const & attr() const noexcept {                                                \
      return attr##_;                                                                              \
   }                                                                                               \
   U32 attr##s() const noexcept {                                                                  \
      return attr##_.count();                                                                      \
   }                                                                                               \
   bool attr##Has( KeyType const & key ) const noexcept {                                          \
      return attr##_.has( key );                                                                   \
   }                                                                                               \
   void attr##Is( KeyType key, ValueType value ) {                                                 \
      bool const changed = ::Quill::isNullHandle( value )                                          \
                              ? attr##_.remove( key )                                              \
                              : attr##_.set( key, std::move( value ) );                            \
      if ( changed ) {                                                                             \
         notify( attr##Attr::id, &key );                                                           \
      }                                                                                            \
   }                                                                                               \
   void attr##Del( KeyType key ) {                                                                 \
      if ( attr##_.remove( key ) ) {                                                               \
         notify( attr##Attr::id, &key );                                                           \
      }                                                                                            \
   }                                                                                               \
   void attr##DelAll() {                                                                           \
      for ( auto const & entry : attr##_ ) {                                                       \
         attr##Del( entry.key );                                                                   \
      }                                                                                            \
   }                                                                                               \
                                                                                                   \
 private:                                                                                          \
   attr##Collection attr##_;

#define QUILL_SET( KeyType, attr )                                                                 \
 public:                                                                                           \
   struct attr##Attr;                                                                              \
   using attr##Collection = ::Quill::Set< KeyType >;                                               \
   QUILL_ATTRIBUTE_TAG( set, KeyType, KeyType, attr )                                              \
   struct attr##Attr : attr##AttrBase {};                                                          \
   attr##Collection const & attr() const noexcept {                                                \
      return attr##_;                                                                              \
   }                                                                                               \
   U32 attr##s() const noexcept {                                                                  \
      return attr##_.count();                                                                      \
   }                                                                                               \
   bool attr##Has( KeyType const & key ) const noexcept {                                          \
      return attr##_.has( key );                                                                   \
   }                                                                                               \
   void attr##Is( KeyType key ) {                                                                  \
      if ( attr##_.insert( key ) ) {                                                               \
         notify( attr##Attr::id, &key );                                                           \
      }                                                                                            \
   }                                                                                               \
   void attr##Del( KeyType key ) {                                                                 \
      if ( attr##_.remove( key ) ) {                                                               \
         notify( attr##Attr::id, &key );                                                           \
      }                                                                                            \
   }                                                                                               \
   void attr##DelAll() {                                                                           \
      for ( auto const & key : attr##_ ) {                                                         \
         attr##Del( key );                                                                         \
      }                                                                                            \
   }                                                                                               \
                                                                                                   \
 private:                                                                                          \
   attr##Collection attr##_;

#define QUILL_QUEUE( Type, attr )                                                                  \
 public:                                                                                           \
   struct attr##Attr;                                                                              \
   using attr##Collection = ::Quill::LinkQueue< Type >;                                            \
   QUILL_ATTRIBUTE_TAG( queue, Type, U32, attr )                                                   \
   struct attr##Attr : attr##AttrBase {};                                                          \
   attr##Collection const & attr() const noexcept {                                                \
      return attr##_;                                                                              \
   }                                                                                               \
   /* The value at `position` from the head; an empty one past the end. */                         \
   Type attr( U32 position ) const {                                                               \
      auto const * const value = attr##_.at( position );                                           \
      return value ? *value : Type();                                                              \
   }                                                                                               \
   U32 attr##s() const noexcept {                                                                  \
      return attr##_.count();                                                                      \
   }                                                                                               \
   /* Appends at the tail; the key of the notification is the new position. */                     \
   void attr##Enq( Type value ) {                                                                  \
      U32 const position = attr##_.count();                                                        \
      attr##_.append( std::move( value ) );                                                        \
      notify( attr##Attr::id, &position );                                                         \
   }                                                                                               \
   void attr##DelAll() {                                                                           \
      if ( !attr##_.empty() ) {                                                                    \
         attr##_.clear();                                                                          \
         notify( attr##Attr::id );                                                                 \
      }                                                                                            \
   }                                                                                               \
                                                                                                   \
 private:                                                                                          \
   attr##Collection attr##_;

// clang-format on
