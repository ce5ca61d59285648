// The settings of the process: where each comes from, and its default.
#pragma once

#include "settings/Config.h"

#include <string>

namespace Settings {

inline constexpr char const * defaultSocket = "/run/valen/valend.sock";
inline constexpr char const * defaultStateDirectory = "/var/lib/valen";

// The file's settings, overridden by those of the command line.
ProcessConfig merged( ProcessConfig const & file, ProcessConfig const & commandLine );

// Where shutdowns are recorded: as configured, else as the service manager says, else the default
// directory if it exists. Empty when there is none.
std::string stateDirectoryOf( ProcessConfig const & process );

} // namespace Settings
