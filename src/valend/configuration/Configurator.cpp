#include "valend/configuration/Configurator.h"

#include "settings/Changes.h"
#include "settings/Counted.h"
#include "settings/Hex.h"
#include "settings/ProcessSettings.h"
#include "valend/base/Errors.h"
#include "valend/base/Log.h"
#include "valend/base/Notify.h"
#include "valend/base/TraceHub.h"

#include <ctime>

namespace Valend {

namespace {

using Json = nlohmann::json;
using Settings::counted;
using Settings::Place;

// The monotonic clock as the service manager compares it.
std::string monotonicMicroseconds() {
   timespec now{};
   ::clock_gettime( CLOCK_MONOTONIC, &now );
   return std::to_string( static_cast< S64 >( now.tv_sec ) * 1'000'000 + now.tv_nsec / 1000 );
}

Json placeJson( Place const * place ) {
   return place
             ? Json{ { "file", place->file }, { "line", place->line }, { "column", place->column } }
             : Json();
}

Place const * find( Settings::Sources::Places const & places, std::string const & name ) {
   auto const found = places.find( name );
   return found == places.end() ? nullptr : &found->second;
}

Json vrfsJson( Settings::Config const & config, Settings::Sources const & sources ) {
   auto list = Json::array();
   for ( auto const & [ name, netNs ] : config.vrfs ) {
      list.push_back( { { "name", name },
                        { "namespace", netNs },
                        { "place", placeJson( find( sources.vrfs, name ) ) } } );
   }
   return list;
}

Json interfacesJson( Settings::Config const & config, Settings::Sources const & sources ) {
   auto list = Json::array();
   for ( auto const & [ name, interface ] : config.interfaces ) {
      list.push_back( { { "name", name },
                        { "device", interface.device },
                        { "vrf", interface.vrf },
                        { "shutdownDelay", interface.shutdownDelay },
                        { "place", placeJson( find( sources.interfaces, name ) ) } } );
   }
   return list;
}

Json messagesJson( Settings::Config const & config, Settings::Sources const & sources ) {
   auto list = Json::array();
   for ( auto const & [ agent, messages ] : config.agents ) {
      for ( auto const & [ interface, frames ] : messages ) {
         auto texts = Json::array();
         for ( auto const & frame : frames ) {
            texts.push_back( Settings::toHex( frame ) );
         }
         list.push_back(
            { { "agent", agent },
              { "interface", interface },
              { "frames", std::move( texts ) },
              { "place", placeJson( find( sources.messages.at( agent ), interface ) ) } } );
      }
   }
   return list;
}

} // namespace

Configurator::Configurator( std::string file, Settings::ProcessConfig commandLine, Apply apply )
    : file_( std::move( file ) ), commandLine_( std::move( commandLine ) ),
      apply_( std::move( apply ) ) {}

void Configurator::start( Settings::ConfigResult read ) {
   started_ = Settings::merged( read.config.process, commandLine_ );
   startSources_ = read.sources;
   sources_ = std::move( read.sources );
   config_ = std::move( read.config );
   apply_( config_ );
}

std::vector< std::string > Configurator::put( Settings::ConfigResult read ) {
   auto changes = Settings::changesBetween( config_, read.config );
   for ( auto const & more :
         { levelsChange( read.config ),
           Settings::processChanges( started_,
                                     Settings::merged( read.config.process, commandLine_ ) ) } ) {
      changes.insert( changes.end(), more.begin(), more.end() );
   }
   sources_ = std::move( read.sources );
   config_ = std::move( read.config );
   apply_( config_ );
   return changes;
}

// Trace levels are the one setting of the process that is taken up at once. Those that were set by
// other means stay while the file does not change its mind.
std::vector< std::string > Configurator::levelsChange( Settings::Config const & next ) const {
   auto const levels = next.process.traceLevels.value_or( TraceHub::defaultLevels );
   auto const was = config_.process.traceLevels.value_or( TraceHub::defaultLevels );
   if ( commandLine_.traceLevels || levels == was ) {
      return {};
   }
   Quill::traceLevelsIs( levels );
   return { "trace.levels " + levels + ", was " + was };
}

std::vector< std::string > Configurator::reload() {
   notifyManager( "RELOADING=1\nMONOTONIC_USEC=" + monotonicMicroseconds() );
   auto read = Settings::readConfig( file_ );
   if ( !read.errors.empty() ) {
      std::vector< std::string > errors;
      for ( auto const & error : read.errors ) {
         errors.push_back( error.message() );
         log( LogLevel::error, errors.back() );
      }
      auto const rejected = Errors::configRejected( errors );
      log( LogLevel::error, rejected.what() );
      notifyManager( "READY=1\nSTATUS=Configuration refused, " +
                     counted( read.errors.size(), "error" ) + "; the one before is in force" );
      throw rejected;
   }
   auto const changes = put( std::move( read ) );
   for ( auto const & change : changes ) {
      log( LogLevel::notice, change );
   }
   auto const summary = "onfiguration read again, " + counted( changes.size(), "change" );
   log( LogLevel::notice, "c" + summary );
   notifyManager( "READY=1\nSTATUS=C" + summary );
   return changes;
}

Json Configurator::inForce() const {
   return { { "files", sources_.files },
            { "settings", settings() },
            { "vrfs", vrfsJson( config_, sources_ ) },
            { "interfaces", interfacesJson( config_, sources_ ) },
            { "messages", messagesJson( config_, sources_ ) } };
}

Json Configurator::settings() const {
   auto const & delay = config_.shutdownDelayMs;
   auto const * const delayPlace = find( sources_.settings, "shutdown-delay-ms" );
   auto list = Json::array();
   list.push_back( { { "name", "shutdown-delay-ms" },
                     { "value", delay ? Json( std::to_string( *delay ) ) : Json() },
                     { "origin", delayPlace ? "file" : "default" },
                     { "place", placeJson( delayPlace ) } } );
   auto const & line = commandLine_;
   list.push_back( processSetting( "socket", started_.socket.value_or( Settings::defaultSocket ),
                                   line.socket.has_value() ) );
   list.push_back(
      processSetting( "netns-folder", started_.netNsFolder, line.netNsFolder.has_value() ) );
   auto const stateDirectory = Settings::stateDirectoryOf( started_ );
   list.push_back( processSetting(
      "state-directory", stateDirectory.empty() ? std::nullopt : std::optional( stateDirectory ),
      line.stateDirectory.has_value() ) );
   list.push_back(
      processSetting( "metrics-file", started_.metricsFile, line.metricsFile.has_value() ) );
   list.push_back(
      processSetting( "trace.levels", Quill::traceLevels(), line.traceLevels.has_value() ) );
   list.push_back( processSetting( "trace.file", started_.traceFile, line.traceFile.has_value() ) );
   list.push_back( processSetting( "trace.ring", started_.traceRing, line.traceRing.has_value() ) );
   return list;
}

Json Configurator::processSetting( char const * name, std::optional< std::string > const & value,
                                   bool onCommandLine ) const {
   auto const & sources =
      std::string_view( name ) == "trace.levels" ? sources_.settings : startSources_.settings;
   auto const * const place = onCommandLine ? nullptr : find( sources, name );
   return { { "name", name },
            { "value", value ? Json( *value ) : Json() },
            { "origin", onCommandLine ? "command-line"
                        : place       ? "file"
                                      : "default" },
            { "place", placeJson( place ) } };
}

} // namespace Valend
