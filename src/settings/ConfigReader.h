// Parses the configuration: one file and the drop-ins in the directory "conf.d" beside it. If anything
// is wrong, the whole configuration is rejected, and all errors of all files are listed, each with its
// place.
#pragma once

#include "settings/Config.h"
#include "settings/Sources.h"

#include <string>
#include <string_view>
#include <vector>

namespace Settings {

struct ConfigError {
   Place place;
   std::string text; // what is wrong, and what is expected

   // "valen.yaml:12:7: unknown VRF "blue"; expected one of ...", on one line.
   std::string message() const;
   bool operator==( ConfigError const & ) const = default;
};

struct ConfigResult {
   Config config;                     // meaningful only when there are no errors
   std::vector< ConfigError > errors; // file by file, in order of place
   Sources sources;
   // Of what is valid but probably a mistake, such as a file that is ignored.
   std::vector< ConfigError > warnings = {};
};

// The content of a file, and its name in errors. Capture files are looked up relative to it.
struct ConfigText {
   std::string file;
   std::string text;
   std::string error = {}; // why the file could not be read; empty when it could
};

// Parses `texts` as one configuration. If one of them could not be read or parsed, unknown names in
// the others are not reported, because it may define them.
ConfigResult parseConfig( std::vector< ConfigText > const & texts );
ConfigResult parseConfig( std::string const & text, std::string const & file );

} // namespace Settings
