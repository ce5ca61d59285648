#include "valend/configuration/PublishedFile.h"

#include "valend/base/Log.h"

#include <cerrno>
#include <utility>

namespace Valend {

namespace {

constexpr char const * publishedName = "published";

} // namespace

PublishedFile::PublishedFile( StateDirectory & directory, Conditions & conditions,
                              Valen::Linux::Worker & worker,
                              Quill::Ptr< Gantry::TaskScheduler > scheduler )
    : directory_( directory ), condition_( conditions, "published-frames" ), worker_( worker ),
      file_( std::make_shared< PublishedFrames >( directory.pathOf( publishedName ) ) ),
      timer_( std::move( scheduler ), "publishedFile", [ this ] {
         mustWrite_ = true;
         start();
      } ) {}

PublishedFile::~PublishedFile() {
   if ( !changes_.empty() ) { // after what is being written
      worker_.run( [ file = file_, changes = std::move( changes_ ),
                     directory = directory_.fd() ]() -> Valen::Linux::Worker::Work {
         file->save( directory, changes );
         return nullptr;
      } );
   }
}

PublishedFrames::Entries PublishedFile::read() {
   if ( !directory_.open().empty() ) {
      return {};
   }
   auto const text = directory_.content( publishedName, std::string::npos );
   auto const damage = text              ? file_->read( *text )
                       : errno == ENOENT ? ""
                                         : Valen::Linux::errorText( errno );
   if ( !damage.empty() ) {
      auto const path = directory_.pathOf( publishedName );
      auto const aside = std::string( publishedName ) + ".damaged";
      directory_.rename( publishedName, aside );
      log( LogLevel::error, "published frames lost: " + path + " is damaged and was renamed to " +
                               directory_.pathOf( aside ) + ": " + damage );
      mustWrite_ = !file_->entries().empty();
      start();
   }
   return file_->entries();
}

void PublishedFile::save( PublishedFrames::Entry change ) {
   if ( !directory_.path().empty() ) {
      changes_.push_back( std::move( change ) );
      start();
   }
}

void PublishedFile::whenSaved( Done done ) {
   if ( !changes_.empty() ) {
      next_.push_back( std::move( done ) );
   } else if ( writing_ ) {
      waiting_.push_back( std::move( done ) );
   } else {
      done( !directory_.path().empty() && !condition_.raised() );
   }
}

void PublishedFile::start() {
   if ( writing_ || ( changes_.empty() && !mustWrite_ ) ) {
      return;
   }
   writing_ = true;
   mustWrite_ = false;
   timer_.stop();
   auto const changes = std::make_shared< PublishedFrames::Entries const >( std::move( changes_ ) );
   changes_.clear();
   waiting_ = std::exchange( next_, {} );
   auto const whyNotOpen = directory_.open();
   worker_.run( [ this, file = file_, changes, whyNotOpen,
                  directory = directory_.fd() ]() -> Valen::Linux::Worker::Work {
      auto const error = file->save( directory, *changes ); // which keeps them in any case
      return [ this, error = whyNotOpen.empty() ? error : whyNotOpen ] { written( error ); };
   } );
}

void PublishedFile::written( std::string const & error ) {
   writing_ = false;
   condition_.update( error.empty() ? "" : "published frames would be lost on restart: " + error );
   if ( !error.empty() ) {
      timer_.start( retryPeriod );
   }
   auto const waiting = std::exchange( waiting_, {} );
   start();
   for ( auto const & done : waiting ) {
      done( error.empty() );
   }
}

} // namespace Valend
