#include "valend/Daemon.h"

#include "linux/DescriptorReserve.h"
#include "platform/quill/Fault.h"
#include "settings/Counted.h"
#include "valend/base/Log.h"
#include "valend/base/MessageIds.h"
#include "valend/shutdown/ShutdownLog.h"

#include <algorithm>
#include <csignal>
#include <iterator>

namespace Valend {

using Valen::Linux::DescriptorReserve;
using Valen::Linux::NetNsDirectories;
using Valen::Linux::NetNsWatcher;

namespace {

// How long a daemon that stops waits for the disk.
constexpr std::chrono::seconds fileTimeout{ 20 };
constexpr std::chrono::seconds metricsTimeout{ 1 };

void logLosses( std::vector< ReadinessLoss::Lost > const & losses, char const * after ) {
   for ( auto const & [ interface, why ] : losses ) {
      log( LogLevel::warning, interface + ": no longer ready after " + after + ": " + why );
   }
}

} // namespace

Daemon::Daemon( Settings::ConfigResult const & read,
                std::vector< Settings::ConfigError > const & rejected, Options const & options,
                Valen::Linux::StandardError & output )
    : process_( read.config.process.overriddenBy( options.process ) ),
      stateDirectory_( process_.value( "state-directory" ) ),
      netNsDirectories_( netNsDirectoriesOf( process_ ) ),
      trace_( loop_.workQueue(), process_,
              // Levels on the command line are for debugging in the foreground.
              options.process.given( "trace.levels" ) ? TraceHub::WithoutFile::standardError
                                                      : TraceHub::WithoutFile::nowhere ),
      endpoints_( netNsDirectories_, loop_.scheduler() ),
      logCondition_( output, conditions_, loop_.scheduler() ),
      capabilities_( conditions_, "capabilities" ), unsentNotifications_( loop_.scheduler() ),
      descriptorLimit_( conditions_ ), links_( loop_, netNsDirectories_, endpoints_, conditions_ ),
      speakers_(
         loop_, netNsDirectories_,
         [ this ]( auto const & place ) {
            auto const device = links_.device( place );
            return device ? device->ifIndex : 0;
         },
         conditions_ ),
      fileWorker_( loop_, "valen-files", fileTimeout ),
      metricsWorker_( loop_, "valen-metrics", metricsTimeout ),
      feeder_( store_, links_, loop_.scheduler(), conditions_ ),
      publishedFile_( stateDirectory_, conditions_, fileWorker_, loop_.scheduler() ),
      publications_( feeder_, loop_.workQueue(), loop_.scheduler(),
                     [ this ]( auto const & agent, auto const & interface, auto const & frames ) {
                        publishedFile_.save( { agent, interface, frames } );
                     } ),
      learnedFrames_( feeder_.config(), publications_, speakers_.table(), conditions_,
                      loop_.workQueue(), loop_.scheduler() ),
      faults_( [ this ]( auto const & fault ) {
         if ( Valen::isVrfSetupFault( fault ) ) {
            feeder_.vrfFailed( fault.key, fault.text );
         }
      } ),
      journal_( stateDirectory_, loop_.scheduler(), Journal::Machine::real(), conditions_ ),
      controller_( store_, feeder_.config(), links_, speakers_, journal_, conditions_,
                   loop_.scheduler(), loop_.workQueue() ),
      report_( store_, feeder_, links_, controller_ ),
      daemonStatus_( store_, feeder_, faults_, conditions_, report_ ),
      speakersReport_(
         { feeder_.config(), speakers_.table(), learnedFrames_,
           [ this ]( auto const & place ) { return speakers_.attaching().whyNot( place ); },
           loop_.scheduler() } ),
      readinessLoss_( feeder_, report_, loop_.scheduler(), loop_.workQueue() ),
      metrics_( { store_, feeder_, links_, controller_, faults_, conditions_, speakers_.table(),
                  [ this ] { return speakers_.lost(); },
                  [ this ] {
                     auto const & dropped = server_.dropped();
                     return Metrics::Clients{ server_.connections(),
                                              { { "call-too-long", dropped.tooLong },
                                                { "not-reading", dropped.notReading },
                                                { "made-room", dropped.madeRoom },
                                                { "refused", dropped.refused } } };
                  },
                  [ &output ] { return output.dropped(); },
                  [ this ] { return endpoints_.sharedBursts(); },
                  [ this ] { return databaseMetrics(); } } ),
      metricsFile_(
         process_.value( "metrics-file" ), [ this ] { return metrics_.text(); }, conditions_,
         metricsWorker_, loop_.scheduler() ),
      netNsWatcher_( loop_, netNsDirectories_,
                     [ this ]( auto const & name, NetNsWatcher::Change ) {
                        links_.refresh( name.stdString() );
                        speakers_.attaching().namespaceChanged( name.stdString() );
                        feeder_.namespaceChanged( name.stdString() );
                     } ),
      lastConfiguration_( options.config == "-" ? nullptr : &stateDirectory_, options.config,
                          conditions_, fileWorker_, loop_.scheduler() ),
      configurator_( options.config, options.process, conditions_, loop_,
                     [ this ]( auto const & plan ) { return stepsTo( plan ); } ),
      databaseFile_( stateDirectory_, conditions_, fileWorker_, loop_.scheduler() ),
      databaseLayer_( configurator_, publications_, databaseFile_, loop_.workQueue(),
                      loop_.scheduler() ),
      database_( { loop_, store_, feeder_, report_, daemonStatus_, controller_, conditions_,
                   journal_.bootId() },
                 databaseReader() ),
      requestsFile_( stateDirectory_, conditions_, fileWorker_, loop_.scheduler() ),
      requests_( { controller_, feeder_.config(), requestsFile_, [ this ] { return maxDelayMs(); },
                   [ this ] { return databaseLayer_.settled(); } },
                 loop_.workQueue(), loop_.scheduler() ),
      access_( process_.value( "read-group" ), process_.value( "admin-group" ) ),
      api_( { store_, feeder_, publications_, links_, controller_, faults_, conditions_, metrics_,
              speakersReport_, trace_, configurator_, access_, loop_.scheduler(), loop_.workQueue(),
              [ this ]( auto const & done ) { reload( done ); },
              [ this ]( auto const & done ) { publishedFile_.whenSaved( done ); },
              [ this ] { netNsWatcher_.rescan(); } } ),
      server_( loop_, process_.value( "socket" ), api_, Varlink::Limits(),
               [] { return DescriptorReserve::ofProcess().hasRoom(); } ),
      watchdog_( loop_.scheduler() ) {
   loop_.signalIs( SIGTERM, [ this ] { stop( "SIGTERM" ); } );
   loop_.signalIs( SIGINT, [ this ] { stop( "SIGINT" ); } );
   loop_.signalIs( SIGHUP, [ this ] { hangup(); } );
   controller_.endedIs( [ this ]( auto const & record ) {
      logShutdown( record );
      database_.ended( record, record.request.id );
      metricsFile_.touch();
   } );
   links_.seenIs( [ this ]( auto const & place, auto seen ) {
      speakers_.attaching().deviceSeen( place, seen );
      controller_.linkSeen( place, seen );
   } );
   endpoints_.markIs( EGRESS_OWN_MARK );
   speakers_.changedIs(
      [ this ]( auto const & place ) { learnedFrames_.speakersChanged( place ); } );
   publications_.changedIs( [ this ]( auto const & interface ) {
      learnedFrames_.framesChanged( interface );
      database_.framesChanged( interface );
   } );
   endpoints_.openFailedIs( [ this ]( auto const & netNs, auto const & why ) {
      feeder_.namespaceFailed( netNs.stdString(), why );
   } );
   Corvid::rawTxPamProviderIs( &endpoints_ );
   store_.entityManager->mountProviderIs( Valen::Linux::KernelNetInfoProvider::prefix, &links_ );
   configurator_.lookUpIs( [ this, lookUp = access_.lookUp() ]() -> Valen::Linux::Worker::Work {
      return [ this, groups = lookUp() ] { access_.groupsAre( groups ); };
   } );
   publications_.resume( publishedMessages() );
   resumeDatabase();
   configurator_.start( read, rejected );
   library_ = Valen::runnabilitySmFactory(
      store_.configDir, store_.agentConfigDir, store_.allIntfConfigDir, store_.allIntfStatusDir,
      store_.allIntfStatusLocalDir, store_.l3IntfStatusDir, store_.allVrfStatusLocal,
      store_.entityManager, store_.statusDir, store_.allVrf, store_.allIntf );
   resumeShutdowns();
}

Daemon::~Daemon() {
   speakers_.changedIs( []( auto const & ) {} );
   links_.seenIs( nullptr );
   library_ = nullptr;
   store_.entityManager->mountProviderIs( Valen::Linux::KernelNetInfoProvider::prefix, nullptr );
   Corvid::rawTxPamProviderIs( nullptr );
   endpoints_.openFailedIs( nullptr );
}

NetNsDirectories Daemon::netNsDirectoriesOf( Settings::ProcessConfig const & process ) {
   std::vector< std::string > directories{ NetNsDirectories::usual };
   if ( auto const & directory = process.given( "netns-directory" ) ) {
      directories.push_back( *directory );
   }
   return NetNsDirectories( std::move( directories ) );
}

std::vector< Publications::Message > Daemon::publishedMessages() {
   std::vector< Publications::Message > messages;
   for ( auto const & [ agent, interface, frames ] : publishedFile_.read() ) {
      messages.push_back(
         { agent, interface, frames, Publications::Lifetime::kept, Publications::self } );
   }
   return messages;
}

// Namespaces are followed before an interface is in them, and left after the last interface has left.
Configurator::Steps Daemon::stepsTo( PlanPtr const & plan ) {
   std::set< std::string > wanted{ plan->config().netNsOf( Settings::defaultVrf ) };
   for ( auto const & [ vrf, netNs ] : plan->config().vrfs ) {
      wanted.insert( netNs );
   }
   return { readinessLoss_.readyInto( readyBefore_ ),
            followStep( wanted ),
            [ this, plan, netNss = wanted.size() ] {
               auto const use = plan->config().vrfs.empty() ? Valen::Linux::NetNsUse::own
                                                            : Valen::Linux::NetNsUse::named;
               descriptorLimit_.check( netNss, plan->config().interfaces.size(),
                                       Varlink::Limits().connections );
               capabilities_.update( capabilityError( use ) );
               publications_.begin( plan );
               return false;
            },
            [ this ] {
               Quill::underFaultBoundary(
                  { typeid( Feeder ), "Feeder" }, [] { return std::string( "a step" ); },
                  [ this ] { feeder_.step(); } );
               return feeder_.applying();
            },
            leaveStep( wanted ),
            placesStep( plan ),
            [ this ] { return speakers_.attaching().dropOlder( generation_ ); },
            databaseLayer_.configChangedStep(),
            [ this ] {
               controller_.configChanged();
               learnedFrames_.configChanged();
               lastConfiguration_.keep( configurator_.files() );
               connectDatabase();
               return false;
            } };
}

DatabaseClient::Reader Daemon::databaseReader() {
   return { .entityIs =
               [ this ]( auto const & key, auto const & fields ) {
                  databaseLayer_.entityIs( key, fields );
                  requests_.entityIs( key, fields );
               },
            .entityGone =
               [ this ]( auto const & key ) {
                  databaseLayer_.entityGone( key );
                  requests_.entityGone( key );
               },
            .complete = [ this ] { databaseLayer_.complete(); },
            .leaseIs = [ this ]( auto const & key,
                                 bool exists ) { databaseLayer_.leaseIs( key, exists ); },
            .restart =
               [ this ]( auto const & server, auto const & prefix ) {
                  databaseLayer_.restart( DatabaseFile::originOf( server, prefix ) );
               },
            .clear = [ this ] { databaseLayer_.clear(); } };
}

std::optional< Metrics::Database > Daemon::databaseMetrics() const {
   auto const figures = database_.figures();
   if ( !figures ) {
      return std::nullopt;
   }
   return Metrics::Database{ figures->connected, figures->reconnects, figures->pending,
                             figures->entities, figures->rejected };
}

// At the start, and after each application: a reload may name another one.
void Daemon::connectDatabase() {
   auto const & process = configurator_.files()->process;
   database_.settingsAre( process.value( "database.server" ), process.value( "database.prefix" ) );
}

U64 Daemon::maxDelayMs() const {
   return std::stoull( configurator_.active().wanted().value( "max-shutdown-delay-ms" ) );
}

// Until the server has been read, what it had last is active.
void Daemon::resumeDatabase() {
   databaseLayer_.rejectedIs(
      [ this ]( auto const & key, auto const & why ) { database_.rejectedIs( key, why ); } );
   databaseLayer_.leaseWantedIs(
      [ this ]( auto const & key, bool wanted ) { database_.leaseWantedIs( key, wanted ); } );
   databaseLayer_.settledIs( [ this ] { requests_.configSettled(); } );
   requests_.resultIs( [ this ]( auto const & interface, auto const & id, auto const & result ) {
      database_.resultIs( interface, id, result );
   } );
   databaseLayer_.changedIs( [ this ]( auto const & changes ) {
      log( LogLevel::notice,
           "configuration of the database: " + Settings::counted( changes.size(), "change" ) );
      readinessLoss_.reportSince(
         readyBefore_, []( auto const & lost ) { logLosses( lost, "a change of the database" ); } );
   } );
   if ( process_.given( "database.server" ) ) {
      databaseLayer_.resume( DatabaseFile::originOf( process_.value( "database.server" ),
                                                     process_.value( "database.prefix" ) ) );
   }
}

Slices::Step Daemon::followStep( std::set< std::string > const & netNss ) {
   std::vector< std::string > missing;
   std::set_difference( netNss.begin(), netNss.end(), netNss_.begin(), netNss_.end(),
                        std::back_inserter( missing ) );
   return [ this, missing = std::move( missing ) ]() mutable {
      if ( missing.empty() ) {
         return false;
      }
      netNss_.insert( missing.back() );
      missing.pop_back();
      links_.netNssAre( netNss_ );
      return true;
   };
}

Slices::Step Daemon::leaveStep( std::set< std::string > const & netNss ) {
   return [ this, netNss ] {
      auto const unused =
         std::find_if( netNss_.begin(), netNss_.end(),
                       [ & ]( auto const & netNs ) { return !netNss.contains( netNs ); } );
      if ( unused == netNss_.end() ) {
         return false;
      }
      netNss_.erase( unused );
      links_.netNssAre( netNss_ );
      return true;
   };
}

std::string Daemon::capabilityError( Valen::Linux::NetNsUse use ) {
   std::string names;
   for ( auto const & name : Valen::Linux::missingCapabilities( use ) ) {
      names += ( names.empty() ? "" : ", " ) + name;
   }
   return names.empty() ? ""
                        : "missing " + names +
                             ": shutdowns cannot work as configured; grant it to the service "
                             "(AmbientCapabilities= of the unit)";
}

Slices::Step Daemon::placesStep( PlanPtr const & plan ) {
   return [ this, plan, generation = ++generation_, last = std::string() ]() mutable {
      auto const & config = plan->config();
      auto const interface = config.interfaces.upper_bound( last );
      if ( interface == config.interfaces.end() ) {
         return false;
      }
      last = interface->first;
      speakers_.attaching().placeIs( placeOf( config, interface->second ), generation );
      return true;
   };
}

void Daemon::resumeShutdowns() {
   auto recovered = recover( journal_ );
   if ( auto const count = recovered.unfinished.size() ) {
      log( LogLevel::notice,
           "resuming " + Settings::counted( count, "shutdown" ) + " from the previous run" );
   }
   controller_.resume( std::move( recovered ) );
   requests_.resume();
}

// The trace file is reopened even if the configuration is rejected: it was rotated in any case.
void Daemon::reload( std::function< void( Reloaded const & ) > const & done ) {
   try {
      trace_.reopen();
   } catch ( Quill::ErrnoException const & e ) {
      log( LogLevel::error, e.text() + "; tracing to the old file" );
   }
   configurator_.reload( [ this, done ]( auto const & outcome ) { reloadEnded( outcome, done ); } );
}

void Daemon::reloadEnded( Configurator::Outcome const & outcome,
                          std::function< void( Reloaded const & ) > const & done ) {
   if ( outcome.rejected ) {
      return done( { {}, {}, {}, outcome.rejected } );
   }
   bool const isFirst = std::exchange( lastReload_, outcome.number ) != outcome.number;
   auto const warnings = configurator_.active().warnings;
   readinessLoss_.reportSince(
      readyBefore_, [ changes = outcome.changes, warnings, done, isFirst ]( auto const & lost ) {
         if ( isFirst ) { // of those who asked for it
            logLosses( lost, "the reload" );
         }
         done( { changes, warnings, lost, std::nullopt } );
      } );
}

void Daemon::hangup() {
   reload( []( auto const & ) {} ); // errors are logged
}

void Daemon::run() {
   notifyManager( "READY=1" );
   log( LogLevel::notice,
        "ready: " + Settings::counted( feeder_.config().interfaces.size(), "interface" ) +
           ", control socket " + server_.path(),
        { { "MESSAGE_ID", MessageIds::started } } );
   loop_.run();
}

void Daemon::stop( char const * signal ) {
   log( LogLevel::notice, std::string( "received " ) + signal + ", exiting; links left unchanged",
        { { "MESSAGE_ID", MessageIds::stopping } } );
   auto const pending = controller_.stop();
   for ( auto const & line : pending ) {
      log( LogLevel::notice, line, { { "MESSAGE_ID", MessageIds::shutdownPending } } );
   }
   notifyManager( "STOPPING=1" + ( pending.empty()
                                      ? std::string()
                                      : "\nSTATUS=Exiting; links left unchanged, " +
                                           Settings::counted( controller_.running(), "shutdown" ) +
                                           " in progress" ) );
   loop_.stop();
}

} // namespace Valend
