// One shutdown, from the request to its end: a state machine whose states are the phases of Phase.h.
//
// Each phase has one deadline, after which the timer runs; "look again" means that it runs more often
// meanwhile. "-" is no effect.
//
//   phase           deadline             begin          library changed  timer
//   requested       none                 check the link -                -
//   waiting         now + readyTimeout   look again     -                look again; at the deadline
//                                                                        check the link
//   sending         hold's end + margin  -              -                "sending timed out": set the
//                                                                        link down
//   held            hold's end + margin  -              (1)              "the delay did not end in
//                                                                        time": flush
//   heldToDeadline  hold's end           (2)            (1)              flush
//   flushing        now + flushTimeout   -              -                look again; at the deadline
//                                                                        set the link down
//   settingDown     (3)                  set the link   -                set the link down
//                                        down
//   settingUp       now + downTimeout    set the link   -                set the link up
//                                        up
//   ended           none                 -              -                -
//
//   check the link   already down or no device: end; interface not ready: set the link down; else
//                    send the frames, then hold the link
//   flush            nothing is outstanding: set the link down, and never be in the phase flushing
//   set the link down, up
//                    request the change from the port, and wait for its answer, however long: the
//                    kernel does it when it can, and no timer runs meanwhile
//   answer           settingDown: end as down; device missing: try again, and at the deadline end as
//                    noDevice; else try again, after growing pauses, until the kernel does it or the
//                    operator enables. After retryNotice observers are told, and the condition
//                    "link/INTERFACE" is raised until the end
//                    settingUp: the link is down: set it up; it is up: end as aborted; an error: try
//                    again, and at the deadline end as down
//   (1)              `delayed` cleared: flush; status entry gone or replaced: flush if the interface
//                    cannot become ready again, else hold to the deadline
//   (2)              after a restart of valend, here and in waiting and settingDown, when the device is
//                    first seen: end as expired if its link was set up since; the link stays up
//   (3)              of a missing device: downTimeout after it was there last
//   enabled          a change that has not begun is withdrawn. The link is up: end as aborted. It is
//                    down, or the kernel is setting it down: settingUp. In settingUp: joined
//   set down outside valend
//                    held, flushing: noted for the end; else no effect. The kernel reports a link as
//                    down before it deletes or moves its device, and other programs set one down for a
//                    moment to change it: so the hold goes on, and the link is set down at its end
//   an exception     in each phase but the last two: set the link down; the record says why. Repeated
//                    until the deadline: end as failed
//
// It fails open: whatever happens to the library, and whatever is thrown, the link goes down no later
// than the delay plus a margin, and when the kernel sets it down.
//
// What the state of the link is when it is checked, the port asks the kernel, which answers at once; only
// changes take long. What it last reported may be older than a change by valend, and no goodbye may be sent
// on a link that is down already.
//
// A status entry is removed when its VRF flaps or its device is recreated; that does not end the delay.
// Disabling the delay in the configuration does.
//
// The device is the one that the configuration gives the interface at that moment. Each phase is in
// the journal before it begins. Acts from the loop only.
#pragma once

#include "platform/gantry/Backoff.h"
#include "platform/gantry/Timer.h"
#include "settings/Config.h"
#include "valend/base/Conditions.h"
#include "valend/kernel/LinkPort.h"
#include "valend/shutdown/DelayWatch.h"
#include "valend/shutdown/Enabled.h"
#include "valend/shutdown/InterfaceDelay.h"
#include "valend/shutdown/Journal.h"
#include "valend/shutdown/ObserverList.h"
#include "valend/store/Store.h"

namespace Valend {

class Shutdown final {
 public:
   // How long after the delay's end the library may still hold the link.
   static constexpr std::chrono::milliseconds margin{ 500 };
   // How long its frames may take to leave the socket.
   static constexpr std::chrono::milliseconds flushTimeout{ 200 };
   // How long to wait for a device that is missing: one that was just recreated may not have been reported
   // yet. And how long to try to set a link up again.
   static constexpr std::chrono::milliseconds downTimeout{ 300 };
   // After how long those who wait are told that the kernel does not set the link down.
   static constexpr std::chrono::milliseconds retryNotice{ 1000 };
   // How long after a restart the interface may take to become ready, and its device to be there.
   static constexpr std::chrono::milliseconds readyTimeout{ 2000 };

