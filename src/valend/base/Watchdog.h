// Service manager watchdog (sd_watchdog_enabled: $WATCHDOG_USEC and $WATCHDOG_PID): reports that the
// main loop is alive. Does nothing when the watchdog is not enabled.
#pragma once

#include "platform/gantry/Timer.h"

#include <optional>

namespace Valend {

class Watchdog {
 public:
   explicit Watchdog( Quill::Ptr< Gantry::TaskScheduler > const & scheduler );
   Watchdog( Watchdog const & ) = delete;
   Watchdog & operator=( Watchdog const & ) = delete;

   // Half the timeout of the service manager; no value when the watchdog is not enabled.
   std::optional< Gantry::Time > period() const noexcept { return period_; }

 private:
   void tell();

   std::optional< Gantry::Time > const period_;
   Gantry::Timer timer_;
};

} // namespace Valend
