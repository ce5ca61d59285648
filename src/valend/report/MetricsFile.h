// The metrics in a file, for a collector that reads a directory of such files: written every 15 seconds
// and soon after each shutdown, always as a whole.
#pragma once

#include "platform/gantry/Timer.h"
#include "valend/base/Conditions.h"

#include <string>

namespace Valend {

class MetricsFile {
 public:
   static constexpr std::chrono::seconds period{ 15 };
   // How long after touch(); several within that time lead to one write.
   static constexpr std::chrono::milliseconds soon{ 100 };

   // Writes what `text` returns to `path` from now on; an empty path means no file. The condition
   // "metrics-file" is raised while it cannot be written.
   MetricsFile( std::string path, std::function< std::string() > text, Conditions & conditions,
                Quill::Ptr< Gantry::TaskScheduler > scheduler );
   ~MetricsFile(); // removes the file that it wrote: a process that has ended has no metrics
   MetricsFile( MetricsFile const & ) = delete;
   MetricsFile & operator=( MetricsFile const & ) = delete;

   // The metrics have changed: writes them soon.
   void touch();

 private:
   void write();

   std::string const path_;
   std::function< std::string() > const text_;
   bool soon_ = false;
   bool written_ = false; // ever: the file may be another daemon's until then
   Condition condition_;
   Gantry::Timer timer_;
};

} // namespace Valend
