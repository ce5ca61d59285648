// The configuration that is active, and where each part of it comes from.
#pragma once

#include "settings/Sources.h"
#include "valend/configuration/Plan.h"

#include <memory>
#include <string>
#include <vector>

namespace Valend {

using SourcesPtr = std::shared_ptr< Settings::Sources const >;

// What is large is shared, and never null.
struct ActiveConfiguration {
   PlanPtr plan = std::make_shared< Plan const >(); // of the files and the database
   SourcesPtr sources = std::make_shared< Settings::Sources const >(); // its places
   std::vector< std::string > warnings;                                // about the files

   Settings::ProcessConfig commandLine;
   Settings::ProcessConfig process;     // as valend was started, the command line included
   SourcesPtr processSources = sources; // the places of `process`

   Settings::Config const & config() const noexcept { return plan->config(); }
   // The settings of the process that are wanted now. They differ from `process` in what takes effect
   // at the next start.
   Settings::ProcessConfig wanted() const { return config().process.overriddenBy( commandLine ); }
};

} // namespace Valend
