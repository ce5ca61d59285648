// One entity of a database: a hash, which is an item of the configuration.
#pragma once

#include "settings/Config.h"
#include "settings/Sources.h"

#include <cstddef>
#include <map>
#include <string>

namespace Settings {

using Fields = std::map< std::string, std::string >;

// The bounds of an entity, besides those of its values.
inline constexpr std::size_t maxEntityFields = 16;
inline constexpr std::size_t maxEntityFieldBytes = 4096;

struct Entity {
   enum class Kind : U8 { delay, vrf, interface, unknown };

   Kind kind = Kind::unknown;
   std::string name;          // of the VRF or interface
   U16 delayMs = 0;           // of a delay
   std::string netNs;         // of a VRF
   InterfaceConfig interface; // of an interface
   std::string why;           // what is wrong with it by itself; empty when it is valid
};

// The entity `key`, without prefix, of these fields: "config:delay" with "shutdown-delay-ms", "config:vrf:NAME" and
// "config:interface:NAME" with the keys of an item of the files, but for its name. A list is in brackets, as in
// the files.
Entity entityOf( std::string const & key, Fields const & fields );

// What is wrong with the value of an entity beside others: the texts of the files.
std::string unknownVrfOf( InterfaceConfig const & interface );
std::string namespaceTakenBy( std::string const & space, std::string const & vrf,
                              Place const & place );
std::string deviceTakenBy( InterfaceConfig const & interface, std::string const & other,
                           Place const & place );

} // namespace Settings
