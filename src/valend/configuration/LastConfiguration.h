// Keeps the last valid configuration in the file "configuration.yaml" of the state directory, for a start at
// which the files have errors: the links are to be protected all the same.
//
// The file is a configuration of its own, with the frames of capture files in it. It is written in another
// thread, because a large one takes long. No function throws. While it cannot be written, the condition
// "last-configuration" is raised.
#pragma once

#include "platform/gantry/Timer.h"
#include "settings/ConfigReader.h"
#include "valend/base/Conditions.h"

#include <chrono>
#include <future>
#include <memory>
#include <optional>
#include <string>

namespace Valend {

class LastConfiguration {
 public:
   // How often it looks whether the thread has ended.
   static constexpr std::chrono::milliseconds period{ 50 };
   // When it tries again after an error.
   static constexpr std::chrono::seconds retryPeriod{ 60 };

   // The file in the state directory; empty when there is no such directory.
   static std::string pathIn( std::string const & stateDirectory );
   // What was kept, with the errors in it, if any; nothing when there is no such file.
   static std::optional< Settings::ConfigResult > read( std::string const & stateDirectory );

   // Keeps nothing when `stateDirectory` is empty. `conditions` must outlive this.
   //   source   the file that the configuration is read from
   LastConfiguration( std::string const & stateDirectory, std::string source,
                      Conditions & conditions, Quill::Ptr< Gantry::TaskScheduler > scheduler );
   ~LastConfiguration(); // waits until the last one is written
   LastConfiguration( LastConfiguration const & ) = delete;
   LastConfiguration & operator=( LastConfiguration const & ) = delete;

   // Keeps `config`, which is valid. Returns at once.
   void keep( Settings::Config const & config );

 private:
   using Kept = std::shared_ptr< Settings::Config const >;

   std::string write( Settings::Config const & config ) const;
   void start();
   void look();

   std::string const path_;
   std::string const source_;
   Condition condition_;
   Kept current_;                       // being written, or written last
   Kept next_;                          // to be written then; null: none
   std::future< std::string > writing_; // its error, or an empty text
   Gantry::Timer timer_;
};

} // namespace Valend
