// The agent's metrics.
#pragma once

#include "valend/base/FaultLog.h"
#include "valend/configuration/Feeder.h"
#include "valend/shutdown/LinkController.h"

namespace Valend {

// What the metrics are taken from.
struct MetricsParts {
   Store const & store;
   Feeder const & feeder;
   LinkPort const & port;
   LinkController const & controller;
   FaultLog const & faults;
};

// As they are now, in OpenMetrics text. Counters begin with the agent.
std::string metricsText( MetricsParts const & parts );

} // namespace Valend
