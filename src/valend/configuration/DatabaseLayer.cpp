#include "valend/configuration/DatabaseLayer.h"

#include "valend/base/Log.h"

#include <utility>

namespace Valend {

namespace {

constexpr char const * configKeys = "config:";

} // namespace

DatabaseLayer::DatabaseLayer( Configurator & configurator, Publications & publications,
                              DatabaseFile & file, Gantry::WorkQueue & work,
                              Quill::Ptr< Gantry::TaskScheduler > scheduler )
    : configurator_( configurator ), file_( file ), frames_( publications, file ),
      timer_( scheduler, "databaseLayer", [ this ] { apply(); } ),
      slices_( work, std::move( scheduler ), "databaseLayer" ) {
   configurator_.layeredIs( [ this ]( auto const & layered ) { this->layered( layered ); } );
}

DatabaseLayer::~DatabaseLayer() {
   configurator_.layeredIs( nullptr );
}

void DatabaseLayer::rejectedIs( Rejected rejected ) {
   rejected_ = std::move( rejected );
   frames_.rejectedIs( rejected_ );
}

void DatabaseLayer::leaseWantedIs( LeaseWanted wanted ) {
   frames_.leaseWantedIs( std::move( wanted ) );
}

void DatabaseLayer::resume( std::string const & origin ) {
   file_.originIs( origin );
   Settings::Entities config;
   for ( auto & [ key, fields ] : file_.read() ) {
      if ( key.starts_with( configKeys ) ) {
         config.emplace( key, fields );
      } else if ( key.starts_with( DatabaseFrames::prefix ) ) {
         frames_.resume( key, fields );
      }
   }
   frames_.begin();
   configurator_.resume( std::move( config ) );
}

// --- What is told --------------------------------------------------------------------------------

void DatabaseLayer::entityIs( std::string const & key, Settings::Fields const & fields ) {
   if ( key.starts_with( DatabaseFrames::prefix ) ) {
      frames_.entityIs( key, fields );
   } else if ( key.starts_with( configKeys ) ) {
      changes_.insert_or_assign( key, fields );
      collect();
   }
}

void DatabaseLayer::entityGone( std::string const & key ) {
   if ( key.starts_with( DatabaseFrames::prefix ) ) {
      frames_.entityGone( key );
   } else if ( key.starts_with( configKeys ) ) {
      changes_.insert_or_assign( key, std::nullopt );
      collect();
   }
}

void DatabaseLayer::complete() {
   if ( std::exchange( complete_, true ) ) {
      return;
   }
   slices_.add( frames_.sweepStep() );
   collect();
}

void DatabaseLayer::restart( std::string const & origin ) {
   file_.originIs( origin );
   complete_ = false;
   replace_ = true;
   changes_.clear();
   timer_.stop();
   frames_.begin();
}

void DatabaseLayer::clear() {
   restart( "" );
   complete();
}

// --- Settling ------------------------------------------------------------------------------------

void DatabaseLayer::collect() {
   if ( complete_ && !busy_ && !timer_.running() ) {
      timer_.start( collecting );
   }
}

void DatabaseLayer::apply() {
   busy_ = true;
   auto changes = std::exchange( changes_, {} );
   if ( std::exchange( replace_, false ) ) {
      configurator_.entitiesReplace( std::move( changes ) );
   } else {
      configurator_.entitiesChange( std::move( changes ) );
   }
}

void DatabaseLayer::layered( Configurator::Layered const & layered ) {
   if ( layered.taken ) {
      file_.configIs( layered.taken );
   }
   slices_.add( [ this, rejected = layered.rejected, next = std::size_t( 0 ) ]() mutable {
      if ( next == rejected.size() ) {
         return false;
      }
      auto const & [ key, why ] = rejected[ next++ ];
      if ( !why.empty() ) {
         log( LogLevel::warning, "database: " + key + " rejected: " + why );
      }
      if ( rejected_ ) {
         rejected_( key, why );
      }
      return true;
   } );
   if ( layered.ofEntities ) {
      if ( changed_ && !layered.changes.empty() ) {
         changed_( layered.changes );
      }
      slices_.add( [ this ] {
         ended();
         return false;
      } );
   }
}

void DatabaseLayer::ended() {
   busy_ = false;
   if ( replace_ ? complete_ : !changes_.empty() ) {
      collect();
   } else if ( complete_ && settled_ ) {
      settled_();
   }
}

} // namespace Valend