   // What a shutdown works with. All must outlive it.
   struct Surroundings {
      Store & store;
      Settings::Config const & config; // the active one
      LinkPort & port;
      Quill::Ptr< Gantry::TaskScheduler > scheduler;
      Journal & journal;
      Conditions & conditions;
      Quill::Ptr< DelayWatch > delayWatch;
      std::function< void( LinkPlace const & place ) > linkSetDown; // by a shutdown
      std::function< void( LinkPlace const & place ) > linkSetUp;   // the same
      std::function< void( Shutdown & ) > ended;                    // called before the observers
   };

   // One that is requested now.
   Shutdown( Surroundings const & surroundings, Settings::InterfaceConfig const & interface,
             Request request );
   // One of the previous run that was not finished.
   Shutdown( Surroundings const & surroundings, JournalEntry entry );
   Shutdown( Shutdown const & ) = delete;
   Shutdown & operator=( Shutdown const & ) = delete;

   // The events of the table. Nothing is thrown by them.
   void begin(); // harmless when repeated
   void deviceSeen();
   void libraryChanged();
   void setDownOutside();
   // `observer` (may be empty) is called at the end, which may be now.
   void enabled( std::string const & requester, EnableObserver observer );
   // The interface may have another device now.
   void configChanged();

   // Calls the observer with the last step, and with the further ones as they come. One that throws
   // is reported as a fault and noted in the record, and does not end the shutdown.
   void join( ShutdownObserver observer ) {
      observers_.join( std::move( observer ), entry_.record );
   }

   // How long the link is still held; nothing when it is not.
   std::optional< std::chrono::milliseconds > remaining() const;
   Phase phase() const noexcept { return entry_.phase; }
   // Why the kernel does not set the link down, while that is tried again; else empty.
   std::string const & whyRetrying() const noexcept { return whyRetrying_; }
   // Whether the kernel is changing the link at this moment.
   bool changing() const { return request_ && request_->begun(); }
   U64 id() const noexcept { return entry_.id; } // in the journal
   LinkPlace const & place() const noexcept { return entry_.record.place; }
   ShutdownRecord const & record() const noexcept { return entry_.record; }

 private:
   using Ending = ShutdownRecord::Ending;

   template < class Work > void guard( char const * event, Work const & work );
   void failOpen( std::string const & why );
   void enter( Phase phase, Gantry::Time deadline );
   void timedOut();
   void waitForInterface();
   void checkLink();
   void sendAndHold();
   void holdLink();
   void followLibrary();
   void flushSocket();
   void setLinkDown();
   void downAnswered( LinkAnswer const & answer );
   void retry( LinkAnswer const & answer );
   void noteDown( LinkAnswer const & answer );
   void abortUnlessDown();
   void setLinkUp();
   void upAnswered( LinkAnswer const & answer );
   void request( LinkChange change, void ( Shutdown::*answered )( LinkAnswer const & ) );
   bool isDown() const;
   void end( Ending ending, std::string const & why );
   void answerEnablers();
   bool endedAsExpired();
   void placeIs( LinkPlace const & place );
   bool updatePlace();
   void note( std::string const & why ) { entry_.record.note( why ); }
   std::string intoDelay() const;
   Gantry::Time now() const noexcept { return surroundings_.scheduler->now(); }

   Surroundings const & surroundings_;
   InterfaceDelay const delay_;
   JournalEntry entry_;         // its hold is on the machine's clock
   std::optional< Hold > hold_; // the same on the scheduler's
   Gantry::Time deadline_{};    // of the phase; meaningless in those that have none
   bool markToCheck_ = false;   // the device was not seen since the restart
   ObserverList observers_;
   std::vector< EnableObserver > enablers_;
   std::optional< LinkAnswer > notUp_; // settingUp failed so
   bool setUpAgain_ = false;
   std::string setDownOutside_; // when: "120 ms into the delay"
   std::string whyRetrying_;
   std::optional< Gantry::Time > retryingSince_;
   unsigned attempts_ = 0; // to set the link down
   Gantry::Backoff pause_;
   std::optional< Condition > condition_;                 // while it is retried for long
   Quill::Ptr< Valen::Status::IntfStatus const > status_; // the entry by which the library holds it
   Gantry::Timer timer_;
   std::unique_ptr< LinkRequest > request_; // whose answer is awaited
};

} // namespace Valend
