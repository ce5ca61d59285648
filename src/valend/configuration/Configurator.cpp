#include "valend/configuration/Configurator.h"

#include "platform/trace/Trace.h"
#include "settings/Changes.h"
#include "settings/Counted.h"
#include "valend/base/Errors.h"
#include "valend/base/Log.h"
#include "valend/base/Notify.h"

#include <ctime>

namespace Valend {

namespace {

using Lines = std::vector< std::string >;
using Settings::counted;
using Settings::TakesEffect;

// The monotonic clock, as the service manager compares it.
std::string monotonicMicroseconds() {
   timespec now{};
   ::clock_gettime( CLOCK_MONOTONIC, &now );
   return std::to_string( static_cast< S64 >( now.tv_sec ) * 1'000'000 + now.tv_nsec / 1000 );
}

void append( Lines & lines, Lines const & more ) {
   lines.insert( lines.end(), more.begin(), more.end() );
}

// Logs each error and returns the lines.
Lines logErrors( std::vector< Settings::ConfigError > const & errors ) {
   Lines lines;
   for ( auto const & error : errors ) {
      lines.push_back( error.message() );
      log( LogLevel::error, lines.back() );
   }
   return lines;
}

// The text of the condition: the first error, and what to do.
std::string rejectionText( std::vector< Settings::ConfigError > const & errors,
                           std::string const & active ) {
   auto const more = errors.size() - 1;
   return "rejected: " + errors.front().message() +
          ( more ? " (and " + counted( more, "more error" ) + ")" : "" ) + "; " + active +
          ". Correct the files and run \"valenctl reload\"";
}

} // namespace

Configurator::Configurator( std::string file, Settings::ProcessConfig commandLine,
                            Conditions & conditions, Apply apply )
    : file_( std::move( file ) ), condition_( conditions, "configuration" ),
      apply_( std::move( apply ) ) {
   active_.commandLine = std::move( commandLine );
}

void Configurator::start( Settings::ConfigResult read,
                          std::vector< Settings::ConfigError > const & rejected ) {
   active_.config = std::move( read.config );
   active_.process = active_.wanted();
   active_.processSources = read.sources;
   sourcesAre( read );
   if ( !rejected.empty() ) {
      logErrors( rejected );
      condition_.raise( rejectionText(
         rejected, "the last valid one, " + active_.sources.files.front() + ", is active" ) );
      notifyManager( "STATUS=Configuration rejected (" + counted( rejected.size(), "error" ) +
                     "); running with the last valid one" );
   }
   apply_( active_.config );
}

Lines Configurator::reload() {
   notifyManager( "RELOADING=1\nMONOTONIC_USEC=" + monotonicMicroseconds() );
   auto read = Settings::readConfig( file_ );
   if ( !read.errors.empty() ) {
      reject( read.errors );
   }
   auto const changes = applyChanges( std::move( read ) );
   condition_.clear();
   for ( auto const & change : changes ) {
      log( LogLevel::notice, change );
   }
   auto const summary = "reloaded: " + counted( changes.size(), "change" );
   log( LogLevel::notice, summary );
   notifyManager( "READY=1\nSTATUS=Configuration " + summary );
   return changes;
}

void Configurator::reject( std::vector< Settings::ConfigError > const & errors ) {
   auto const rejected = Errors::configRejected( logErrors( errors ) );
   log( LogLevel::error, rejected.what() );
   condition_.raise( rejectionText( errors, "the previous one is active" ) );
   notifyManager( "READY=1\nSTATUS=Configuration rejected (" + counted( errors.size(), "error" ) +
                  "); keeping the previous one" );
   throw rejected;
}

Lines Configurator::applyChanges( Settings::ConfigResult read ) {
   auto changes = Settings::changesBetween( active_.config, read.config );
   auto const before = active_.wanted();
   active_.config = std::move( read.config );
   sourcesAre( read );
   auto const wanted = active_.wanted();

   append( changes, Settings::processChanges( before, wanted, TakesEffect::onReload ) );
   append( changes, Settings::processChanges( active_.process, wanted, TakesEffect::atNextStart ) );

   // Levels that were set over the API stay until the files change theirs.
   auto const levels = wanted.value( "trace.levels" );
   if ( levels != before.value( "trace.levels" ) ) {
      Quill::traceLevelsIs( levels );
   }
   apply_( active_.config );
   return changes;
}

void Configurator::sourcesAre( Settings::ConfigResult & read ) {
   active_.sources = std::move( read.sources );
   active_.warnings.clear();
   for ( auto const & warning : read.warnings ) {
      active_.warnings.push_back( warning.message() );
      log( LogLevel::warning, active_.warnings.back() );
   }
}

} // namespace Valend
