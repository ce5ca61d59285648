// The command line.
#pragma once

#include "settings/ConfigReader.h"
#include "settings/ProcessSettings.h"
#include "valend/api/Access.h"

#include <optional>
#include <string>

namespace Valend {

// What the process ends with.
enum class Exit : int {
   done = 0,
   failed = 1,     // it could not start
   usage = 2,      // a wrong option
   badConfig = 78, // the configuration is refused; starting again will not help
};

struct Options {
   static constexpr char const * defaultConfig = Settings::defaultFile;

   std::string config = defaultConfig;
   bool check = false;                           // only look at the configuration
   Settings::ProcessConfig process;              // goes before the file's
   std::string readers = Access::defaultReaders; // groups, by name or number
   std::string changers = Access::defaultChangers;
};

// Takes the command line apart. Nothing, with `exit` set, when the process is to end: help was
// asked for and printed, or an option is wrong and said so.
std::optional< Options > parseOptions( int argc, char const * const * argv, Exit & exit );

} // namespace Valend
