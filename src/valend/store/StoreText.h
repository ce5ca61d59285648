// One entity of the store as JSON, by reflection: the same code for all entity types.
//
// An entity is an object of its attributes: collections are objects by key (queues: arrays), what an
// entity owns is part of it, what it only refers to is shown as its type and key. Bytes that are not
// printable ASCII are shown as "0x" and hexadecimal digits. Names and keys are sorted.
#pragma once

#include "platform/quill/Entity.h"

#include <string>
#include <vector>

namespace Valend {

// The text of one entity, without those that it owns: they come between the parts.
struct StoreText {
   std::vector< std::string > parts{ "" }; // one more than owned entities
   std::vector< Quill::Ptr< Quill::Entity const > > owned;
   std::size_t values = 0;
};

// Of the entity, or of one of its attributes only.
StoreText storeText( Quill::Entity const & entity, Quill::Attribute const * only = nullptr );

// Of a value that is not an entity.
std::string storeText( Quill::Value const & value );

} // namespace Valend
