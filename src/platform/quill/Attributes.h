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
// Each line, which must be a source line of its own, declares the accessor, the setter or the key
// operations, the tag by which a watch names the attribute (`Intf::l3IntfStatusAttr`), and the
// field `l3IntfStatus_`, which does the work (Field.h, CollectionFields.h). A write that changes
// nothing is silent.
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
//
// One source per directory lists its entity types with QUILL_ENTITY_TABLES, which defines their
// reflection (EntityTables.h).
#pragma once

#include "platform/quill/Allocation.h"
#include "platform/quill/CollectionFields.h"

// The macros are formatted by hand.
// clang-format off

// Opens an entity's class: its type, its tracked allocation, its notifiees.
#define QUILL_ENTITY( QualifiedName )                                                              \
   QUILL_TRACKED( QualifiedName )                                                                  \
 public:                                                                                           \
   using Self = QualifiedName;                                                                     \
   using Notifiee = ::Quill::NotifieeOf< Self >;                                                   \
   using NotifieeConst = ::Quill::NotifieeOf< Self const >;                                        \
   static constexpr char const * quillTypeName = #QualifiedName;                                   \
   static constexpr int quillFirstLine = __LINE__;                                                 \
   static ::Quill::EntityType const & staticType();                                                \
   ::Quill::EntityType const & entityType() const override;                                        \
                                                                                                   \
 private:

// Declares the tag of attribute `attr`, whose kind, value and key are those of the field type that
// follows. Its accessor attr() is declared elsewhere.
#define QUILL_ATTRIBUTE_TAG( attr, ... )                                                           \
   struct attr##Attr {                                                                             \
      using Owner = Self;                                                                          \
      using Field = __VA_ARGS__;                                                                   \
      using Type = Field::Type;                                                                    \
      using Key = Field::Key;                                                                      \
      static constexpr ::Quill::AttrId id = __LINE__;                                              \
      static constexpr ::Quill::AttrKind kind = Field::kind;                                       \
      static constexpr char const * parameterName = "_" #attr;                                     \
      static constexpr char const * name() { return parameterName + 1; }                           \
      static Field::Contents const & get( Self const & entity ) { return entity.attr(); }          \
   };                                                                                              \
   static_assert( __LINE__ > quillFirstLine &&                                                     \
                  __LINE__ < quillFirstLine + ::Quill::attributeLines );                           \
   static attr##Attr quillAttribute( ::Quill::Line< __LINE__ > );

// The tag, the field and the accessor of attribute `attr`; operations follow.
#define QUILL_FIELD( attr, ... )                                                                   \
 private:                                                                                          \
   __VA_ARGS__ attr##_;                                                                            \
                                                                                                   \
 public:                                                                                           \
   QUILL_ATTRIBUTE_TAG( attr, __VA_ARGS__ )                                                        \
   attr##Attr::Field::Contents const & attr() const noexcept { return attr##_.get(); }

// What all collections have in common.
#define QUILL_COLLECTION( attr, ... )                                                              \
   QUILL_FIELD( attr, __VA_ARGS__ )                                                                \
   U32 attr##s() const noexcept { return attr##_.count(); }                                        \
   void attr##DelAll() { attr##_.removeAll( *this, attr##Attr::id ); }

// What the collections with keys have in common.
#define QUILL_KEYED( attr, ... )                                                                   \
   QUILL_COLLECTION( attr, __VA_ARGS__ )                                                           \
   bool attr##Has( attr##Attr::Key const & key ) const noexcept { return attr##_.has( key ); }     \
   void attr##Del( attr##Attr::Key key ) { attr##_.remove( *this, attr##Attr::id, key ); }

#define QUILL_PARAMETER( Type, attr )                                                              \
   QUILL_FIELD( attr, ::Quill::ParameterField< Type > )                                            \
 private:

#define QUILL_SINGLE( Type, attr )                                                                 \
   QUILL_FIELD( attr, ::Quill::SingleField< Type > )                                               \
   void attr##Is( Type value ) { attr##_.set( *this, attr##Attr::id, std::move( value ) ); }       \
                                                                                                   \
 private:

// xIs returns the member under `key` by the re-instantiation rule (Reinstantiation.h). xAdd puts in
// a member that was made, and filled, outside; its key must be free.
#define QUILL_MEMBERS( MemberType, attr, keyAttr )                                                 \
   QUILL_KEYED( attr, ::Quill::MembersField< MemberType, &MemberType::keyAttr > )                  \
   ::Quill::Ptr< MemberType > attr( attr##Attr::Key const & key ) const noexcept {                 \
      return attr##_.find( key );                                                                  \
   }                                                                                               \
   template < class... P >                                                                         \
   ::Quill::Ptr< MemberType > attr##Is( attr##Attr::Key key, P... parameters ) {                   \
      return attr##_.instantiate( *this, attr##Attr::id, key, std::move( parameters )... );        \
   }                                                                                               \
   void attr##Add( ::Quill::Ptr< MemberType > member ) {                                           \
      auto const key = member->keyAttr();                                                          \
      VALEN_ASSERT( !attr##_.has( key ) );                                                         \
      attr##_.insert( *this, attr##Attr::id, key, std::move( member ) );                           \
   }                                                                                               \
                                                                                                   \
 private:

#define QUILL_MAP( KeyType, ValueType, attr )                                                      \
   QUILL_KEYED( attr, ::Quill::MapField< KeyType, ValueType > )                                    \
   ValueType attr( KeyType const & key ) const { return attr##_.find( key ); }                     \
   void attr##Is( KeyType key, ValueType value ) {                                                 \
      attr##_.set( *this, attr##Attr::id, key, std::move( value ) );                               \
   }                                                                                               \
                                                                                                   \
 private:

#define QUILL_SET( KeyType, attr )                                                                 \
   QUILL_KEYED( attr, ::Quill::SetField< KeyType > )                                               \
   void attr##Is( KeyType key ) { attr##_.insert( *this, attr##Attr::id, key ); }                  \
                                                                                                   \
 private:

#define QUILL_QUEUE( Type, attr )                                                                  \
   QUILL_COLLECTION( attr, ::Quill::QueueField< Type > )                                           \
   Type attr( U32 position ) const { return attr##_.at( position ); }                              \
   void attr##Enq( Type value ) { attr##_.append( *this, attr##Attr::id, std::move( value ) ); }   \
                                                                                                   \
 private:

// clang-format on

// Defines the reflection of an entity type. Used in one source, in a namespace that encloses the
// class's own, after EntityTables.h is included: the tables are large, and no other source should
// compile them.
#define QUILL_ENTITY_TABLES( QualifiedName )                                                       \
   ::Quill::EntityType const & QualifiedName::staticType() {                                       \
      return ::Quill::entityTypeOf< QualifiedName >();                                             \
   }                                                                                               \
   ::Quill::EntityType const & QualifiedName::entityType() const {                                 \
      return staticType();                                                                         \
   }
