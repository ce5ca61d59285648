// The names of keys in the database.
//
// A key of a daemon is its prefix, ":" and one of the names below. The functions take and return names without
// the prefix, unless they say otherwise.
#pragma once

#include "platform/quill/Int.h"

#include <optional>
#include <string>
#include <string_view>

namespace Database {

// The set of the prefixes of all daemons; not below any prefix.
inline constexpr std::string_view hostsKey = "valen:hosts";

enum class Kind : U8 {
   configDelay,     // config:delay
   configVrf,       // config:vrf:NAME
   configInterface, // config:interface:NAME
   frames,          // frames:AGENT:NAME; no agent has ":" in its name
   want,            // want:NAME
   status,          // status:NAME
   rejected,        // rejected:KEY, with the key that was rejected as its name
   history,         // history
   alive,           // alive
};

struct Key {
   Kind kind;
   std::string name =
      {}; // the interface, the VRF, or the rejected key; empty for kinds without one
   std::string agent = {}; // of frames
   bool operator==( Key const & ) const = default;
};

namespace Names {

inline constexpr std::string_view configDelay = "config:delay";
inline constexpr std::string_view configVrf = "config:vrf:";
inline constexpr std::string_view configInterface = "config:interface:";
inline constexpr std::string_view frames = "frames:";
inline constexpr std::string_view want = "want:";
inline constexpr std::string_view status = "status:";
inline constexpr std::string_view rejected = "rejected:";
inline constexpr std::string_view history = "history";
inline constexpr std::string_view alive = "alive";
inline constexpr std::string_view test =
   "test"; // exists for a moment, to see whether the server tells of it

} // namespace Names

// The names of these kinds are what the daemon reads: configuration, frames and wanted links.
inline constexpr std::string_view readNames[] = { "config:", Names::frames, Names::want };

inline std::string nameOf( Key const & key ) {
   switch ( key.kind ) {
   case Kind::configDelay:
      return std::string( Names::configDelay );
   case Kind::configVrf:
      return std::string( Names::configVrf ) + key.name;
   case Kind::configInterface:
      return std::string( Names::configInterface ) + key.name;
   case Kind::frames:
      return std::string( Names::frames ) + key.agent + ":" + key.name;
   case Kind::want:
      return std::string( Names::want ) + key.name;
   case Kind::status:
      return std::string( Names::status ) + key.name;
   case Kind::rejected:
      return std::string( Names::rejected ) + key.name;
   case Kind::history:
      return std::string( Names::history );
   case Kind::alive:
      return std::string( Names::alive );
   }
   return {};
}

// What a name stands for; nothing if it is not one of those above, or a part of it is empty.
inline std::optional< Key > parseName( std::string_view name ) {
   for ( auto const & [ whole, kind ] :
         { std::pair( Names::configDelay, Kind::configDelay ),
           std::pair( Names::history, Kind::history ), std::pair( Names::alive, Kind::alive ) } ) {
      if ( name == whole ) {
         return Key{ kind };
      }
   }
   for ( auto const & [ start, kind ] :
         { std::pair( Names::configVrf, Kind::configVrf ),
           std::pair( Names::configInterface, Kind::configInterface ),
           std::pair( Names::want, Kind::want ), std::pair( Names::status, Kind::status ),
           std::pair( Names::rejected, Kind::rejected ) } ) {
      if ( name.starts_with( start ) && name.size() > start.size() ) {
         return Key{ kind, std::string( name.substr( start.size() ) ) };
      }
   }
   if ( name.starts_with( Names::frames ) ) {
      auto const rest = name.substr( Names::frames.size() );
      auto const colon = rest.find( ':' );
      if ( colon != rest.npos && colon > 0 && colon + 1 < rest.size() ) {
         return Key{ Kind::frames, std::string( rest.substr( colon + 1 ) ),
                     std::string( rest.substr( 0, colon ) ) };
      }
   }
   return std::nullopt;
}

// The prefix of a daemon that has none configured.
inline std::string defaultPrefix( std::string_view host ) {
   return "valen:" + std::string( host );
}

// A whole key.
inline std::string withPrefix( std::string_view prefix, std::string_view name ) {
   return std::string( prefix ) + ":" + std::string( name );
}

// The name in a whole key; nothing if the key is not below the prefix. A view into `key`.
inline std::optional< std::string_view > withoutPrefix( std::string_view prefix,
                                                        std::string_view key ) {
   if ( key.size() <= prefix.size() || !key.starts_with( prefix ) || key[ prefix.size() ] != ':' ) {
      return std::nullopt;
   }
   return key.substr( prefix.size() + 1 );
}

} // namespace Database
