// The daemon's metrics.
#pragma once

#include "valend/base/Conditions.h"
#include "valend/base/FaultLog.h"
#include "valend/configuration/Feeder.h"
#include "valend/shutdown/LinkController.h"

#include <functional>

namespace Valend {

class OpenMetrics;

class Metrics {
 public:
   // Connections of the control API.
   struct Clients {
      U64 connected = 0; // now
      U64 dropped = 0;   // since the start, for exceeding a limit
   };
   // What the metrics are taken from. All must outlive this.
   struct Sources {
      Store const & store;
      Feeder const & feeder;
      LinkPort const & port;
      LinkController const & controller;
      FaultLog const & faults;
      Conditions const & conditions;
      std::function< Clients() > clients;
   };

   explicit Metrics( Sources sources ) : sources_( std::move( sources ) ) {}

   // As they are now, in the OpenMetrics text format. Counters start at zero with the daemon. A new
   // metric goes into the table in docs/operating.md.
   std::string text() const;

 private:
   void addInterfaces( OpenMetrics & metrics ) const;
   void addShutdowns( OpenMetrics & metrics ) const;
   void addHeld( OpenMetrics & metrics ) const;
   void addFrames( OpenMetrics & metrics ) const;
   void addConditions( OpenMetrics & metrics ) const;
   void addClients( OpenMetrics & metrics ) const;

   Sources const sources_;
};

} // namespace Valend
