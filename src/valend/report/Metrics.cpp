#include "valend/report/Metrics.h"

#include "valend/base/Version.h"
#include "valend/report/OpenMetrics.h"

#include <cstring>

namespace Valend {

namespace {

void addInterfaces( OpenMetrics & metrics, MetricsParts const & parts ) {
   auto const & config = parts.feeder.config();
   U64 ready = 0;
   U64 held = 0;
   U64 withoutGoodbye = 0;
   for ( auto const & [ name, interface ] : config.interfaces ) {
      auto const status = parts.store.statusDir->intfStatus( Corvid::IntfId( name ) );
      ready += status && status->shouldDelay();
      held += parts.controller.remaining( name ).has_value();
      withoutGoodbye += parts.controller.downWithoutGoodbye(
         { config.netNsOf( interface.vrf ), interface.device } );
   }
   metrics.gauge( "valen_interfaces", "Interfaces that are configured.", config.interfaces.size() );
   metrics.gauge( "valen_interfaces_ready", "Interfaces whose shutdown would be held now.", ready );
   metrics.gauge( "valen_interfaces_held", "Interfaces whose link is held now.", held );
   metrics.gauge( "valen_interfaces_without_goodbye",
                  "Interfaces that are down because somebody else set the link down.",
                  withoutGoodbye );
}

void addShutdowns( OpenMetrics & metrics, LinkController const & controller ) {
   auto const & statistics = controller.statistics();
   metrics.gauge( "valen_shutdowns_running", "Shutdowns that are under way.",
                  controller.running() );
   metrics.family(
      "valen_shutdowns", "counter",
      "Shutdowns by how they ended; went-down is a link that somebody else set down." );
   for ( auto const & [ ending, count ] : statistics.endings() ) {
      ShutdownRecord record;
      record.ending = ending;
      metrics.sample( "_total", { { "ending", record.endingText() } }, count );
   }
   metrics.counter( "valen_shutdowns_resumed", "Shutdowns that an agent before this one began.",
                    statistics.resumed() );
   metrics.counter( "valen_shutdowns_unflushed",
                    "Shutdowns whose frames had not all left the machine.",
                    statistics.unflushed() );
   auto const & held = statistics.held();
   metrics.family( "valen_shutdown_held_seconds", "histogram",
                   "How long links were held once their frames were sent.", "seconds" );
   for ( std::size_t i = 0; i < held.bounds.size(); ++i ) {
      metrics.sample( "_bucket", { { "le", OpenMetrics::number( held.bounds[ i ] ) } },
                      held.atMost[ i ] );
   }
   metrics.sample( "_bucket", { { "le", "+Inf" } }, held.count );
   metrics.sample( "_count", {}, held.count );
   metrics.sample( "_sum", {}, held.seconds );
}

void addFrames( OpenMetrics & metrics, ShutdownStatistics const & statistics ) {
   metrics.family( "valen_frames_sent", "counter", "Frames that the kernel took, by agent." );
   for ( auto const & [ agent, frames ] : statistics.agents() ) {
      metrics.sample( "_total", { { "agent", agent } }, frames.sent );
   }
   metrics.family( "valen_frames_refused", "counter",
                   "Frames that the kernel refused, by agent and error." );
   for ( auto const & [ agent, frames ] : statistics.agents() ) {
      for ( auto const & [ number, count ] : frames.refused ) {
         auto const * const name = ::strerrorname_np( number );
         auto const error = name ? std::string( name ) : std::to_string( number );
         metrics.sample( "_total", { { "agent", agent }, { "errno", error } }, count );
      }
   }
}

} // namespace

std::string metricsText( MetricsParts const & parts ) {
   OpenMetrics metrics;
   metrics.family( "valen_build", "info", "The agent's version." );
   metrics.sample( "_info", { { "version", version } }, U64( 1 ) );
   metrics.gauge( "valen_active", "1 while the delay is at work.",
                  parts.store.statusDir->agentActive() );
   addInterfaces( metrics, parts );
   addShutdowns( metrics, parts.controller );
   addFrames( metrics, parts.controller.statistics() );
   metrics.counter( "valen_faults", "Faults in the library's handlers.", parts.faults.count() );
   metrics.counter( "valen_device_resyncs",
                    "How often notices of devices were lost and all devices were asked for.",
                    parts.port.resyncs() );
   metrics.gauge( "valen_journal_in_trouble", "1 while shutdowns cannot be written down.",
                  !parts.controller.trouble().empty() );
   return metrics.text();
}

} // namespace Valend
