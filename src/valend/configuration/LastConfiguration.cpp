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

// In the worker's thread. No function throws.
class LastConfiguration::File {
 public:
   File( std::string path, std::string source )
       : path_( std::move( path ) ), source_( std::move( source ) ) {}

   // In the open directory. Returns an empty text, or why it cannot be written.
   std::string write( int directory, ConfigPtr const & config ) {
      if ( written_ && *written_ == *config ) {
         return "";
      }
      auto const error =
         writeAtomically( directory, path_,
                          "# The last valid configuration of " + source_ +
                             ". Written by valend, for a start at which that has errors.\n" +
                             Settings::yamlOf( *config ),
                          0600, Sync::yes );
      written_ = error.empty() ? config : nullptr;
      return error;
   }

 private:
   std::string const path_;
   std::string const source_;
   ConfigPtr written_; // what the file has; null when that is not known
};

LastConfiguration::LastConfiguration( StateDirectory * stateDirectory, std::string source,
                                      Conditions & conditions, Valen::Linux::Worker & worker,
                                      Quill::Ptr< Gantry::TaskScheduler > scheduler )
    : directory_( stateDirectory && !stateDirectory->path().empty() ? stateDirectory : nullptr ),
      file_( directory_
                ? std::make_shared< File >( pathIn( directory_->path() ), std::move( source ) )
                : nullptr ),
      condition_( conditions, "last-configuration" ), worker_( worker ),
      timer_( std::move( scheduler ), "lastConfiguration", [ this ] { start(); } ) {}

LastConfiguration::~LastConfiguration() {
   if ( next_ ) {
      worker_.run( [ file = file_, config = next_,
                     directory = directory_->fd() ]() -> Valen::Linux::Worker::Work {
         file->write( directory, config );
         return nullptr;
      } );
   }
}

void LastConfiguration::keep( ConfigPtr config ) {
   if ( !file_ ) {
      return;
   }
   next_ = std::move( config );
   if ( !writing_ ) {
      start();
   }
}

void LastConfiguration::start() {
   writing_ = true;
   timer_.stop();
   auto const whyNotOpen = directory_->open();
   worker_.run( [ this, file = file_, config = std::exchange( next_, nullptr ), whyNotOpen,
                  directory = directory_->fd() ]() -> Valen::Linux::Worker::Work {
      auto const failure = file->write( directory, config );
      return [ this, config, error = whyNotOpen.empty() ? failure : whyNotOpen ] {
         if ( !error.empty() && !next_ ) {
            next_ = config; // to be tried again
         }
         written( error );
      };
   } );
}

void LastConfiguration::written( std::string const & error ) {
   writing_ = false;
   condition_.update(
      error.empty() ? "" : "a start with errors in the configuration would fail: " + error );
   if ( !next_ ) {
      return;
   }
   if ( error.empty() ) {
      start();
   } else {
      timer_.start( retryPeriod );
   }
}

} // namespace Valend
