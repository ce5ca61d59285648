// Saves the frames that agents have published with lifetime "kept" in the file "published" of the state
// directory, so that they survive a restart and a power failure (the format is in PublishedFrames.h).
//
// A worker thread writes, and waits for the disk. Whatever changes meanwhile is written together afterwards. No function
// throws. While the file cannot be written, the condition "published-frames" is raised, and every later change, and
// a timer, retry.
#pragma once

#include "linux/Worker.h"
#include "platform/gantry/Timer.h"
#include "valend/base/Conditions.h"
#include "valend/base/StateDirectory.h"
#include "valend/configuration/PublishedFrames.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Valend {

class PublishedFile {
 public:
   // When it tries again after an error.
   static constexpr std::chrono::seconds retryPeriod{ 60 };

   // Saves nothing when there is no state directory. All must outlive this; `worker` runs what is left to be written at
   // the end.
   PublishedFile( StateDirectory & directory, Conditions & conditions,
                  Valen::Linux::Worker & worker, Quill::Ptr< Gantry::TaskScheduler > scheduler );
   ~PublishedFile();
   PublishedFile( PublishedFile const & ) = delete;
   PublishedFile & operator=( PublishedFile const & ) = delete;

   // What the previous run saved. A damaged file is renamed to "published.damaged", and the error is logged; what is
   // intact goes to a new file. Waits for the disk: call it once, at the start.
   PublishedFrames::Entries read();

   // Saves what an agent has published for an interface from now on; no frames: nothing. Returns at once.
   void save( PublishedFrames::Entry change );

   // Calls `done` when all that was passed to save() before is on the disk, or cannot be written; at once when nothing is
   // being written.
   //   saved   whether it is on the disk
   using Done = std::function< void( bool saved ) >;
   void whenSaved( Done done );

 private:
   void start();
   void written( std::string const & error );

   StateDirectory & directory_;
   Condition condition_;
   Valen::Linux::Worker & worker_;
   std::shared_ptr< PublishedFrames > const file_; // the worker's, while it writes
   bool writing_ = false;
   bool mustWrite_ = false;           // even when nothing has changed
   PublishedFrames::Entries changes_; // since then
   std::vector< Done > waiting_;      // for what is being written
   std::vector< Done > next_;         // for `changes_`
   Gantry::Timer timer_;
};

} // namespace Valend
