// Keeps a hash with the status of each interface in the outbox: "status:INTERFACE".
//
// Follows a StatusModel of its own while it has an outbox, and writes what has changed, in slices. Remaining times are
// left out, which would change all the time: the time at which a link is to go down says the same.
#pragma once

#include "database/Outbox.h"
#include "valend/report/StatusModel.h"

#include <deque>
#include <functional>
#include <map>
#include <string>

namespace Valend {

class StatusWriter {
 public:
   // Milliseconds since 1970.
   using Clock = std::function< S64() >;

   // All must outlive this.
   StatusWriter( Store const & store, Feeder const & feeder, StatusReport const & report,
                 Quill::Ptr< Gantry::TaskScheduler > scheduler, Gantry::WorkQueue & work,
                 Clock clock = realClock );

   // Writes to `outbox`, which may be null for none. `whole` is called once, from the loop, when the status of all
   // interfaces is in it.
   void outboxIs( Database::Outbox * outbox, std::function< void() > whole = nullptr );

   // Something of the interface has changed that its StatusModel notices only when it looks at all of them: its frames.
   void changed( std::string const & interface ) { model_.changed( interface ); }
   // The last request of the interface that was acted on, and what has become of it. Two empty texts forget it.
   void resultIs( std::string const & interface, std::string const & id,
                  std::string const & result );

 private:
   struct Result {
      std::string id;
      std::string text;
   };

   static S64 realClock();
   void news();
   void workLater();
   void work();
   void write( std::string const & interface );
   Database::Fields fieldsOf( std::string const & interface );
   std::string heldUntil( std::string const & interface, Json const & remainingMs );

   Clock const clock_;
   StatusModel model_;
   Slices slices_;
   Database::Outbox * outbox_ = nullptr;
   std::function< void() > whole_;
   std::map< std::string, Result > results_;  // by interface
   std::map< std::string, S64 > heldUntilMs_; // since 1970, by interface
   std::deque< std::string > stale_;          // to be written
   U64 seen_ = 0;                             // the last change of the model that is in `stale_`
   bool working_ = false;                     // it is posted
};

} // namespace Valend
