// The store as JSON, by reflection: one walker for every type there is.
//
// An entity is an object of its attributes: collections are objects by key (queues: arrays), what
// an entity owns is shown whole, what it merely refers to as its type and key. Bytes that are no
// text are shown as "0x" and hexadecimal digits.
#pragma once

#include "platform/orrery/EntityManager.h"

#include <nlohmann/json.hpp>
#include <optional>
#include <string_view>
#include <vector>

namespace Valend {

using Json = nlohmann::json;

// The entities that a walk met, whose changes may change what it found.
using StoreVisits = std::vector< Quill::Ptr< Quill::Entity const > >;

// How many values one answer may hold: more would keep the loop too long.
inline constexpr std::size_t maxStoreValues = 200'000;

// What stands at `path`: names of directory entries, attributes and keys, with '/' in between; keys
// may hold '/' themselves. "" is the whole store; "kni/ns/NAME/status" a mounted entity. Nothing
// when there is nothing. Throws Refusal "TooLarge".
//   visits   gets the entities that were met, those on the way included; may be null
std::optional< Json > showPath( Orrery::EntityManager const & entityManager, std::string_view path,
                                StoreVisits * visits = nullptr );

} // namespace Valend
