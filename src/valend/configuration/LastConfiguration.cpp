#include "valend/configuration/LastConfiguration.h"

#include "settings/ConfigFiles.h"
#include "settings/ConfigWriter.h"
#include "valend/base/AtomicFile.h"

#include <filesystem>
#include <system_error>

namespace Valend {

std::string LastConfiguration::pathIn( std::string const & stateDirectory ) {
   return stateDirectory.empty() ? "" : stateDirectory + "/configuration.yaml";
}

std::optional< Settings::ConfigResult >
LastConfiguration::read( std::string const & stateDirectory ) {
   auto const path = pathIn( stateDirectory );
   std::error_code ignored;
   if ( path.empty() || !std::filesystem::exists( path, ignored ) ) {
      return std::nullopt;
   }
   return Settings::readConfigFile( path );
}

LastConfiguration::LastConfiguration( std::string const & stateDirectory, std::string source,
                                      Conditions & conditions,
                                      Quill::Ptr< Gantry::TaskScheduler > scheduler )
    : path_( pathIn( stateDirectory ) ), source_( std::move( source ) ),
      condition_( conditions, "last-configuration" ),
      timer_( std::move( scheduler ), "lastConfiguration", [ this ] { look(); } ) {}

LastConfiguration::~LastConfiguration() {
   if ( writing_.valid() ) {
      writing_.wait();
   }
   if ( next_ ) {
      write( *next_ );
   }
}

void LastConfiguration::keep( Settings::Config const & config ) {
   if ( path_.empty() ) {
      return;
   }
   next_ = std::make_shared< Settings::Config const >( config );
   if ( !writing_.valid() ) {
      start();
   }
}

std::string LastConfiguration::write( Settings::Config const & config ) const {
   std::error_code ignored; // the write says why it fails
   std::filesystem::create_directories( std::filesystem::path( path_ ).parent_path(), ignored );
   auto const error =
      writeAtomically( path_,
                       "# The last valid configuration of " + source_ +
                          ". Written by valend, for a start at which that has errors.\n" +
                          Settings::yamlOf( config ),
                       0600 );
   return error.empty() ? "" : "a start with errors in the configuration would fail: " + error;
}

void LastConfiguration::start() {
   current_ = std::exchange( next_, nullptr );
   try {
      writing_ =
         std::async( std::launch::async, [ this, config = current_ ] { return write( *config ); } );
   } catch ( std::system_error const & ) { // no thread can be started
      std::promise< std::string > written;
      written.set_value( write( *current_ ) );
      writing_ = written.get_future();
   }
   timer_.start( period );
}

void LastConfiguration::look() {
   if ( !writing_.valid() ) {
      return start(); // again, after an error
   }
   if ( writing_.wait_for( std::chrono::seconds( 0 ) ) != std::future_status::ready ) {
      return timer_.start( period );
   }
   auto const error = writing_.get();
   condition_.update( error );
   if ( next_ ) {
      start();
   } else if ( !error.empty() ) {
      next_ = current_;
      timer_.start( retryPeriod );
   }
}

} // namespace Valend
