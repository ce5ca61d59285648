#include "valend/configuration/PublishedFile.h"

#include "valend/base/Log.h"

#include <cstdio>
#include <utility>

namespace Valend {

PublishedFile::PublishedFile( std::string const & directory, Conditions & conditions,
                              Valen::Linux::Worker & worker,
                              Quill::Ptr< Gantry::TaskScheduler > scheduler )
    : path_( directory.empty() ? "" : directory + "/published" ),
      condition_( conditions, "published-frames" ), worker_( worker ),
      file_( std::make_shared< PublishedFrames >( path_ ) ),
      timer_( std::move( scheduler ), "publishedFile", [ this ] {
         mustWrite_ = true;
         start();
      } ) {}

PublishedFile::~PublishedFile() {
   if ( !changes_.empty() ) { // after what is being written
      worker_.run(
         [ file = file_, changes = std::move( changes_ ) ]() -> Valen::Linux::Worker::Work {
            file->save( changes );
            return nullptr;
         } );
   }
}

PublishedFrames::Entries PublishedFile::read() {
   if ( path_.empty() ) {
      return {};
   }
   auto const damage = file_->read();
   if ( !damage.empty() ) {
      auto const aside = path_ + ".damaged";
      std::rename( path_.c_str(), aside.c_str() );
      log( LogLevel::error, "published frames lost: " + path_ + " is damaged and was renamed to " +
                               aside + ": " + damage );
      mustWrite_ = !file_->entries().empty();
      start();
   }
   return file_->entries();
}

void PublishedFile::save( PublishedFrames::Entry change ) {
   if ( !path_.empty() ) {
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
      done( !path_.empty() && !condition_.raised() );
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
   worker_.run( [ this, file = file_, changes ]() -> Valen::Linux::Worker::Work {
      return [ this, error = file->save( *changes ) ] { written( error ); };
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
