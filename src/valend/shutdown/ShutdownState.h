// Where a shutdown stands: its phase, until when it may take, its record and the place of its link. Each phase is in
// the journal before it begins.
#pragma once

#include "platform/gantry/Timer.h"
#include "settings/Config.h"
#include "valend/base/Conditions.h"
#include "valend/kernel/LinkPort.h"
#include "valend/shutdown/DelayWatch.h"
#include "valend/shutdown/Journal.h"
#include "valend/speakers/SpeakerPort.h"
#include "valend/store/Store.h"

#include <functional>
#include <optional>
#include <string>

namespace Valend {

class Shutdown;

// What a shutdown works with. All must outlive it.
struct ShutdownSurroundings {
   Store & store;
   Settings::Config const & config; // the active one
   LinkPort & port;
   SpeakerPort & speakers;
   Quill::Ptr< Gantry::TaskScheduler > scheduler;
   Journal & journal;
   Conditions & conditions;
   Quill::Ptr< DelayWatch > delayWatch;
   std::function< void( LinkPlace const & place ) > linkSetDown; // by a shutdown
   std::function< void( LinkPlace const & place ) > linkSetUp;   // the same
   std::function< void( Shutdown & ) > ended;                    // called before the observers
};

class ShutdownState {
 public:
   static constexpr Gantry::Time noDeadline = Gantry::Time::max();

   // Of one that is requested now. `timedOut` is called by the timer.
   ShutdownState( ShutdownSurroundings const & surroundings,
                  Settings::InterfaceConfig const & interface, Request request,
                  std::function< void() > timedOut );
   // Of one of the previous run; in its phase, until enter() is called.
   ShutdownState( ShutdownSurroundings const & surroundings, JournalEntry entry,
                  std::function< void() > timedOut );

   ShutdownSurroundings const & surroundings() const noexcept { return surroundings_; }
   Gantry::Time now() const noexcept { return surroundings_.scheduler->now(); }

   // Records the phase, and runs the timer at its deadline.
   void enter( Phase phase, Gantry::Time deadline );
   Phase phase() const noexcept { return entry_.phase; }
   // Whether the deadline of the phase is over. Meaningless in those that have none.
   bool late() const noexcept { return now() >= deadline_; }
   // Another deadline; the timer is not changed.
   void deadlineIs( Gantry::Time deadline ) noexcept { deadline_ = deadline; }
   // Runs the timer earlier than at the deadline, or not at all.
   void lookAgain( std::chrono::milliseconds after ) { timer_.start( after ); }
   void lookNoMore() { timer_.stop(); }

   // When the link is held, or was; nothing before that.
   std::optional< Hold > const & hold() const noexcept { return hold_; }
   void holdIs( Hold hold ) { hold_ = hold; }
   // How long it has been held.
   std::chrono::milliseconds held() const;
   // The same: "120 ms into the delay".
   std::string intoDelay() const;

   ShutdownRecord & record() noexcept { return entry_.record; }
   ShutdownRecord const & record() const noexcept { return entry_.record; }
   void note( std::string const & why ) { entry_.record.note( why ); }
   // The speakers that are muted now, or were when valend died.
   std::vector< SpeakerIdentity > const & muted() const noexcept { return entry_.muted; }
   void mutedAre( std::vector< SpeakerIdentity > muted ) { entry_.muted = std::move( muted ); }
   U64 id() const noexcept { return entry_.id; } // in the journal
   // Since the request, restarts included.
   std::chrono::milliseconds total() const;

   LinkPlace const & place() const noexcept { return entry_.record.place; }
   // The configuration may have given the interface another device or VRF since the request. False when
   // the interface is gone, and its device belongs to another one now.
   bool updatePlace();
   // After a restart, when the device is first seen: what happened to the link while valend was not running; empty
   // when nothing did.
   std::string changeSinceRestart();

 private:
   void placeIs( LinkPlace const & place );

   ShutdownSurroundings const & surroundings_;
   JournalEntry entry_;         // its hold is on the machine's clock
   std::optional< Hold > hold_; // the same on the scheduler's
   Gantry::Time deadline_{};
   bool markToCheck_ = false; // the device was not seen since the restart
   Gantry::Timer timer_;
};

} // namespace Valend
