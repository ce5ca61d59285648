// The daemon's metrics.
#pragma once

#include "egress/Copies.h"
#include "valend/base/Conditions.h"
#include "valend/base/EnumTexts.h"
#include "valend/base/FaultLog.h"
#include "valend/configuration/Feeder.h"
#include "valend/shutdown/LinkController.h"
#include "valend/speakers/SpeakerTable.h"

#include <functional>
#include <map>
#include <optional>
#include <prometheus/metric_family.h>
#include <string>
#include <vector>

namespace Valend {

enum class MetricsFormat : U8 {
   prometheus,  // the Prometheus text format, version 0.0.4, which every collector reads
   openmetrics, // OpenMetrics 1.0.0
};
constexpr auto enumTexts( MetricsFormat ) {
   return std::to_array< EnumText< MetricsFormat > >(
      { { MetricsFormat::prometheus, "prometheus" },
        { MetricsFormat::openmetrics, "openmetrics" } } );
}

class Metrics {
 public:
   // Connections of the control API.
   struct Clients {
      U64 connected = 0;                      // now
      std::map< std::string, U64 > dropped{}; // since the start, for exceeding a limit, by reason
   };
   // Of the database.
   struct Database {
      bool connected = false;
      U64 reconnects = 0;
      U64 pending = 0;
      U64 entities = 0;
      U64 rejected = 0;
   };
   // What the metrics are taken from. All must outlive this.
   struct Sources {
      Store const & store;
      Feeder const & feeder;
      LinkPort const & port;
      LinkController const & controller;
      FaultLog const & faults;
      Conditions const & conditions;
      SpeakerTable const & speakers;
      std::function< Egress::Lost() > lost; // frames of speakers
      std::function< Clients() > clients;
      std::function< U64() > linesDropped; // of the log
      std::function< U64() > sharedBursts; // of frames; see linux/PacketEndpoint.h
      std::function< std::optional< Database >() > database; // nothing without one
   };

   explicit Metrics( Sources sources ) : sources_( std::move( sources ) ) {}

   // As they are now. Counters start at zero with the daemon. A new metric goes into the table in
   // docs/operating.md.
   std::string text( MetricsFormat format = MetricsFormat::prometheus ) const;

 private:
   using Families = std::vector< prometheus::MetricFamily >;

   void addInterfaces( Families & families ) const;
   void addShutdowns( Families & families ) const;
   void addHeld( Families & families ) const;
   void addFrames( Families & families ) const;
   void addSpeakers( Families & families ) const;
   void addMuting( Families & families ) const;
   void addConditions( Families & families ) const;
   void addClients( Families & families ) const;
   void addDatabase( Families & families ) const;

   Sources const sources_;
};

} // namespace Valend
