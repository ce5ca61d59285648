// The metrics in a file, for a collector that reads a directory of such files: written every 15 seconds
// and soon after each shutdown, always as a whole.
//
// A worker thread writes, so that a disk that is stuck holds up nothing else.
#pragma once

#include "linux/Worker.h"
#include "platform/gantry/Timer.h"
#include "valend/base/Conditions.h"

#include <memory>
#include <string>

namespace Valend {

class MetricsFile {
 public:
   static constexpr std::chrono::seconds period{ 15 };
   // How long after touch(); several within that time lead to one write.
   static constexpr std::chrono::milliseconds soon{ 100 };

   // Writes what `text` returns to `path` from now on; an empty path means no file. The condition
   // "metrics-file" is raised while it cannot be written. `conditions` and `worker` must outlive this.
   MetricsFile( std::string path, std::function< std::string() > text, Conditions & conditions,
                Valen::Linux::Worker & worker, Quill::Ptr< Gantry::TaskScheduler > scheduler );
   // Has the worker remove the file that it wrote: a process that has ended has no metrics.
   ~MetricsFile();
   MetricsFile( MetricsFile const & ) = delete;
   MetricsFile & operator=( MetricsFile const & ) = delete;

   // The metrics have changed: writes them soon.
   void touch();

 private:
   class File;

   void write();
   void written( std::string const & error );

   std::shared_ptr< File > const file_; // the worker's; null when no file is written
   std::function< std::string() > const text_;
   bool soon_ = false;
   bool writing_ = false;
   bool again_ = false; // it was due while writing
   Condition condition_;
   Valen::Linux::Worker & worker_;
   Gantry::Timer timer_;
};

} // namespace Valend
