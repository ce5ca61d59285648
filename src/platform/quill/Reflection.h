// The generic face of every entity: its type, its attributes by name, its collections.
//
// The attribute lines of Attributes.h generate these tables. The paths of the state store, its JSON
// and its watch stream are walks over them.
#pragma once

#include "platform/quill/Value.h"

#include <functional>
#include <span>
#include <string>
#include <string_view>

namespace Quill {

// Names an attribute within its type; carried by every notification.
using AttrId = U16;

enum class AttrKind : U8 {
   parameter, // set by the constructor, never changes
   single,    // one value, one setter
   members,   // owned entities under a key of their own
   map,       // values under an outside key
   set,       // keys alone
   queue,     // values by position
};

struct Attribute {
   // Called for each element of an attribute: a single value with an empty key, a collection's
   // members with their keys' display forms, a queue's values with their positions.
   using Visitor = std::function< void( std::string const & key, Value const & value ) >;

   AttrId id;
   AttrKind kind;
   char const * name;
   void ( *visit )( Entity const & entity, Visitor const & visitor );
   U32 ( *count )( Entity const & entity );
   // The element under the key of that display form; an empty value if it is absent.
   Value ( *element )( Entity const & entity, std::string_view key );
   // The display form of a notification's key; empty for attributes without keys.
   std::string ( *keyText )( void const * key );

   bool isCollection() const noexcept { return kind > AttrKind::single; }
};

struct EntityType {
   char const * name;                       // qualified, "Valen::Intf"
   std::span< Attribute const > attributes; // in order of declaration
   // Builds an entity from its constructor's parameters, in order. Throws RangeException if
   // their number or a type does not fit.
   Ptr< Entity > ( *construct )( std::span< Value const > parameters );

   Attribute const * attribute( std::string_view name ) const noexcept;
   Attribute const * attribute( AttrId id ) const noexcept;
};

} // namespace Quill
