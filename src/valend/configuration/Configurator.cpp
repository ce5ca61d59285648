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

// The entities of a database, and what was told of them.
struct Configurator::Layer {
   Settings::Overlay overlay;
   Settings::Overlay::Rejected told;
   std::shared_ptr< Settings::Entities const > taken =
      std::make_shared< Settings::Entities const >();
};

// A configuration that was read, with what the loop would take long to work out.
struct Configurator::ReadPlan {
   std::vector< Settings::ConfigError > errors; // of the files; the rest is empty then
   std::vector< Settings::ConfigError > warnings;
   Files files;
   PlanPtr plan;
   SourcesPtr sources;
   Lines changes;
   Layered layered;
};

struct Configurator::Old {
   Files files;
   PlanPtr plan;
   SourcesPtr sources;
};

Configurator::Configurator( std::string file, Settings::ProcessConfig commandLine,
                            Conditions & conditions, Valen::Linux::EventLoop & loop, Apply apply,
                            Read read )
    : file_( std::move( file ) ), condition_( conditions, "configuration" ),
      slow_( conditions, "configuration-read" ), apply_( std::move( apply ) ),
      read_( std::move( read ) ), files_{ std::make_shared< Settings::Config const >(),
                                          std::make_shared< Settings::Sources const >() },
      layer_( std::make_shared< Layer >() ),
      slices_( loop.workQueue(), loop.scheduler(), "reload" ),
      timer_( loop.scheduler(), "configurationRead",
              [ this ] {
                 slow_.raise( "the files of " + file_ + " have not been read within " +
                              std::to_string( readTimeout.count() ) +
                              " s; the previous configuration is active" );
              } ),
      reader_( loop, "valen-config", std::chrono::milliseconds( 0 ) ) {
   active_.commandLine = std::move( commandLine );
}

void Configurator::resume( Settings::Entities taken ) {
   layer_->overlay.resume( std::move( taken ) );
}

void Configurator::start( Settings::ConfigResult read,
                          std::vector< Settings::ConfigError > const & rejected ) {
   files_ = { std::make_shared< Settings::Config const >( std::move( read.config ) ),
              std::make_shared< Settings::Sources const >( std::move( read.sources ) ) };
   auto start = planOf( files_, *layer_, active_.plan );
   active_.plan = start.plan;
   active_.sources = start.sources;
   active_.process = active_.wanted();
   active_.processSources = files_.sources;
   warningsAre( read.warnings );
   if ( !rejected.empty() ) {
      logErrors( rejected );
      condition_.raise( rejectionText(
         rejected, "the last valid one, " + files_.sources->files.front() + ", is active" ) );
      notifyManager( "STATUS=Configuration rejected (" + counted( rejected.size(), "error" ) +
                     "); running with the last valid one" );
   }
   for ( auto const & step : apply_( active_.plan ) ) {
      while ( step() ) {
      }
   }
   tellLayered( start.layered );
}

// --- A reload ------------------------------------------------------------------------------------

void Configurator::reload( Done done ) {
   next_.push_back( std::move( done ) );
   next();
}

Settings::ConfigResult Configurator::readFiles( std::string const & file ) {
   if ( file != "-" ) {
      return Settings::readConfig( file );
   }
   Settings::ConfigResult result;
   result.errors.push_back( { { file }, "standard input cannot be read again" } );
   return result;
}

// In the other thread, but for the start.
Configurator::ReadPlan Configurator::planOf( Files files, Layer & layer, PlanPtr const & before ) {
   ReadPlan read;
   auto & overlay = layer.overlay;
   if ( overlay.empty() ) { // most have no database
      read.plan = std::make_shared< Plan const >( files.config );
      read.sources = files.sources;
   } else {
      auto settled = overlay.settle( *files.config, *files.sources );
      read.plan = std::make_shared< Plan const >( std::move( settled.config ) );
      read.sources = std::make_shared< Settings::Sources const >( std::move( settled.sources ) );
   }
   read.files = std::move( files );
   read.changes = Settings::changesBetween( before->config(), read.plan->config() );

   auto const & rejected = overlay.rejected();
   for ( auto const & [ key, why ] : layer.told ) {
      if ( !rejected.contains( key ) ) {
         read.layered.rejected.emplace_back( key, "" );
      }
   }
   for ( auto const & [ key, why ] : rejected ) {
      auto const told = layer.told.find( key );
      if ( told == layer.told.end() || told->second != why ) {
         read.layered.rejected.emplace_back( key, why );
      }
   }
   layer.told = rejected;
   if ( auto taken = overlay.taken(); taken != *layer.taken ) {
      layer.taken = std::make_shared< Settings::Entities const >( std::move( taken ) );
      read.layered.taken = layer.taken;
   }
   return read;
}

void Configurator::next() {
   if ( reloading_ ) {
      return;
   }
   if ( !next_.empty() ) {
      beginReload();
   } else if ( entities_ ) {
      beginLayer();
   }
}

