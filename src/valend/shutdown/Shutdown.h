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

#include "valend/shutdown/ShutdownHold.h"
#include "valend/shutdown/ShutdownLink.h"

namespace Valend {

class Shutdown final {
 public:
   using Surroundings = ShutdownSurroundings;

   // How long after a restart the interface may take to become ready, and its device to be there.
   static constexpr std::chrono::milliseconds readyTimeout{ 2000 };

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
      observers_.join( std::move( observer ), state_.record() );
   }

   // How long the link is still held; nothing when it is not.
   std::optional< std::chrono::milliseconds > remaining() const { return hold_.remaining(); }
   Phase phase() const noexcept { return state_.phase(); }
   // Why the kernel does not set the link down, while that is tried again; else empty.
   std::string const & whyRetrying() const noexcept { return link_.whyRetrying(); }
   // Whether the kernel is changing the link at this moment.
   bool changing() const { return link_.changing(); }
   U64 id() const noexcept { return state_.id(); } // in the journal
   LinkPlace const & place() const noexcept { return state_.place(); }
   ShutdownRecord const & record() const noexcept { return state_.record(); }

 private:
   using Ending = ShutdownRecord::Ending;

   template < class Work > void guard( char const * event, Work const & work );
   void failOpen( std::string const & why );
   void timedOut();
   void answered( LinkAnswer const & answer );
   void waitForInterface();
   void checkLink();
   void flush();
   void setLinkDown();
   void setLinkUp();
   void endIf( ShutdownLink::MaybeOutcome const & outcome );
   void end( Ending ending, std::string const & why );
   bool endedAsExpired();
   Gantry::Time now() const noexcept { return surroundings_.scheduler->now(); }

   Surroundings const & surroundings_;
   ShutdownState state_;
   ObserverList observers_;
   std::vector< EnableObserver > enablers_;
   ShutdownHold hold_;
   ShutdownLink link_;
};

} // namespace Valend
