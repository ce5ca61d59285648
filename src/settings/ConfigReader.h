// Reads the configuration: one file and the drop-ins in the folder "conf.d" beside it. One with
// anything wrong is refused whole, and all that is wrong in all files is told at once, each thing
// with its place.
#pragma once

#include "settings/Config.h"
#include "settings/Sources.h"

#include <string>
#include <string_view>
#include <vector>

namespace Settings {

// Where the configuration is when nobody says otherwise.
inline constexpr char const * defaultFile = "/etc/valen/valen.yaml";
// The folder of drop-ins, beside the file. Its files end in ".yaml" and are read by name, as if the
// lists of all files were one. A setting stands in one of them; an agent's messages may be spread.
inline constexpr char const * dropInFolder = "conf.d";

struct ConfigError {
   Place place;
   std::string text; // what is wrong, and what was expected

   // "valen.yaml:12:7: unknown VRF "blue"; expected one of ...", on one line.
   std::string message() const;
   bool operator==( ConfigError const & ) const = default;
};

struct ConfigResult {
   Config config;                     // meaningful only when there are no errors
   std::vector< ConfigError > errors; // file by file, in order of place
   Sources sources;
};

// The largest file that is read, in bytes.
inline constexpr std::size_t maxConfigBytes = 64u << 20;

// Reads `file` and its drop-ins; "-" is standard input, which has none.
ConfigResult readConfig( std::string const & file );

// What a file holds, and what it is called in errors. Frames in files of their own are looked for
// beside it.
struct ConfigText {
   std::string file;
   std::string text;
   std::string trouble = {}; // why the file could not be read; empty when it could
};

// Reads `texts` as one configuration. While one of them does not read or parse, names that the
// others refer to are not looked for.
ConfigResult parseConfig( std::vector< ConfigText > const & texts );
ConfigResult parseConfig( std::string const & text, std::string const & file );

} // namespace Settings
