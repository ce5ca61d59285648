// What the API's methods work on.
#pragma once

#include "valend/api/Access.h"
#include "valend/base/Conditions.h"
#include "valend/base/Errors.h"
#include "valend/base/FaultLog.h"
#include "valend/base/TraceHub.h"
#include "valend/configuration/Configurator.h"
#include "valend/configuration/Publications.h"
#include "valend/report/Metrics.h"
#include "valend/report/ReadinessLoss.h"
#include "valend/report/SpeakersReport.h"
#include "valend/shutdown/LinkController.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace Valend {

// What a reload has done.
struct Reloaded {
   std::vector< std::string > changes;          // a line each
   std::vector< std::string > warnings;         // about the files
   std::vector< ReadinessLoss::Lost > notReady; // interfaces that were ready before
   std::optional< Refusal > rejected = {};      // nothing was applied: the files have errors
};

// All must outlive the API.
struct Parts {
   Store & store;
   Feeder & feeder;
   Publications & publications;
   LinkPort & port;
   LinkController & controller;
   FaultLog & faults;
   Conditions const & conditions;
   Metrics const & metrics;
   SpeakersReport const & speakers;
   TraceHub & trace;
   Configurator & configurator;
   Access & access;
   Quill::Ptr< Gantry::TaskScheduler > scheduler;
   Gantry::WorkQueue & work;
   // Reads the configuration again and calls the function with what came of it, at once or later.
   std::function< void( std::function< void( Reloaded const & ) > const & done ) > reload;
   // Calls the function when what was published is on the disk, or cannot be written (`saved` is false then), at once or
   // later.
   std::function< void( std::function< void( bool saved ) > const & done ) > whenSaved;
   // Looks at the network namespaces again.
   std::function< void() > rescan;

   // The interface's configuration. Throws Refusal "NoSuchInterface".
   Settings::InterfaceConfig const & interface( std::string const & name ) const {
      auto const & interfaces = feeder.config().interfaces;
      auto const found = interfaces.find( name );
      if ( found == interfaces.end() ) {
         throw Errors::noSuchInterface( name );
      }
      return found->second;
   }
};

} // namespace Valend
