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

} // namespace

Configurator::Configurator( std::string file, Settings::ProcessConfig commandLine, Apply apply )
    : file_( std::move( file ) ), apply_( std::move( apply ) ) {
   active_.commandLine = std::move( commandLine );
}

void Configurator::start( Settings::ConfigResult read ) {
   active_.config = std::move( read.config );
   active_.process = active_.wanted();
   active_.processSources = read.sources;
   active_.sources = std::move( read.sources );
   apply_( active_.config );
}

Lines Configurator::reload() {
   notifyManager( "RELOADING=1\nMONOTONIC_USEC=" + monotonicMicroseconds() );
   auto read = Settings::readConfig( file_ );
   if ( !read.errors.empty() ) {
      reject( read.errors );
   }
   auto const changes = applyChanges( std::move( read ) );
   for ( auto const & change : changes ) {
      log( LogLevel::notice, change );
   }
   auto const summary = "reloaded: " + counted( changes.size(), "change" );
   log( LogLevel::notice, summary );
   notifyManager( "READY=1\nSTATUS=Configuration " + summary );
   return changes;
}

void Configurator::reject( std::vector< Settings::ConfigError > const & errors ) {
   Lines lines;
   for ( auto const & error : errors ) {
      lines.push_back( error.message() );
      log( LogLevel::error, lines.back() );
   }
   auto const rejected = Errors::configRejected( lines );
   log( LogLevel::error, rejected.what() );
   notifyManager( "READY=1\nSTATUS=Configuration rejected (" + counted( errors.size(), "error" ) +
                  "); keeping the previous one" );
   throw rejected;
}

Lines Configurator::applyChanges( Settings::ConfigResult read ) {
   auto changes = Settings::changesBetween( active_.config, read.config );
   auto const before = active_.wanted();
   active_.config = std::move( read.config );
   active_.sources = std::move( read.sources );
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

} // namespace Valend
