// The command line of valend.
#pragma once

#include "settings/ConfigFiles.h"
#include "settings/ProcessSettings.h"

#include <optional>
#include <string>

namespace Valend {

// The exit status of the process.
enum class Exit : int {
   done = 0,
   failed = 1, // could not start, or the event loop failed
   usage = 2,  // invalid option
   // 71: out of memory, see base/OutOfMemory.h
   badConfig = 78, // configuration rejected; restarting does not help
};

struct Options {
   std::string config = Settings::defaultFile;
   bool check = false;              // only check the configuration
   Settings::ProcessConfig process; // overrides the settings of the files
};

// Parses the command line. Returns nothing, with `exit` set, when the process is to end: help or the
// version was printed, or an option is invalid and was reported.
std::optional< Options > parseOptions( int argc, char const * const * argv, Exit & exit );

} // namespace Valend
