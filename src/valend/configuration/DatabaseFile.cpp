#include "valend/configuration/DatabaseFile.h"

#include "settings/DatabaseAddress.h"
#include "valend/base/AtomicFile.h"
#include "valend/base/Log.h"
#include "valend/configuration/DatabaseText.h"

#include <utility>

namespace Valend {

namespace {

constexpr char const * databaseName = "database";

} // namespace

// In the worker's thread. No function throws.
struct DatabaseFile::Content {
   std::string path;
   EntitiesPtr config = std::make_shared< Settings::Entities const >();
   std::map< std::string, FieldsPtr > frames;

   void take( Changes & changes ) {
      config = changes.config ? changes.config : config;
      for ( auto & [ key, fields ] : changes.frames ) {
         if ( fields ) {
            frames[ key ] = std::move( fields );
         } else {
            frames.erase( key );
         }
      }
   }

   // In the open directory. Returns an empty text, or why it cannot be written.
   std::string write( int directory, std::string const & origin ) const {
      auto entities = *config;
      for ( auto const & [ key, fields ] : frames ) {
         entities.emplace( key, *fields );
      }
      return writeAtomically( directory, path, databaseText( origin, entities ), 0600, Sync::yes );
   }
};

DatabaseFile::DatabaseFile( StateDirectory & directory, Conditions & conditions,
                            Valen::Linux::Worker & worker,
                            Quill::Ptr< Gantry::TaskScheduler > scheduler )
    : directory_( directory ), condition_( conditions, "last-database" ), worker_( worker ),
      content_( std::make_shared< Content >() ),
      timer_( std::move( scheduler ), "databaseFile", [ this ] { start(); } ) {
   content_->path = directory_.pathOf( databaseName );
}

DatabaseFile::~DatabaseFile() {
   if ( due_ && !directory_.path().empty() ) {
      worker_.run( [ content = content_, changes = std::make_shared< Changes >( changes_ ),
                     origin = origin_,
                     directory = directory_.fd() ]() -> Valen::Linux::Worker::Work {
         content->take( *changes );
         content->write( directory, origin );
         return nullptr;
      } );
   }
}

std::string DatabaseFile::originOf( std::string const & server, std::string const & prefix ) {
   return Settings::withoutPassword( server ) + " " + prefix;
}

void DatabaseFile::originIs( std::string const & origin ) {
   origin_ = origin;
}

Settings::Entities DatabaseFile::read() {
   if ( directory_.path().empty() || !directory_.open().empty() ) {
      return {};
   }
   auto const text = directory_.content( databaseName, std::string::npos );
   auto entities = text ? entitiesOfText( origin_, *text ) : std::nullopt;
   if ( text && !entities ) {
      log( LogLevel::warning,
           directory_.pathOf( databaseName ) +
              " is damaged, or not of the database that is configured; not used" );
   }
   return entities.value_or( Settings::Entities() );
}

void DatabaseFile::configIs( EntitiesPtr config ) {
   changes_.config = std::move( config );
   changed();
}

void DatabaseFile::framesAre( std::string const & key, FieldsPtr fields ) {
   changes_.frames.insert_or_assign( key, std::move( fields ) );
   changed();
}

void DatabaseFile::changed() {
   due_ = true;
   if ( !writing_ && !timer_.running() ) {
      timer_.start( pause );
   }
}

void DatabaseFile::start() {
   if ( directory_.path().empty() ) {
      changes_ = {};
      due_ = false;
      return;
   }
   writing_ = true;
   due_ = false;
   auto const whyNotOpen = directory_.open();
   worker_.run( [ this, content = content_,
                  changes = std::make_shared< Changes >( std::exchange( changes_, {} ) ),
                  origin = origin_, whyNotOpen,
                  directory = directory_.fd() ]() -> Valen::Linux::Worker::Work {
      content->take( *changes );
      auto const error = content->write( directory, origin );
      return [ this, error = whyNotOpen.empty() ? error : whyNotOpen ] { written( error ); };
   } );
}

void DatabaseFile::written( std::string const & error ) {
   writing_ = false;
   condition_.update(
      error.empty() ? "" : "a start without the database would lose what it configures: " + error );
   due_ = due_ || !error.empty();
   if ( due_ ) {
      timer_.start( error.empty() ? pause : retryPeriod );
   }
}

} // namespace Valend
