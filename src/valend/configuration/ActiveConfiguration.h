// The configuration that is active, and where each part of it comes from.
#pragma once

#include "settings/Sources.h"
#include "valend/configuration/Plan.h"

#include <string>
#include <vector>

namespace Valend {

struct ActiveConfiguration {
   PlanPtr plan = std::make_shared< Plan const >(); // of the files
   Settings::Sources sources;                       // its places
   std::vector< std::string > warnings;             // about the files

   Settings::ProcessConfig commandLine;
   Settings::ProcessConfig process;  // as valend was started, the command line included
   Settings::Sources processSources; // the places of `process`

   Settings::Config const & config() const noexcept { return plan->config(); }
   // The settings of the process that are wanted now. They differ from `process` in what takes effect
   // at the next start.
   Settings::ProcessConfig wanted() const { return config().process.overriddenBy( commandLine ); }
};

} // namespace Valend
