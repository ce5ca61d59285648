// Keeps the last valid configuration of the files in the file "configuration.yaml" of the state directory, for a start at
// which the files have errors: the links are to be protected all the same.
//
// The file is a configuration of its own, with the frames of capture files in it. A worker thread writes it, because a
// large one takes long. No function throws. While it cannot be written, the condition "last-configuration" is
// raised.
#pragma once

#include "linux/Worker.h"
#include "platform/gantry/Timer.h"
#include "settings/ConfigReader.h"
#include "valend/base/Conditions.h"
#include "valend/base/StateDirectory.h"
#include "valend/configuration/Plan.h"

#include <chrono>
#include <memory>
#include <optional>
#include <string>

namespace Valend {

class LastConfiguration {
 public:
   // When it tries again after an error.
   static constexpr std::chrono::seconds retryPeriod{ 60 };

   // The file in the state directory; empty when there is no such directory.
   static std::string pathIn( std::string const & stateDirectory );
   // What was kept, with the errors in it, if any; nothing when there is no such file.
   static std::optional< Settings::ConfigResult > read( std::string const & stateDirectory );

   // Without a state directory (null, or one without a path) it keeps nothing. All must outlive this; `worker` runs what is
   // left to be written at the end.
   //   source   the file that the configuration is read from
   LastConfiguration( StateDirectory * stateDirectory, std::string source, Conditions & conditions,
                      Valen::Linux::Worker & worker,
                      Quill::Ptr< Gantry::TaskScheduler > scheduler );
   ~LastConfiguration();
   LastConfiguration( LastConfiguration const & ) = delete;
   LastConfiguration & operator=( LastConfiguration const & ) = delete;

   // Keeps `config`, which is valid. Returns at once.
   void keep( ConfigPtr config );

 private:
   class File;

   void start();
   void written( std::string const & error );

   StateDirectory * const directory_;
   std::shared_ptr< File > const file_; // the worker's; null when nothing is kept
   Condition condition_;
   Valen::Linux::Worker & worker_;
   ConfigPtr next_; // to be written; null: none
   bool writing_ = false;
   Gantry::Timer timer_;
};

} // namespace Valend
