// The store as JSON, by reflection: one walker for all entity types.
//
// An entity is an object of its attributes: collections are objects by key (queues: arrays), what
// an entity owns is shown whole, what it only refers to as its type and key. Bytes that are not UTF-8
// are shown as "0x" and hexadecimal digits.
#pragma once

#include "platform/orrery/EntityManager.h"

#include <nlohmann/json.hpp>
#include <optional>
#include <string_view>
#include <vector>

namespace Valend {

using Json = nlohmann::json;

// The entities that a walk visited: a change of one may change the result.
using StoreVisits = std::vector< Quill::Ptr< Quill::Entity const > >;

// The largest number of values in one answer: more would block the loop for too long.
inline constexpr std::size_t maxStoreValues = 200'000;

// The value at `path`: names of directory entries, attributes and keys, with '/' in between; keys
// may hold '/' themselves. "" is the whole store; "kni/ns/NAME/status" a mounted entity. Nothing
// when there is no such path. Throws Refusal "TooLarge".
//   visits   receives the visited entities, those along the path included; may be null
std::optional< Json > showPath( Orrery::EntityManager const & entityManager, std::string_view path,
                                StoreVisits * visits = nullptr );

} // namespace Valend
