#include "valend/configuration/Configurator.h"

#include "platform/trace/Trace.h"
#include "settings/Changes.h"
#include "settings/Counted.h"
#include "valend/base/Errors.h"
#include "valend/base/Log.h"
#include "valend/base/Notify.h"

#include <ctime>
#include <utility>

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

// A configuration that was read, with what the loop would take long to work out.
struct Configurator::ReadPlan {
   Settings::ConfigResult result; // without its configuration, which is in `plan`
   PlanPtr plan;
   Lines changes;
};

struct Configurator::Old {
   PlanPtr plan;
   SourcesPtr sources;
};

Configurator::Configurator( std::string file, Settings::ProcessConfig commandLine,
                            Conditions & conditions, Valen::Linux::EventLoop & loop, Apply apply,
                            Read read )
    : file_( std::move( file ) ), condition_( conditions, "configuration" ),
      slow_( conditions, "configuration-read" ), apply_( std::move( apply ) ),
      read_( std::move( read ) ), slices_( loop.workQueue(), loop.scheduler(), "reload" ),
      timer_( loop.scheduler(), "configurationRead",
              [ this ] {
                 slow_.raise( "the files of " + file_ + " have not been read within " +
                              std::to_string( readTimeout.count() ) +
                              " s; the previous configuration is active" );
              } ),
      reader_( loop, "valen-config", std::chrono::milliseconds( 0 ) ) {
   active_.commandLine = std::move( commandLine );
}

void Configurator::start( Settings::ConfigResult read,
                          std::vector< Settings::ConfigError > const & rejected ) {
   active_.plan = std::make_shared< Plan const >( std::move( read.config ) );
   active_.process = active_.wanted();
   sourcesAre( read );
   active_.processSources = active_.sources;
   if ( !rejected.empty() ) {
      logErrors( rejected );
      condition_.raise( rejectionText(
         rejected, "the last valid one, " + active_.sources->files.front() + ", is active" ) );
      notifyManager( "STATUS=Configuration rejected (" + counted( rejected.size(), "error" ) +
                     "); running with the last valid one" );
   }
   for ( auto const & step : apply_( active_.plan ) ) {
      while ( step() ) {
      }
   }
}

// --- A reload ------------------------------------------------------------------------------------

void Configurator::reload( Done done ) {
   next_.push_back( std::move( done ) );
   if ( !reloading_ ) {
      begin();
   }
}

Settings::ConfigResult Configurator::readFiles( std::string const & file ) {
   if ( file != "-" ) {
      return Settings::readConfig( file );
   }
   Settings::ConfigResult result;
   result.errors.push_back( { { file }, "standard input cannot be read again" } );
   return result;
}

// In the other thread.
Configurator::ReadPlan Configurator::planOf( Settings::ConfigResult result,
                                             PlanPtr const & before ) {
   ReadPlan read;
   if ( result.errors.empty() ) {
      read.plan = std::make_shared< Plan const >( std::move( result.config ) );
      read.changes = Settings::changesBetween( before->config(), read.plan->config() );
   }
   read.result = std::move( result );
   return read;
}

void Configurator::begin() {
   reloading_ = true;
   ++number_;
   running_ = std::exchange( next_, {} );
   notifyManager( "RELOADING=1\nMONOTONIC_USEC=" + monotonicMicroseconds() );
   timer_.start( readTimeout );
   reader_.run( [ this, file = file_, read = read_, lookUp = lookUp_,
                  before = active_.plan ]() -> Valen::Linux::Worker::Work {
      auto plan = std::make_shared< ReadPlan >( planOf( read( file ), before ) );
      return [ this, plan, found = lookUp ? lookUp() : nullptr ] {
         if ( found ) {
            found();
         }
         readEnded( *plan );
      };
   } );
}

void Configurator::readEnded( ReadPlan & read ) {
   timer_.stop();
   slow_.clear();
   if ( !read.result.errors.empty() ) {
      return reject( read.result.errors );
   }
   // What is large of the old configuration is destroyed in the other thread.
   auto old = std::make_shared< Old >( Old{ active_.plan, active_.sources } );
   makeActive( read );
   for ( auto & step : apply_( active_.plan ) ) {
      slices_.add( std::move( step ) );
   }
   slices_.add( [ this ] {
      condition_.clear();
      return false;
   } );
   slices_.add( [ this ] {
      if ( logged_ < changes_.size() ) {
         log( LogLevel::notice, changes_[ logged_++ ] );
      }
      return logged_ < changes_.size();
   } );
   slices_.add( [ this, old = std::move( old ) ]() mutable {
      reader_.run( [ last = std::move( old ) ]() mutable -> Valen::Linux::Worker::Work {
         last = nullptr;
         return nullptr;
      } );
      applied();
      return false;
   } );
}

void Configurator::applied() {
   auto const summary = "reloaded: " + counted( changes_.size(), "change" );
   log( LogLevel::notice, summary );
   notifyManager( "READY=1\nSTATUS=Configuration " + summary );
   end( { number_, std::exchange( changes_, {} ), std::nullopt } );
}

void Configurator::reject( std::vector< Settings::ConfigError > const & errors ) {
   auto const rejected = Errors::configRejected( logErrors( errors ) );
   log( LogLevel::error, rejected.what() );
   condition_.raise( rejectionText( errors, "the previous one is active" ) );
   notifyManager( "READY=1\nSTATUS=Configuration rejected (" + counted( errors.size(), "error" ) +
                  "); keeping the previous one" );
   end( { number_, {}, rejected } );
}

void Configurator::end( Outcome const & outcome ) {
   auto const running = std::exchange( running_, {} );
   reloading_ = false;
   if ( !next_.empty() ) {
      begin();
   }
   for ( auto const & done : running ) {
      if ( done ) {
         done( outcome );
      }
   }
}

void Configurator::makeActive( ReadPlan & read ) {
   changes_ = std::move( read.changes );
   logged_ = 0;
   auto const before = active_.wanted();
   active_.plan = read.plan;
   sourcesAre( read.result );
   auto const wanted = active_.wanted();

   append( changes_, Settings::processChanges( before, wanted, TakesEffect::onReload ) );
   append( changes_,
           Settings::processChanges( active_.process, wanted, TakesEffect::atNextStart ) );

   // Levels that were set over the API stay until the files change theirs.
   auto const levels = wanted.value( "trace.levels" );
   if ( levels != before.value( "trace.levels" ) ) {
      Quill::traceLevelsIs( levels );
   }
}

void Configurator::sourcesAre( Settings::ConfigResult & read ) {
   active_.sources = std::make_shared< Settings::Sources const >( std::move( read.sources ) );
   active_.warnings.clear();
   for ( auto const & warning : read.warnings ) {
      active_.warnings.push_back( warning.message() );
      log( LogLevel::warning, active_.warnings.back() );
   }
}

} // namespace Valend
