// Which interfaces a reload of the configuration has made not ready: their shutdowns would not be delayed
// any more.
#pragma once

#include "platform/gantry/Timer.h"
#include "valend/report/StatusReport.h"

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace Valend {

class ReadinessLoss {
 public:
   struct Lost {
      std::string interface;
      std::string why; // "no frames"
   };
   using Done = std::function< void( std::vector< Lost > const & lost ) >;

   // How long an interface may take to be ready again after its device or namespace was changed, and how
   // often it is looked at meanwhile.
   static constexpr std::chrono::milliseconds settle{ 500 };
   static constexpr std::chrono::milliseconds period{ 10 };

   // All must outlive this.
   ReadinessLoss( Feeder const & feeder, StatusReport const & report,
                  Quill::Ptr< Gantry::TaskScheduler > scheduler );
   ReadinessLoss( ReadinessLoss const & ) = delete;
   ReadinessLoss & operator=( ReadinessLoss const & ) = delete;

   // The interfaces that are ready now.
   std::vector< std::string > ready() const;
   // Calls `done` with those of `before` that are configured and not ready: at once when there are none,
   // else when all are ready again, at the latest after `settle`.
   void reportSince( std::vector< std::string > before, Done done );

 private:
   struct Check {
      std::vector< std::string > lost; // so far
      Done done;
      std::chrono::milliseconds left;
   };

   void removeReady( std::vector< std::string > & names ) const;
   std::vector< Lost > withReasons( std::vector< std::string > const & names ) const;
   void look();

   Feeder const & feeder_;
   StatusReport const & report_;
   std::vector< Check > checks_;
   Gantry::Timer timer_;
};

} // namespace Valend
