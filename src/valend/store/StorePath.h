// Finds what a path of the store names.
#pragma once

#include "platform/orrery/EntityManager.h"

#include <optional>
#include <string_view>
#include <vector>

namespace Valend {

// The entities along a path: a change of one may change what the path names.
using StoreVisits = std::vector< Quill::Ptr< Quill::Entity const > >;

// An entity, one of its attributes, or a value that is not an entity.
struct StorePlace {
   Quill::Ptr< Quill::Entity const > entity; // also the one that holds the attribute or value
   Quill::Attribute const * attribute = nullptr;
   std::optional< Quill::Value > value = std::nullopt;
};

// What is at `path`: names of directory entries, attributes and keys, with '/' in between; keys may hold
// '/' themselves. "" is the whole store; "kni/ns/NAME/status" a mounted entity. Nothing when there is no
// such path.
//   visits   receives the entities along the path, the last one included
std::optional< StorePlace > placeAt( Orrery::EntityManager const & entityManager,
                                     std::string_view path, StoreVisits & visits );

} // namespace Valend
