// The configuration that is active, and where each part of it comes from.
#pragma once

#include "settings/Config.h"
#include "settings/Sources.h"

#include <string>
#include <vector>

namespace Valend {

struct ActiveConfiguration {
   Settings::Config config;             // of the files
   Settings::Sources sources;           // the places of `config`
   std::vector< std::string > warnings; // about the files of `config`

   Settings::ProcessConfig commandLine;
   Settings::ProcessConfig process;  // as valend was started, the command line included
   Settings::Sources processSources; // the places of `process`

   // The settings of the process that are wanted now. They differ from `process` in what takes effect
   // at the next start.
   Settings::ProcessConfig wanted() const { return config.process.overriddenBy( commandLine ); }
};

} // namespace Valend
