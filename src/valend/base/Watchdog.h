// Tells the service manager that the loop turns, as often as it wants to hear it (sd_watchdog: the
// environment's WATCHDOG_USEC and WATCHDOG_PID). Silent when nobody listens.
#pragma once

#include "platform/gantry/Timer.h"

#include <optional>

namespace Valend {

class Watchdog {
 public:
   explicit Watchdog( Quill::Ptr< Gantry::TaskScheduler > const & scheduler );
   Watchdog( Watchdog const & ) = delete;
   Watchdog & operator=( Watchdog const & ) = delete;

   // How often it tells: twice in the time that the manager waits. Nothing when it is silent.
   std::optional< Gantry::Time > period() const noexcept { return period_; }

 private:
   void tell();

   std::optional< Gantry::Time > const period_;
   Gantry::Timer timer_;
};

} // namespace Valend
