#include "valend/report/Metrics.h"

#include "valend/base/Version.h"
#include "valend/report/OpenMetrics.h"

#include <cstring>

namespace Valend {

namespace {

// "ENETDOWN"
std::string errnoName( int number ) {
   auto const * const name = ::strerrorname_np( number );
   return name ? name : std::to_string( number );
}

} // namespace

std::string Metrics::text() const {
   OpenMetrics metrics;
   metrics.family( "valen_build", "info", "The version of valend." );
   metrics.sample( "_info", { { "version", version } }, U64( 1 ) );
   metrics.gauge( "valen_active", "1 if the shutdown delay is enabled.",
                  sources_.store.statusDir->agentActive() );
   addInterfaces( metrics );
   addShutdowns( metrics );
   addHeld( metrics );
   addFrames( metrics );
   metrics.counter( "valen_faults", "Errors in the library's handlers.", sources_.faults.count() );
   metrics.counter( "valen_device_resyncs", "Full netlink resyncs after lost notifications.",
                    sources_.port.resyncs() );
   addConditions( metrics );
   addClients( metrics );
   return metrics.text();
}

void Metrics::addInterfaces( OpenMetrics & metrics ) const {
   auto const & config = sources_.feeder.config();
   U64 ready = 0;
   U64 held = 0;
   U64 withoutGoodbye = 0;
   for ( auto const & [ name, interface ] : config.interfaces ) {
      auto const status = sources_.store.statusDir->intfStatus( Corvid::IntfId( name ) );
      ready += status && status->shouldDelay();
      held += sources_.controller.remaining( name ).has_value();
      withoutGoodbye += sources_.controller.downWithoutGoodbye(
         { config.netNsOf( interface.vrf ), interface.device } );
   }
   metrics.gauge( "valen_interfaces", "Configured interfaces.", config.interfaces.size() );
   metrics.gauge( "valen_interfaces_ready", "Interfaces whose shutdown would be delayed now.",
                  ready );
   metrics.gauge( "valen_interfaces_held", "Interfaces whose shutdown is delayed now.", held );
   metrics.gauge( "valen_interfaces_without_goodbye",
                  "Interfaces whose link was set down outside valend.", withoutGoodbye );
}

void Metrics::addShutdowns( OpenMetrics & metrics ) const {
   auto const & statistics = sources_.controller.statistics();
   metrics.gauge( "valen_shutdowns_running", "Shutdowns in progress.",
                  sources_.controller.running() );
   metrics.family( "valen_shutdowns", "counter",
                   "Shutdowns by result; went-down is a link that was set down outside valend." );
   for ( auto const & [ ending, count ] : statistics.endings() ) {
      ShutdownRecord record;
      record.ending = ending;
      metrics.sample( "_total", { { "result", record.endingText() } }, count );
   }
   metrics.counter( "valen_goodbyes", "Goodbyes that left the link up.", statistics.goodbyes() );
   metrics.counter( "valen_shutdowns_resumed", "Shutdowns resumed after a restart of valend.",
                    statistics.resumed() );
   metrics.counter( "valen_shutdowns_unflushed",
                    "Shutdowns with frames still queued when the link went down.",
                    statistics.unflushed() );
}

void Metrics::addHeld( OpenMetrics & metrics ) const {
   auto const & held = sources_.controller.statistics().held();
   metrics.family( "valen_shutdown_held_seconds", "histogram",
                   "Time between the goodbye frames and the end of the delay.", "seconds" );
   for ( std::size_t i = 0; i < held.bounds.size(); ++i ) {
      metrics.sample( "_bucket", { { "le", OpenMetrics::number( held.bounds[ i ] ) } },
                      held.atMost[ i ] );
   }
   metrics.sample( "_bucket", { { "le", "+Inf" } }, held.count );
   metrics.sample( "_count", {}, held.count );
   metrics.sample( "_sum", {}, held.seconds );
}

void Metrics::addFrames( OpenMetrics & metrics ) const {
   auto const & agents = sources_.controller.statistics().agents();
   metrics.family( "valen_frames_sent", "counter", "Frames sent, by agent." );
   for ( auto const & [ agent, frames ] : agents ) {
      metrics.sample( "_total", { { "agent", agent } }, frames.sent );
   }
   metrics.family( "valen_frames_refused", "counter",
                   "Frames that the kernel rejected, by agent and error." );
   for ( auto const & [ agent, frames ] : agents ) {
      for ( auto const & [ number, count ] : frames.refused ) {
         metrics.sample( "_total", { { "agent", agent }, { "errno", errnoName( number ) } },
                         count );
      }
   }
}

void Metrics::addConditions( OpenMetrics & metrics ) const {
   metrics.family( "valen_condition", "gauge",
                   "1 for each condition that is raised; valenctl status shows its text." );
   for ( auto const & condition : sources_.conditions.raised() ) {
      metrics.sample( "", { { "name", condition.name } }, U64( 1 ) );
   }
}

void Metrics::addClients( OpenMetrics & metrics ) const {
   auto const clients = sources_.clients();
   metrics.gauge( "valen_api_connections", "Open connections to the control API.",
                  clients.connected );
   metrics.counter( "valen_api_connections_dropped",
                    "Connections to the control API that were dropped for exceeding a limit.",
                    clients.dropped );
}

} // namespace Valend
