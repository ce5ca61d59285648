// The metrics in a file, for a collector that reads folders of such files: written every 15 seconds
// and soon after each shutdown, always whole.
#pragma once

#include "platform/gantry/Timer.h"

#include <string>

namespace Valend {

class MetricsFile {
 public:
   static constexpr std::chrono::seconds period{ 15 };
   // How long after a shutdown's end; the ends of many make one file.
   static constexpr std::chrono::milliseconds soon{ 100 };

   // Keeps `path` from now on, with what `text` gives. Without a path it does nothing.
   MetricsFile( std::string path, std::function< std::string() > text,
                Quill::Ptr< Gantry::TaskScheduler > scheduler );
   ~MetricsFile(); // takes the file away: who is gone has no metrics
   MetricsFile( MetricsFile const & ) = delete;
   MetricsFile & operator=( MetricsFile const & ) = delete;

   // There is something new.
   void touch();

   // Why the file cannot be written; empty when it can.
   std::string const & trouble() const noexcept { return trouble_; }

 private:
   void write();

   std::string const path_;
   std::function< std::string() > const text_;
   bool soon_ = false;
   std::string trouble_;
   Gantry::Timer timer_;
};

} // namespace Valend
