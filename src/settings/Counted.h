// Counts in sentences.
#pragma once

#include <cstdint>
#include <string>

namespace Settings {

// "1 frame", "2 frames".
inline std::string counted( std::uint64_t count, char const * what ) {
   return std::to_string( count ) + " " + what + ( count == 1 ? "" : "s" );
}

} // namespace Settings
