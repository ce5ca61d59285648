// Takes up the shutdowns of the previous run: what the journal recorded decides where each
// continues.
//
//   recorded as               it continues
//   requested                 waiting for the interface, then as usual
//   waiting, sending          the same, but sends to the first deadline, and the record says so:
//                             which frames left before the restart is not known
//   held, held-to-deadline    held to the recorded deadline; no frames are sent again. The speakers that
//                             were muted are muted again
//   flushing, setting-down    setting the link down
//   setting-up                setting the link up
//   ended                     not at all: it is history
//   any, of another boot      not at all: it ends as rebooted, as the links were reset
//   any, long ago             not at all: it ends as expired, as the link may be used again
//
//   any, and the interface    not at all: it ends as expired, as its end could not be recorded
//   has a newer entry
//
// One that waits and was recorded as sending once keeps that in its `hold`.
#pragma once

#include "platform/gantry/TaskScheduler.h"
#include "valend/kernel/LinkPort.h"
#include "valend/shutdown/InterfaceDelay.h"
#include "valend/shutdown/Journal.h"

#include <string>
#include <vector>

namespace Valend {

// What the previous run left.
struct Recovered {
   std::vector< JournalEntry > unfinished; // to be finished, oldest first
   std::vector< JournalEntry > ended;      // ended by this start without touching the link
   History history;                        // of the previous run
};

// How long after its delay's end (or its request, if the delay had not begun) a shutdown is still
// finished. Its link stayed up although valend did not hold it, and by now it may be used again.
// The service manager restarts valend in 0.2 s; the bound covers a slow start, or several crashes.
constexpr std::chrono::seconds expiry{ 10 };

// Reads the journal, and ends in it what another boot left unfinished, or what is expired.
Recovered recover( Journal & journal );

// The phase in which a shutdown continues that was recorded in `recorded`.
Phase phaseAfterRestart( Phase recorded ) noexcept;

// A recorded hold on a clock that shows `now` when the machine's shows `uptime`. Its deadline is no
// later than the longest delay from now, whatever was recorded.
Hold holdAfterRestart( Hold const & recorded, std::chrono::nanoseconds uptime, Gantry::Time now );

// What happened to a link since it was marked: "link set up since valend stopped"; empty when nothing
// did that the kernel tells.
std::string changeSince( LinkMark const & mark, LinkDevice const & device );

// What a shutdown that waits for its interface finds.
struct InterfaceCheck {
   bool settled = false;    // there is nothing more to wait for
   std::string whyNoFrames; // the link is up, but its frames cannot be sent; else empty
};
// Right after a start the devices are not known yet, and so no interface is ready.
InterfaceCheck checkInterface( InterfaceDelay const & delay, LinkPort const & port,
                               LinkPlace const & place );

} // namespace Valend
