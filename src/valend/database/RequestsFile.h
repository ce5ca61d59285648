// Keeps which requests of a database were acted on, and what came of them, in the file "requests" of the state
// directory, so that none is acted on twice.
//
// A worker thread writes the file as a whole, and waits for the disk. Whatever changes meanwhile is written together
// afterwards. No function throws. While it cannot be written, the condition "requests" is raised.
#pragma once

#include "linux/Worker.h"
#include "platform/gantry/Timer.h"
#include "settings/Overlay.h"
#include "valend/base/Conditions.h"
#include "valend/base/StateDirectory.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Valend {

class RequestsFile {
 public:
   // When it tries again after an error.
   static constexpr std::chrono::seconds retryPeriod{ 60 };

   // Without a state directory it keeps nothing. All must outlive this; `worker` runs what is left to be written at the
   // end.
   RequestsFile( StateDirectory & directory, Conditions & conditions, Valen::Linux::Worker & worker,
                 Quill::Ptr< Gantry::TaskScheduler > scheduler );
   ~RequestsFile();
   RequestsFile( RequestsFile const & ) = delete;
   RequestsFile & operator=( RequestsFile const & ) = delete;

   // What the previous run kept, by interface. Waits for the disk: call it once, at the start.
   Settings::Entities read();
   // Keeps `fields` for the interface; nothing: no longer. Returns at once.
   void save( std::string const & interface, std::optional< Settings::Fields > fields );
   // Calls `done` when all that was passed to save() before is on the disk, or cannot be written; at once when there is
   // nothing to be written.
   using Done = std::function< void() >;
   void whenSaved( Done done );

 private:
   struct Content;

   void start();
   void written( std::string const & error );

   StateDirectory & directory_;
   Condition condition_;
   Valen::Linux::Worker & worker_;
   std::shared_ptr< Content > const content_; // the worker's, after read()
   Settings::EntityChanges changes_;          // since the last write began
   bool writing_ = false;
   std::vector< Done > waiting_; // for what is being written
   std::vector< Done > next_;    // for `changes_`
   Gantry::Timer timer_;
};

} // namespace Valend
