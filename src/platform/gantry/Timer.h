// A one-shot timer that calls a function.
#pragma once

#include "platform/gantry/TaskScheduler.h"

#include <functional>
#include <memory>
#include <string>

namespace Gantry {

// What is not a reactor of the library sets its timers with this. An exception that leaves the work
// goes to the fault sink (platform/quill/Fault.h), with the timer's name.
class Timer {
 public:
   using Work = std::function< void() >;

   // `name` is for faults: "watchdog". `work` may start, stop and destroy the timer.
   Timer( Quill::Ptr< TaskScheduler > scheduler, std::string const & name, Work work );
   ~Timer(); // stops
   Timer( Timer const & ) = delete;
   Timer & operator=( Timer const & ) = delete;

   // Runs the work once, `delay` from now. A running timer is restarted. A delay of zero or less
   // means the next turn of the loop.
   void start( Time delay );
   void stop() noexcept;
   bool running() const noexcept;

 private:
   class Notifiee;
   std::unique_ptr< Notifiee > const notifiee_;
};

} // namespace Gantry
