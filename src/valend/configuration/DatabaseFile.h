// Keeps the last valid entities of a database in the file "database" of the state directory, for a start without the
// server.
//
// A worker thread writes the file as a whole, at most once in a second. No function throws. While it cannot be
// written, the condition "last-database" is raised.
#pragma once

#include "linux/Worker.h"
#include "platform/gantry/Timer.h"
#include "settings/Overlay.h"
#include "valend/base/Conditions.h"
#include "valend/base/StateDirectory.h"

#include <chrono>
#include <map>
#include <memory>
#include <string>

namespace Valend {

class DatabaseFile {
 public:
   // Between two writes.
   static constexpr std::chrono::seconds pause{ 1 };
   // When it tries again after an error.
   static constexpr std::chrono::seconds retryPeriod{ 60 };

   // Without a state directory it keeps nothing. All must outlive this; `worker` runs what is left to be written at the
   // end.
   DatabaseFile( StateDirectory & directory, Conditions & conditions, Valen::Linux::Worker & worker,
                 Quill::Ptr< Gantry::TaskScheduler > scheduler );
   ~DatabaseFile();
   DatabaseFile( DatabaseFile const & ) = delete;
   DatabaseFile & operator=( DatabaseFile const & ) = delete;

   // What the entities are of: the server, without a password, and the prefix.
   static std::string originOf( std::string const & server, std::string const & prefix );
   // From now on, what is kept is of `origin`.
   void originIs( std::string const & origin );
   // What the previous run kept, if it was of this origin. It is kept no longer unless it is told again. Waits for the disk:
   // call it once, at the start.
   Settings::Entities read();

   using EntitiesPtr = std::shared_ptr< Settings::Entities const >;
   using FieldsPtr = std::shared_ptr< Settings::Fields const >;
   // Keeps these entities of the configuration. Returns at once.
   void configIs( EntitiesPtr config );
   // Keeps these frames; null: none.
   void framesAre( std::string const & key, FieldsPtr fields );

 private:
   struct Content;
   // Since the last write.
   struct Changes {
      EntitiesPtr config; // null: as before
      std::map< std::string, FieldsPtr > frames;
   };

   void changed();
   void start();
   void written( std::string const & error );

   StateDirectory & directory_;
   Condition condition_;
   Valen::Linux::Worker & worker_;
   std::shared_ptr< Content > const content_; // the worker's
   std::string origin_;
   Changes changes_;
   bool due_ = false; // there is something to write
   bool writing_ = false;
   Gantry::Timer timer_;
};

} // namespace Valend
