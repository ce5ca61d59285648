// One shutdown, from the asking to the end.
//
//   asked -> sending -> held -> flushing -> lowering -> ended
//
// Raises the interface's adminShutdownDelayed flag, upon which the library sends the frames and
// holds `delayed`. When the library clears that, and the frames have left the socket, sets the link
// down. It fails open: whatever happens to the library's side, the link goes down no later than the
// delay plus a margin, and the record says why.
//
// `delayed` that goes away together with its status entry (a VRF that flaps, a device that is made
// anew) is not the end of the delay: the link is held until its own deadline. The feature or the
// interface's support switched off is.
//
// The link is that of the device which the configuration gives the interface at that moment.
//
// Each phase is in the journal before it begins. A shutdown that an agent before this one began goes
// on where it stood: what is recorded as sent is not sent again, for that the flag stays down and
// the link is held by the deadline alone; what is not is sent as soon as the interface is ready.
#pragma once

#include "platform/gantry/Timer.h"
#include "settings/Config.h"
#include "valend/kernel/LinkPort.h"
#include "valend/shutdown/DelayWatch.h"
#include "valend/shutdown/Journal.h"
#include "valend/store/Store.h"

#include <vector>

namespace Valend {

class Shutdown final {
 public:
   // How long after the delay's end the library may still hold the link.
   static constexpr std::chrono::milliseconds margin{ 500 };
   // How long frames may take to leave the socket.
   static constexpr std::chrono::milliseconds flushPatience{ 200 };
   // How long a device is waited for whose index was just changing, and a kernel that refuses.
   static constexpr std::chrono::milliseconds devicePatience{ 300 };
   // How long after its start the agent waits for the interface of a shutdown that was begun before.
   static constexpr std::chrono::milliseconds startPatience{ 2000 };

   // What a shutdown works with. All must outlive it.
   struct Surroundings {
      Store & store;
      Settings::Config const & config; // the one in force
      LinkPort & port;
      Quill::Ptr< Gantry::TaskScheduler > scheduler;
      Journal & journal;
      Quill::Ptr< DelayWatch > delayWatch;
      std::function< void( LinkPlace const & place ) > linkSetDown; // by this shutdown
      std::function< void( Shutdown & ) > ended; // before the observers hear of it
   };

   // One that is asked for now, by `by`.
   Shutdown( Surroundings const & surroundings, Settings::InterfaceConfig const & interface,
             std::string by );
   // One that was begun before.
   Shutdown( Surroundings const & surroundings, JournalEntry entry );
   Shutdown( Shutdown const & ) = delete;
   Shutdown & operator=( Shutdown const & ) = delete;

   // From the loop; no effect the second time.
   void begin();
   // The link stays up: calls the shutdown off.
   void enabled( std::string const & by );
   // Somebody else set the link down.
   void wentDown();
   // The library may have let go.
   void statusChanged();

   // Tells the observer the last step, and the further ones as they come.
   void join( ShutdownObserver observer );

   // How long the link is still held; nothing when it is not.
   std::optional< std::chrono::milliseconds > remaining() const;
   JournalEntry::Phase phase() const noexcept { return entry_.phase; }
   LinkPlace const & place() const noexcept { return entry_.place; }
   ShutdownRecord const & record() const noexcept { return entry_.record; }

 private:
   using Phase = JournalEntry::Phase;
   using Ending = ShutdownRecord::Ending;

   void enter( Phase phase );
   void resume();
   void await();
   void go();
   bool follow();
   void raise( Quill::Ptr< Valen::Status::IntfStatus > status );
   void send();
   void hold();
   std::vector< std::string > agentsInOrder() const;
   void countRefused( std::vector< std::string > const & agents );
   std::string lostForGood() const;
   void timerRan();
   void flush();
   void linkDown();
   void notSetDown( Quill::ErrnoException const & e );
   void lowerFlag();
   void end( Ending ending, std::string const & why );
   void note( std::string const & why );
   void step( ShutdownStep next );
   std::string into() const;
   Gantry::Time now() const noexcept { return surroundings_.scheduler->now(); }

   Surroundings const & surroundings_;
   JournalEntry entry_;
   Corvid::IntfId const intfId_;
   std::vector< ShutdownObserver > observers_;
   std::optional< ShutdownStep > lastStep_;
   Quill::Ptr< Valen::Status::IntfStatus const > status_; // the entry through which it is held
   Gantry::Time sentAt_{};                                // the scheduler's times
   Gantry::Time heldUntil_{};
   Gantry::Time patienceEnd_{};
   bool begun_ = false;
   bool awaiting_ = false; // the interface, after the agent's start
   bool ownClock_ = false; // the library does not hold it, or for too long
   Gantry::Timer timer_;
};

} // namespace Valend
