// The files that make up the configuration: which they are, and reading them.
#pragma once

#include "settings/ConfigReader.h"

#include <chrono>
#include <string>

namespace Settings {

// The configuration of an installed system.
inline constexpr char const * defaultFile = "/etc/valen/valen.yaml";

// The directory of drop-ins, beside the file. Files in it whose names end in ".yaml" are read in order
// of their names, as if the lists of all files were one. A setting is given in one of the files; the
// messages of an agent may be spread over several.
inline constexpr char const * dropInDirectory = "conf.d";

// How long standard input may take to end.
inline constexpr std::chrono::seconds inputTimeout{ 10 };

// Reads `file` and its drop-ins; "-" is standard input, which has none. They are regular files; standard input may
// also be a pipe, but not a terminal. A file that cannot be read is an error of the result, and so is what exceeds
// the limits (settings/Limits.h). A file in the directory whose name ends almost as a drop-in's (".yml") is a
// warning.
//   dropIn   if not empty, this file is read too, as if it were in the directory, where it would replace
//            one of the same name
ConfigResult readConfig( std::string const & file, std::string const & dropIn = "" );

// Reads `file` alone, which valend has written: yamlOf() makes more of a configuration than it was read from.
ConfigResult readConfigFile( std::string const & file );

} // namespace Settings
