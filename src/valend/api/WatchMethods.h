// The calls that are answered again and again, or once something has happened: Watch, WatchStatus
// and Wait.
//
// A client that takes its answers slowly gets fewer of them, each with the newest state: at most one
// waits for it at a time.
#pragma once

#include "valend/report/StatusReport.h"
#include "valend/store/StoreWatch.h"
#include "varlink/Call.h"

#include <list>

namespace Valend {

class WatchMethods {
 public:
   // The state of a link that held remaining times and counters are looked at by, change or not.
   static constexpr std::chrono::milliseconds statusPeriod{ 250 };
   // When a client is looked at again that has not taken its last answer.
   static constexpr std::chrono::milliseconds slowPeriod{ 50 };

   // All must outlive the watches.
   WatchMethods( Store & store, StatusReport const & report, Feeder const & feeder,
                 Quill::Ptr< Gantry::TaskScheduler > scheduler, Gantry::WorkQueue & work );

   // Answers with what stands at `path`, now and whenever it has changed; null when nothing does
   // any more.
   void watch( std::shared_ptr< Varlink::Call > call, std::string const & path );
   // Answers with all interfaces, or one, and then with those that have changed.
   void watchStatus( std::shared_ptr< Varlink::Call > call,
                     std::optional< std::string > interface );

   enum class Until : U8 { ready, up, down, idle };
   // Answers with the interface once it is so; with the error TimedOut when that takes longer than
   // `patience` (may be none).
   void wait( std::shared_ptr< Varlink::Call > call, std::string const & interface, Until until,
              std::optional< std::chrono::milliseconds > patience );

   // Something has happened that the store does not tell.
   void changed();
   void clientGone( U64 client );
   std::size_t count() const noexcept { return watches_.size(); }

 private:
   struct One {
      U64 client;
      std::unique_ptr< StoreWatch > watch;
   };

   void add( std::shared_ptr< Varlink::Call > const & call, StoreWatch::Look look );
   void visitStatus( StoreVisits & visits ) const;
   Json interfaces( std::optional< std::string > const & wanted ) const;

   Store & store_;
   StatusReport const & report_;
   Feeder const & feeder_;
   Quill::Ptr< Gantry::TaskScheduler > const scheduler_;
   Gantry::WorkQueue & work_;
   std::list< One > watches_;
};

} // namespace Valend
