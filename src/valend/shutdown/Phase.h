// The phases of a shutdown: the states of Shutdown's state machine, each recorded in the journal.
//
//   requested -> sending -> held -> flushing -> settingDown -> ended
//
// A shutdown without a delay goes from requested to settingDown. Flushing is left out if no frame is
// outstanding when the delay is over. A shutdown that is enabled when its link is
// down already goes to settingUp, and one that is enabled earlier ends. After a restart of valend it
// continues in waiting, heldToDeadline, settingDown or settingUp (Recovery.h).
#pragma once

#include "platform/quill/Int.h"
#include "valend/base/EnumTexts.h"

namespace Valend {

// In the order in which they follow one another.
enum class Phase : U8 {
   requested,      // nothing was done yet
   waiting,        // after a restart: until the interface is ready
   sending,        // the library is sending the frames
   held,           // the frames are out; the library holds the link until it clears `delayed`
   heldToDeadline, // the same, until the delay's own end: the library no longer holds it, or too long
   flushing,       // the delay is over; frames leave the socket
   settingDown,    // the link is being set down
   settingUp,      // it was enabled meanwhile: the link is being set up again
   ended,
};

// As in the journal.
constexpr auto enumTexts( Phase ) {
   return std::to_array< EnumText< Phase > >( {
      { Phase::requested, "requested" },
      { Phase::waiting, "waiting" },
      { Phase::sending, "sending" },
      { Phase::held, "held" },
      { Phase::heldToDeadline, "held-to-deadline" },
      { Phase::flushing, "flushing" },
      { Phase::settingDown, "setting-down" },
      { Phase::settingUp, "setting-up" },
      { Phase::ended, "ended" },
   } );
}
static_assert( hasEveryValue( Phase::ended ) );

// Whether the link is held in this phase.
constexpr bool isHeld( Phase phase ) noexcept {
   return phase == Phase::held || phase == Phase::heldToDeadline;
}

} // namespace Valend
