// The link of one shutdown while it stays up, in the phases sending, held, heldToDeadline and flushing: its frames are
// sent, the library holds it for the delay, and then the frames leave the socket.
//
// What the events do is in the table of Shutdown.h.
#pragma once

#include "valend/shutdown/FrameSending.h"
#include "valend/shutdown/ObserverList.h"
#include "valend/shutdown/ShutdownState.h"

namespace Valend {

class ShutdownHold {
 public:
   // How long after the delay's end the library may still hold the link.
   static constexpr std::chrono::milliseconds margin{ 500 };
   // How long its frames may take to leave the socket.
   static constexpr std::chrono::milliseconds flushTimeout{ 200 };
   // If valend dies, how long after the delay's end the muted speakers are heard again.
   static constexpr std::chrono::milliseconds muteMargin{ 1000 };

   // Both must outlive this.
   ShutdownHold( ShutdownState & state, ObserverList & observers );

   InterfaceDelay const & delay() const noexcept { return delay_; }

   // Each returns whether the link is to be set down now.
   bool sendFrames(); // and holds the link
   bool libraryChanged();
   bool flush(); // begins to, or looks again

   // After a restart: the speakers that were muted are muted for the rest of the shutdown.
   void muteAgain();

   // The shutdown ends: the speakers that were muted are heard again.
   //   linkStaysUp   what they said last is sent again
   void end( bool linkStaysUp );

   // How long the link is still held; nothing when it is not.
   std::optional< std::chrono::milliseconds > remaining() const;

 private:
   void mute( std::vector< QueuedFrame > const & queued, std::set< U32 > const & refused );
   std::chrono::milliseconds muteTime() const;
   bool beginHold();
   bool readinessLost();

   ShutdownState & state_;
   ObserverList & observers_;
   InterfaceDelay const delay_;
   std::optional< LinkPlace > mutedAt_;
   std::string whyNotAgain_; // after a restart: why they were not muted at once
   Quill::Ptr< Valen::Status::IntfStatus const > status_; // the entry by which the library holds it
};

} // namespace Valend
