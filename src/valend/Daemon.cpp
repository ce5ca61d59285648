#include "valend/Daemon.h"

#include "settings/Counted.h"
#include "valend/base/Log.h"
#include "valend/base/MessageIds.h"
#include "valend/base/Notify.h"
#include "valend/shutdown/ShutdownLog.h"

#include <csignal>

namespace Valend {

using Valen::Linux::NetNsDirectories;
using Valen::Linux::NetNsWatcher;

Daemon::Daemon( Settings::ConfigResult const & read,
                std::vector< Settings::ConfigError > const & rejected, Options const & options )
    : process_( read.config.process.overriddenBy( options.process ) ),
      stateDirectory_( process_.value( "state-directory" ) ),
      netNsDirectories_( netNsDirectoriesOf( process_ ) ),
      trace_( loop_.workQueue(), process_,
              // Levels on the command line are for debugging in the foreground.
              options.process.given( "trace.levels" ) ? TraceHub::WithoutFile::standardError
                                                      : TraceHub::WithoutFile::nowhere ),
      endpoints_( netNsDirectories_ ), links_( loop_, netNsDirectories_, endpoints_, conditions_ ),
      feeder_( store_, links_, loop_.scheduler(), conditions_ ),
      publishedFile_( process_.value( "state-directory" ), conditions_ ),
      publications_( feeder_,
                     [ this ]( auto const & messages ) { publishedFile_.write( messages ); } ),
      faults_( [ this ]( auto const & fault ) {
         if ( Valen::isVrfSetupFault( fault ) ) {
            feeder_.vrfFailed( fault.key, fault.text );
         }
      } ),
      journal_( stateDirectory_, loop_.scheduler(), Journal::Machine::real(), conditions_ ),
      controller_( store_, feeder_.config(), links_, journal_, loop_.scheduler(),
                   loop_.workQueue() ),
      report_( store_, feeder_, links_, controller_ ),
      readinessLoss_( feeder_, report_, loop_.scheduler() ),
      metrics_( { store_, feeder_, links_, controller_, faults_, conditions_,
                  [ this ] {
                     return Metrics::Clients{ server_.connections(), server_.dropped() };
                  } } ),
      metricsFile_(
         process_.value( "metrics-file" ), [ this ] { return metrics_.text(); }, conditions_,
         loop_.scheduler() ),
      netNsWatcher_( loop_, netNsDirectories_,
                     [ this ]( auto const & name, NetNsWatcher::Change ) {
                        links_.refresh( name.stdString() );
                        feeder_.namespaceChanged( name.stdString() );
                     } ),
      lastConfiguration_( options.config == "-" ? "" : process_.value( "state-directory" ),
                          options.config, conditions_, loop_.scheduler() ),
      configurator_( options.config, options.process, conditions_,
                     [ this ]( auto const & config ) { configIs( config ); } ),
      access_( process_.value( "read-group" ), process_.value( "admin-group" ) ),
      api_( { store_, feeder_, publications_, links_, controller_, faults_, conditions_, metrics_,
              trace_, configurator_, access_, loop_.scheduler(), loop_.workQueue(),
              [ this ]( auto const & done ) { reload( done ); },
              [ this ] { netNsWatcher_.rescan(); } } ),
      server_( loop_, process_.value( "socket" ), api_ ), watchdog_( loop_.scheduler() ) {
   loop_.signalIs( SIGTERM, [ this ] { stop( "SIGTERM" ); } );
   loop_.signalIs( SIGINT, [ this ] { stop( "SIGINT" ); } );
   loop_.signalIs( SIGHUP, [ this ] { hangup(); } );
   controller_.endedIs( [ this ]( auto const & record ) {
      logShutdown( record );
      metricsFile_.touch();
   } );
   links_.seenIs(
      [ this ]( auto const & place, auto seen ) { controller_.linkSeen( place, seen ); } );
   Corvid::rawTxPamProviderIs( &endpoints_ );
   store_.entityManager->mountProviderIs( Valen::Linux::KernelNetInfoProvider::prefix, &links_ );
   publications_.resume( publishedFile_.read() );
   configurator_.start( read, rejected );
   library_ = Valen::runnabilitySmFactory(
      store_.configDir, store_.agentConfigDir, store_.allIntfConfigDir, store_.allIntfStatusDir,
      store_.allIntfStatusLocalDir, store_.l3IntfStatusDir, store_.allVrfStatusLocal,
      store_.entityManager, store_.statusDir, store_.allVrf, store_.allIntf );
   resumeShutdowns();
}

Daemon::~Daemon() {
   links_.seenIs( nullptr );
   library_ = nullptr;
   store_.entityManager->mountProviderIs( Valen::Linux::KernelNetInfoProvider::prefix, nullptr );
   Corvid::rawTxPamProviderIs( nullptr );
}

NetNsDirectories Daemon::netNsDirectoriesOf( Settings::ProcessConfig const & process ) {
   std::vector< std::string > directories{ NetNsDirectories::usual };
   if ( auto const & directory = process.given( "netns-directory" ) ) {
      directories.push_back( *directory );
   }
   return NetNsDirectories( std::move( directories ) );
}

void Daemon::configIs( Settings::Config const & config ) {
   std::set< std::string > netNss{ config.netNsOf( Settings::defaultVrf ) };
   for ( auto const & [ vrf, netNs ] : config.vrfs ) {
      netNss.insert( netNs );
   }
   links_.netNssAre( netNss );
   access_.refresh(); // a group may have been added
   publications_.configIs( config );
   lastConfiguration_.keep( config );
}

void Daemon::resumeShutdowns() {
   auto recovered = recover( journal_ );
   if ( auto const count = recovered.unfinished.size() ) {
      log( LogLevel::notice,
           "resuming " + Settings::counted( count, "shutdown" ) + " from the previous run" );
   }
   controller_.resume( std::move( recovered ) );
}

// The trace file is reopened even if the configuration is rejected: it was rotated in any case.
void Daemon::reload( std::function< void( Reloaded const & ) > const & done ) {
   try {
      trace_.reopen();
   } catch ( Quill::ErrnoException const & e ) {
      log( LogLevel::error, e.text() + "; tracing to the old file" );
   }
   auto const ready = readinessLoss_.ready();
   auto const changes = configurator_.reload();
   auto const warnings = configurator_.active().warnings;
   readinessLoss_.reportSince( ready, [ changes, warnings, done ]( auto const & lost ) {
      for ( auto const & [ interface, why ] : lost ) {
         log( LogLevel::warning, interface + ": no longer ready after the reload: " + why );
      }
      done( { changes, warnings, lost } );
   } );
}

void Daemon::hangup() {
   try {
      reload( []( auto const & ) {} );
   } catch ( Refusal const & ) { // logged, with all errors
   }
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
   auto const pending = controller_.pending();
   for ( auto const & line : pending ) {
      log( LogLevel::notice, line, { { "MESSAGE_ID", MessageIds::shutdownPending } } );
   }
   notifyManager( "STOPPING=1" +
                  ( pending.empty()
                       ? std::string()
                       : "\nSTATUS=Exiting; links left unchanged, " +
                            Settings::counted( pending.size(), "shutdown" ) + " in progress" ) );
   loop_.stop();
}

} // namespace Valend
