// Service manager notification (sd_notify protocol). Nothing here waits for the service manager.
#pragma once

#include "platform/gantry/Backoff.h"
#include "platform/gantry/Timer.h"

#include <string>
#include <vector>

namespace Valend {

// Sends `state` ("READY=1") to the socket in $NOTIFY_SOCKET. Returns whether it was sent; without that
// variable nothing is. If the service manager does not read, an UnsentNotifications keeps it.
bool notifyManager( std::string const & state ) noexcept;

// Keeps the notifications that the service manager did not read in time, and sends them later, in order.
// Of each kind ("READY", "STATUS") it keeps the newest. "WATCHDOG=1" is not kept: a late one would be a lie.
class UnsentNotifications {
 public:
   // There is at most one in the process.
   explicit UnsentNotifications( Quill::Ptr< Gantry::TaskScheduler > const & scheduler );
   ~UnsentNotifications(); // tries once more
   UnsentNotifications( UnsentNotifications const & ) = delete;
   UnsentNotifications & operator=( UnsentNotifications const & ) = delete;

   std::vector< std::string > const & states() const noexcept { return states_; }

 private:
   friend bool notifyManager( std::string const & state ) noexcept;

   void keep( std::string const & state );
   void send();

   std::vector< std::string > states_;
   Gantry::Backoff pause_;
   Gantry::Timer timer_;
};

} // namespace Valend
