#include "valend/report/Metrics.h"

#include "settings/Version.h"
#include "valend/report/OpenMetrics.h"

#include <cstring>
#include <prometheus/text_serializer.h>

namespace Valend {

namespace {

using prometheus::ClientMetric;
using prometheus::MetricFamily;
using prometheus::MetricType;
using Families = std::vector< MetricFamily >;
using Labels = std::vector< ClientMetric::Label >;

// "ENETDOWN"
std::string errnoName( int number ) {
   auto const * const name = ::strerrorname_np( number );
   return name ? name : std::to_string( number );
}

// Valid until the next family is added.
MetricFamily & family( Families & families, char const * name, MetricType type,
                       char const * help ) {
   return families.emplace_back( MetricFamily{ name, help, type, {} } );
}

// A sample of a counter or gauge.
void sample( MetricFamily & family, Labels labels, U64 value ) {
   auto & metric = family.metric.emplace_back();
   metric.label = std::move( labels );
   auto & place = family.type == MetricType::Counter ? metric.counter.value : metric.gauge.value;
   place = static_cast< double >( value );
}

void gauge( Families & families, char const * name, char const * help, U64 value ) {
   sample( family( families, name, MetricType::Gauge, help ), {}, value );
}

void counter( Families & families, char const * name, char const * help, U64 value ) {
   sample( family( families, name, MetricType::Counter, help ), {}, value );
}

} // namespace

std::string Metrics::text( MetricsFormat format ) const {
   Families families;
   sample(
      family( families, "valen_build_info", MetricType::Gauge, "1, with the version of valend." ),
      { { "version", Settings::version } }, 1 );
   gauge( families, "valen_active", "1 if the shutdown delay is enabled.",
          sources_.store.statusDir->agentActive() );
   addInterfaces( families );
   addShutdowns( families );
   addHeld( families );
   addFrames( families );
   addSpeakers( families );
   addMuting( families );
   counter( families, "valen_frames_shared_bursts_total",
            "Shutdowns and goodbyes whose frames shared a socket with another interface's backlog.",
            sources_.sharedBursts() );
   counter( families, "valen_faults_total", "Errors in the library's handlers.",
            sources_.faults.count() );
   counter( families, "valen_device_resyncs_total",
            "Full netlink resyncs after lost notifications.", sources_.port.resyncs() );
   counter( families, "valen_log_lines_dropped_total",
            "Lines of the log that were dropped because their reader had stopped.",
            sources_.linesDropped() );
   addConditions( families );
   addClients( families );
   addDatabase( families );
   return format == MetricsFormat::openmetrics ? openMetricsText( families )
                                               : prometheus::TextSerializer().Serialize( families );
}

void Metrics::addInterfaces( Families & families ) const {
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
   gauge( families, "valen_interfaces", "Configured interfaces.", config.interfaces.size() );
   gauge( families, "valen_interfaces_ready", "Interfaces whose shutdown would be delayed now.",
          ready );
   gauge( families, "valen_interfaces_held", "Interfaces whose shutdown is delayed now.", held );
   gauge( families, "valen_interfaces_without_goodbye",
          "Interfaces whose link was set down outside valend.", withoutGoodbye );
}

void Metrics::addShutdowns( Families & families ) const {
   auto const & statistics = sources_.controller.statistics();
   gauge( families, "valen_shutdowns_running", "Shutdowns in progress.",
          sources_.controller.running() );
   auto & shutdowns =
      family( families, "valen_shutdowns_total", MetricType::Counter,
              "Shutdowns by result; went-down is a link that was set down outside valend." );
   for ( auto const & [ ending, count ] : statistics.endings() ) {
      ShutdownRecord record;
      record.ending = ending;
      sample( shutdowns, { { "result", record.endingText() } }, count );
   }
   counter( families, "valen_goodbyes_total", "Goodbyes that left the link up.",
            statistics.goodbyes() );
   counter( families, "valen_shutdowns_resumed_total",
            "Shutdowns resumed after a restart of valend.", statistics.resumed() );
   counter( families, "valen_shutdowns_unflushed_total",
            "Shutdowns with frames still queued when the link went down.", statistics.unflushed() );
}

void Metrics::addHeld( Families & families ) const {
   auto const & held = sources_.controller.statistics().held();
   auto & durations = family( families, "valen_shutdown_held_seconds", MetricType::Histogram,
                              "Time between the goodbye frames and the end of the delay." );
   auto & histogram = durations.metric.emplace_back().histogram;
   histogram.sample_count = held.count;
   histogram.sample_sum = held.seconds;
   for ( std::size_t i = 0; i < held.bounds.size(); ++i ) {
      histogram.bucket.push_back( { held.atMost[ i ], held.bounds[ i ] } );
   }
}

void Metrics::addFrames( Families & families ) const {
   auto const & agents = sources_.controller.statistics().agents();
   auto & sent =
      family( families, "valen_frames_sent_total", MetricType::Counter, "Frames sent, by agent." );
   for ( auto const & [ agent, frames ] : agents ) {
      sample( sent, { { "agent", agent } }, frames.sent );
   }
   auto & refused = family( families, "valen_frames_refused_total", MetricType::Counter,
                            "Frames that the kernel rejected, by agent and error." );
   for ( auto const & [ agent, frames ] : agents ) {
      for ( auto const & [ number, count ] : frames.refused ) {
         sample( refused, { { "agent", agent }, { "errno", errnoName( number ) } }, count );
      }
   }
}

void Metrics::addSpeakers( Families & families ) const {
   auto & known = family( families, "valen_speakers", MetricType::Gauge,
                          "Speakers that are heard on interfaces, by protocol." );
   for ( auto const & [ protocol, count ] : sources_.speakers.byProtocol() ) {
      sample( known, { { "protocol", protocol } }, count );
   }
   auto const & counters = sources_.speakers.counters();
   auto & madeRoom =
      family( families, "valen_speakers_made_room_total", MetricType::Counter,
              "Speakers that were forgotten because there were too many, by protocol." );
   for ( auto const & [ protocol, of ] : counters ) {
      sample( madeRoom, { { "protocol", protocol } }, of.madeRoom );
   }
   auto & malformed = family( families, "valen_speaker_frames_malformed_total", MetricType::Counter,
                              "Frames of speakers that are malformed, by protocol and reason." );
   for ( auto const & [ protocol, of ] : counters ) {
      for ( auto const & [ reason, count ] : of.malformed ) {
         sample( malformed, { { "protocol", protocol }, { "reason", reason } }, count );
      }
   }
   auto const losses = sources_.lost();
   auto & lost = family( families, "valen_speaker_frames_lost_total", MetricType::Counter,
                         "Frames of speakers that valend did not read, by reason." );
   sample( lost, { { "reason", "full" } }, losses.full );
   sample( lost, { { "reason", "too-long" } }, losses.tooLong );
   sample( lost, { { "reason", "limited" } }, losses.limited );
}

void Metrics::addMuting( Families & families ) const {
   auto const & statistics = sources_.controller.statistics();
   auto & heldBack = family( families, "valen_speaker_frames_held_back_total", MetricType::Counter,
                             "Frames of muted speakers that were dropped, by protocol." );
   for ( auto const & [ protocol, count ] : statistics.heldBack() ) {
      sample( heldBack, { { "protocol", protocol } }, count );
   }
   auto & greetings =
      family( families, "valen_greetings_total", MetricType::Counter,
              "Speakers whose last frames were sent again after an abort, by protocol." );
   for ( auto const & [ protocol, count ] : statistics.greetings() ) {
      sample( greetings, { { "protocol", protocol } }, count );
   }
}

void Metrics::addConditions( Families & families ) const {
   auto & raised = family( families, "valen_condition", MetricType::Gauge,
                           "1 for each condition that is raised; valenctl status shows its text." );
   for ( auto const & condition : sources_.conditions.raised() ) {
      sample( raised, { { "name", condition.name } }, 1 );
   }
}

void Metrics::addClients( Families & families ) const {
   auto const clients = sources_.clients();
   gauge( families, "valen_api_connections", "Open connections to the control API.",
          clients.connected );
   auto & dropped = family(
      families, "valen_api_connections_dropped_total", MetricType::Counter,
      "Connections to the control API that were dropped for exceeding a limit, by reason." );
   for ( auto const & [ reason, count ] : clients.dropped ) {
      sample( dropped, { { "reason", reason } }, count );
   }
}

void Metrics::addDatabase( Families & families ) const {
   auto const database = sources_.database();
   if ( !database ) {
      return;
   }
   gauge( families, "valen_database_connected", "1 while the database can be read and written.",
          database->connected );
   counter( families, "valen_database_reconnects_total",
            "Connections to the database that were made again after a loss.",
            database->reconnects );
   gauge( families, "valen_database_writes_pending",
          "Hashes and entries of the history that the database has not taken yet.",
          database->pending );
   gauge( families, "valen_database_entities", "Hashes that were read from the database.",
          database->entities );
   gauge( families, "valen_database_entities_rejected",
          "Hashes of the database that are not taken; the hash rejected:KEY says why.",
          database->rejected );
}

} // namespace Valend
