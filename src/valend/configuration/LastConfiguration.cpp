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

   // Returns an empty text, or why it cannot be written.
   std::string write( PlanPtr const & plan ) {
      if ( written_ && written_->config() == plan->config() ) {
         return "";
      }
      std::error_code ignored; // the write says why it fails
      std::filesystem::create_directories( std::filesystem::path( path_ ).parent_path(), ignored );
      auto const error =
         writeAtomically( path_,
                          "# The last valid configuration of " + source_ +
                             ". Written by valend, for a start at which that has errors.\n" +
                             Settings::yamlOf( plan->config() ),
                          0600, Sync::yes );
      written_ = error.empty() ? plan : nullptr;
      return error.empty() ? "" : "a start with errors in the configuration would fail: " + error;
   }

 private:
   std::string const path_;
   std::string const source_;
   PlanPtr written_; // what the file has; null when that is not known
};

LastConfiguration::LastConfiguration( std::string const & stateDirectory, std::string source,
                                      Conditions & conditions, Valen::Linux::Worker & worker,
                                      Quill::Ptr< Gantry::TaskScheduler > scheduler )
    : file_( stateDirectory.empty()
                ? nullptr
                : std::make_shared< File >( pathIn( stateDirectory ), std::move( source ) ) ),
      condition_( conditions, "last-configuration" ), worker_( worker ),
      timer_( std::move( scheduler ), "lastConfiguration", [ this ] { start(); } ) {}

LastConfiguration::~LastConfiguration() {
   if ( next_ ) {
      worker_.run( [ file = file_, plan = next_ ]() -> Valen::Linux::Worker::Work {
         file->write( plan );
         return nullptr;
      } );
   }
}

void LastConfiguration::keep( PlanPtr plan ) {
   if ( !file_ ) {
      return;
   }
   next_ = std::move( plan );
   if ( !writing_ ) {
      start();
   }
}

void LastConfiguration::start() {
   writing_ = true;
   timer_.stop();
   worker_.run( [ this, file = file_,
                  plan = std::exchange( next_, nullptr ) ]() -> Valen::Linux::Worker::Work {
      return [ this, plan, error = file->write( plan ) ] {
         if ( !error.empty() && !next_ ) {
            next_ = plan; // to be tried again
         }
         written( error );
      };
   } );
}

void LastConfiguration::written( std::string const & error ) {
   writing_ = false;
   condition_.update( error );
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
