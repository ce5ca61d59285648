// The methods that answer again and again, or once something has happened: Watch, WatchStatus and
// Wait.
//
// A client that takes its answers slowly gets fewer of them, each with the newest state: at most one
// waits for it at a time.
#pragma once

#include "valend/api/Method.h"
#include "valend/api/Parts.h"
#include "valend/report/StatusReport.h"
#include "valend/store/StoreWatch.h"

#include <list>

namespace Valend {

class WatchMethods final : public MethodGroup {
 public:
   // How often remaining times and counters are looked at, change or not.
   static constexpr std::chrono::milliseconds statusPeriod{ 250 };
   // When a client is looked at again that has not taken its last answer.
   static constexpr std::chrono::milliseconds slowPeriod{ 50 };
   // The longest that Wait waits.
   static constexpr std::chrono::milliseconds maxTimeout = std::chrono::hours( 24 );

   enum class Until : U8 { ready, up, down, idle };
   friend constexpr auto enumTexts( Until ) {
      return std::to_array< EnumText< Until > >( { { Until::ready, "ready" },
                                                   { Until::up, "up" },
                                                   { Until::down, "down" },
                                                   { Until::idle, "idle" } } );
   }

   // Both must outlive this.
   WatchMethods( Parts const & parts, StatusReport const & report )
       : parts_( parts ), report_( report ) {}

   std::vector< Method > methods() override;
   void clientGone( U64 client ) override;

   // Something has changed of which the store does not notify.
   void changed();
   std::size_t count() const noexcept { return watches_.size(); }

 private:
   struct One {
      U64 client;
      std::unique_ptr< StoreWatch > watch;
   };
   using Looked = StoreWatch::Looked;

   void watch( Call const & call, std::string const & path );
   void watchStatus( Call const & call, std::optional< std::string > const & interface );
   void wait( Call const & call, std::string const & interface, Until until,
              std::optional< U64 > timeoutMs );

   bool answerIfMet( Call const & call, std::string const & interface, Until until );
   void add( Call const & call, StoreWatch::Look look );
   void visitStatus( StoreVisits & visits ) const;
   Json interfaces( std::optional< std::string > const & wanted ) const;

   Parts const & parts_;
   StatusReport const & report_;
   std::list< One > watches_;
};

} // namespace Valend
