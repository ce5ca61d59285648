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

namespace Valend {

using Json = nlohmann::json;

// What stands at `path`: names of directory entries, attributes and keys, with '/' in between; keys
// may hold '/' themselves. "" is the whole store; "kni/ns/NAME/status" a mounted entity. Nothing
// when there is nothing.
std::optional< Json > showPath( Orrery::EntityManager const & entityManager,
                                std::string_view path );

} // namespace Valend