void Configurator::beginReload() {
   reloading_ = true;
   ++number_;
   running_ = std::exchange( next_, {} );
   notifyManager( "RELOADING=1\nMONOTONIC_USEC=" + monotonicMicroseconds() );
   timer_.start( readTimeout );
   reader_.run( [ this, file = file_, read = read_, lookUp = lookUp_, layer = layer_,
                  before = active_.plan ]() -> Valen::Linux::Worker::Work {
      auto result = read( file );
      auto plan = std::make_shared< ReadPlan >();
      if ( result.errors.empty() ) {
         *plan =
            planOf( { std::make_shared< Settings::Config const >( std::move( result.config ) ),
                      std::make_shared< Settings::Sources const >( std::move( result.sources ) ) },
                    *layer, before );
      }
      plan->errors = std::move( result.errors );
      plan->warnings = std::move( result.warnings );
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
   if ( !read.errors.empty() ) {
      return reject( read.errors );
   }
   makeActive( read );
   slices_.add( [ this ] {
      condition_.clear();
      return false;
   } );
   logChanges();
   slices_.add( [ this, layered = std::move( read.layered ) ] {
      tellLayered( layered );
      applied();
      return false;
   } );
}

void Configurator::logChanges() {
   slices_.add( [ this ] {
      if ( logged_ < changes_.size() ) {
         log( LogLevel::notice, changes_[ logged_++ ] );
      }
      return logged_ < changes_.size();
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
   next();
   for ( auto const & done : running ) {
      if ( done ) {
         done( outcome );
      }
   }
}

// Makes what was read active, and begins to apply it.
void Configurator::makeActive( ReadPlan & read ) {
   auto old = std::make_shared< Old >( Old{ files_, active_.plan, active_.sources } );
   changes_ = std::move( read.changes );
   logged_ = 0;
   auto const before = active_.wanted();
   files_ = read.files;
   active_.plan = read.plan;
   active_.sources = read.sources;
   warningsAre( read.warnings );
   auto const wanted = active_.wanted();

   append( changes_, Settings::processChanges( before, wanted, TakesEffect::onReload ) );
   append( changes_,
           Settings::processChanges( active_.process, wanted, TakesEffect::atNextStart ) );

   // Levels that were set over the API stay until the files change theirs.
   auto const levels = wanted.value( "trace.levels" );
   if ( levels != before.value( "trace.levels" ) ) {
      Quill::traceLevelsIs( levels );
   }
   applyActive( std::move( old ) );
}

void Configurator::applyActive( std::shared_ptr< Old > old ) {
   for ( auto & step : apply_( active_.plan ) ) {
      slices_.add( std::move( step ) );
   }
   slices_.add( [ this, old = std::move( old ) ]() mutable {
      destroy( std::move( old ) );
      return false;
   } );
}

void Configurator::destroy( std::shared_ptr< Old > old ) {
   reader_.run( [ last = std::move( old ) ]() mutable -> Valen::Linux::Worker::Work {
      last = nullptr;
      return nullptr;
   } );
}

void Configurator::warningsAre( std::vector< Settings::ConfigError > const & warnings ) {
   active_.warnings.clear();
   for ( auto const & warning : warnings ) {
      active_.warnings.push_back( warning.message() );
      log( LogLevel::warning, active_.warnings.back() );
   }
}

// --- A change of entities ------------------------------------------------------------------------

void Configurator::entitiesChange( Settings::EntityChanges changes ) {
   entities_ = std::move( changes );
   replaceEntities_ = false;
   next();
}

void Configurator::entitiesReplace( Settings::EntityChanges all ) {
   entities_ = std::move( all );
   replaceEntities_ = true;
   next();
}

void Configurator::beginLayer() {
   reloading_ = true;
   auto const entities =
      std::make_shared< Settings::EntityChanges >( *std::exchange( entities_, std::nullopt ) );
   reader_.run( [ this, entities, replace = replaceEntities_, layer = layer_, files = files_,
                  before = active_.plan ]() -> Valen::Linux::Worker::Work {
      if ( replace ) {
         layer->overlay.replace( std::move( *entities ) );
      } else {
         layer->overlay.change( std::move( *entities ) );
      }
      auto plan = std::make_shared< ReadPlan >( planOf( files, *layer, before ) );
      return [ this, plan ] { layerSettled( *plan ); };
   } );
}

void Configurator::layerSettled( ReadPlan & read ) {
   auto old = std::make_shared< Old >( Old{ {}, active_.plan, active_.sources } );
   active_.sources = read.sources;
   if ( read.changes.empty() ) {
      old->plan = std::move( read.plan ); // it is the same
      destroy( std::move( old ) );
   } else {
      active_.plan = read.plan;
      changes_ = std::move( read.changes );
      logged_ = 0;
      applyActive( std::move( old ) );
      logChanges();
   }
   slices_.add( [ this, layered = std::move( read.layered ) ]() mutable {
      layered.ofEntities = true;
      layered.changes = std::exchange( changes_, {} );
      reloading_ = false;
      tellLayered( layered );
      next();
      return false;
   } );
}

void Configurator::tellLayered( Layered const & layered ) const {
   if ( layered_ ) {
      layered_( layered );
   }
}

} // namespace Valend
