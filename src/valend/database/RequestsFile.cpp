#include "valend/database/RequestsFile.h"

#include "valend/base/AtomicFile.h"
#include "valend/base/Log.h"
#include "valend/configuration/DatabaseText.h"

#include <utility>

namespace Valend {

namespace {

constexpr char const * requestsName = "requests";

} // namespace

// In the worker's thread. No function throws.
struct RequestsFile::Content {
   std::string path;
   Settings::Entities requests;

   // In the open directory. Returns an empty text, or why it cannot be written; the changes are not forgotten then.
   std::string save( int directory, Settings::EntityChanges const & changes ) {
      for ( auto const & [ interface, fields ] : changes ) {
         if ( fields ) {
            requests[ interface ] = *fields;
         } else {
            requests.erase( interface );
         }
      }
      return writeAtomically( directory, path, databaseText( requestsName, requests ), 0600,
                              Sync::yes );
   }
};

RequestsFile::RequestsFile( StateDirectory & directory, Conditions & conditions,
                            Valen::Linux::Worker & worker,
                            Quill::Ptr< Gantry::TaskScheduler > scheduler )
    : directory_( directory ), condition_( conditions, "requests" ), worker_( worker ),
      content_( std::make_shared< Content >() ),
      timer_( std::move( scheduler ), "requestsFile", [ this ] { start(); } ) {
   content_->path = directory_.pathOf( requestsName );
}

RequestsFile::~RequestsFile() {
   if ( !changes_.empty() ) {
      worker_.run( [ content = content_, changes = std::move( changes_ ),
                     directory = directory_.fd() ]() -> Valen::Linux::Worker::Work {
         content->save( directory, changes );
         return nullptr;
      } );
   }
}

Settings::Entities RequestsFile::read() {
   if ( directory_.path().empty() || !directory_.open().empty() ) {
      return {};
   }
   auto const text = directory_.content( requestsName, std::string::npos );
   auto requests = text ? entitiesOfText( requestsName, *text ) : std::nullopt;
   if ( text && !requests ) {
      auto const aside = std::string( requestsName ) + ".damaged";
      directory_.rename( requestsName, aside );
      log( LogLevel::error, directory_.pathOf( requestsName ) + " is damaged and was renamed to " +
                               directory_.pathOf( aside ) +
                               "; requests of the database may be repeated" );
   }
   content_->requests = requests.value_or( Settings::Entities() );
   return content_->requests;
}

void RequestsFile::save( std::string const & interface, std::optional< Settings::Fields > fields ) {
   if ( !directory_.path().empty() ) {
      changes_.insert_or_assign( interface, std::move( fields ) );
      start();
   }
}

void RequestsFile::whenSaved( Done done ) {
   if ( !changes_.empty() ) {
      next_.push_back( std::move( done ) );
   } else if ( writing_ ) {
      waiting_.push_back( std::move( done ) );
   } else {
      done();
   }
}

void RequestsFile::start() {
   if ( writing_ ) {
      return;
   }
   writing_ = true;
   timer_.stop();
   waiting_ = std::exchange( next_, {} );
   auto const changes =
      std::make_shared< Settings::EntityChanges const >( std::exchange( changes_, {} ) );
   auto const whyNotOpen = directory_.open();
   worker_.run( [ this, content = content_, changes, whyNotOpen,
                  directory = directory_.fd() ]() -> Valen::Linux::Worker::Work {
      auto const error = content->save( directory, *changes );
      return [ this, error = whyNotOpen.empty() ? error : whyNotOpen ] { written( error ); };
   } );
}

void RequestsFile::written( std::string const & error ) {
   writing_ = false;
   condition_.update(
      error.empty() ? "" : "requests of the database may be repeated after a restart: " + error );
   if ( !error.empty() ) {
      timer_.start( retryPeriod );
   }
   auto const waiting = std::exchange( waiting_, {} );
   if ( !changes_.empty() ) {
      start();
   }
   for ( auto const & done : waiting ) {
      done();
   }
}

} // namespace Valend
