// The command line.
#pragma once

#include "config/ConfigReader.h"
#include "valend/ApiAccess.h"
#include "valend/Configuration.h"

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
   static constexpr char const * defaultConfig = ValenConfig::defaultFile;
   static constexpr char const * defaultSocket = "/run/valen/valend.sock";
   static constexpr char const * defaultStateDirectory = "/var/lib/valen";

   std::string config = defaultConfig;
   bool check = false;                              // only look at the configuration
   ProcessConfig process;                           // goes before the file's
   std::string readers = ApiAccess::defaultReaders; // groups, by name or number
   std::string changers = ApiAccess::defaultChangers;
};

// Takes the command line apart. Nothing, with `exit` set, when the process is to end: help was
// asked for and printed, or an option is wrong and said so.
std::optional< Options > parseOptions( int argc, char const * const * argv, Exit & exit );

// The file's settings, with the command line's in their place where it has them.
ProcessConfig merged( ProcessConfig const & file, ProcessConfig const & commandLine );

// Where shutdowns are written down: as configured, else as the service manager says, else the usual
// place if it is there. Empty when there is none.
std::string stateDirectoryOf( ProcessConfig const & process );

} // namespace Valend
