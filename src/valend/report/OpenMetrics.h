// Metrics in the OpenMetrics text format, version 1.0.0.
#pragma once

#include <prometheus/metric_family.h>
#include <string>
#include <vector>

namespace Valend {

// The whole text, with the end mark. The families are counters, whose names end in "_total", gauges and
// histograms.
std::string openMetricsText( std::vector< prometheus::MetricFamily > const & families );

} // namespace Valend
