// Which interfaces a reload of the configuration has made not ready: their shutdowns would not be delayed
// any more. They are looked at in slices, because there may be many.
#pragma once

#include "platform/gantry/Timer.h"
#include "valend/base/Slices.h"
#include "valend/report/StatusReport.h"

#include <chrono>
#include <functional>
#include <memory>
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
                  Quill::Ptr< Gantry::TaskScheduler > scheduler, Gantry::WorkQueue & work );
   ReadinessLoss( ReadinessLoss const & ) = delete;
   ReadinessLoss & operator=( ReadinessLoss const & ) = delete;

   // Steps that make `names` the interfaces that are ready now. `names` must live as long as the step.
   Slices::Step readyInto( std::vector< std::string > & names ) const;
   // Calls `done`, in a later turn of the loop, with those of `before` that are configured and not ready: at once when
   // there are none, else when all are ready again, at the latest after `settle`.
   void reportSince( std::vector< std::string > before, Done done );

 private:
   struct Check {
      std::vector< std::string > names; // that are looked at in this pass
      std::size_t next;                 // of them
      std::vector< std::string > lost;  // those of this pass
      std::vector< Lost > reasons;
      Done done;
      std::chrono::milliseconds left;
   };
   using CheckPtr = std::shared_ptr< Check >;

   bool isLost( std::string const & name ) const;
   void pass( CheckPtr const & check );
   void passEnded( CheckPtr const & check );
   bool reasonNext( Check & check ) const;

   Feeder const & feeder_;
   StatusReport const & report_;
   std::vector< CheckPtr > checks_; // between two passes
   Slices slices_;
   Gantry::Timer timer_;
};

} // namespace Valend
