// Reads the configuration file. A file with anything wrong is refused whole, and all that is wrong
// with it is told at once, each thing with its place.
#pragma once

#include "config/Config.h"

#include <string>
#include <string_view>
#include <vector>

namespace ValenConfig {

struct ConfigError {
   std::string file;
   int line; // from 1; 0 when the error is the whole file's
   int column;
   std::string text; // what is wrong, and what was expected

   // "valen.yaml:12:7: unknown VRF "blue"; expected one of ...", on one line.
   std::string message() const;
   bool operator==( ConfigError const & ) const = default;
};

struct ConfigResult {
   Config config;                     // meaningful only when there are no errors
   std::vector< ConfigError > errors; // in order of place
};

// The largest file that is read, in bytes.
inline constexpr std::size_t maxConfigBytes = 64u << 20;

// Reads `file`, or standard input for "-".
ConfigResult readConfig( std::string const & file );

// Reads `text`; `file` is what errors call it.
ConfigResult parseConfig( std::string const & text, std::string const & file );

} // namespace ValenConfig
