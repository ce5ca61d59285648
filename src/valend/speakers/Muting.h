// Mutes speakers from their goodbye to the end of the shutdown: see egress/Mutes.h.
#pragma once

#include "egress/Mutes.h"
#include "platform/gantry/Timer.h"
#include "valend/kernel/LinkPort.h"
#include "valend/speakers/Attaching.h"
#include "valend/speakers/SpeakerPort.h"

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Valend {

class Muting {
 public:
   // While valend lives, a mute that would end is renewed until this long from now.
   static constexpr std::chrono::milliseconds lease{ 1500 };

   struct Speaker {
      Egress::Speaker id;
      std::string name; // who it is; empty if valend cannot tell
      bool muted = false;
      U64 heldBack = 0; // before the last renewal
   };

   explicit Muting( Quill::Ptr< Gantry::TaskScheduler > scheduler );
   ~Muting();
   Muting( Muting const & ) = delete;
   Muting & operator=( Muting const & ) = delete;

   // Call this before mute().
   void mapIs( Valen::Linux::Fd mutes ) { mutes_.emplace( std::move( mutes ) ); }

   // Whether a speaker of any of these goodbyes can be muted.
   static bool anyCanBeMuted( std::vector< std::string_view > const & goodbyes );

   // As SpeakerPort::mute().
   std::string mute( LinkPlace const & place, FilteredDevice const & device,
                     std::vector< std::string_view > const & goodbyes,
                     std::chrono::milliseconds time );
   // As SpeakerPort::muted() and SpeakerPort::muteAgain().
   std::vector< SpeakerIdentity > muted( LinkPlace const & place ) const;
   std::string muteAgain( LinkPlace const & place, FilteredDevice const & device,
                          std::vector< SpeakerIdentity > const & speakers,
                          Egress::Mutes::Time until );
   // Ends that, and returns the speakers that were muted since the first mute() or muteAgain().
   std::vector< Speaker > unmute( LinkPlace const & place );
   // The device has no filter any more.
   void deviceLost( LinkPlace const & place );

 private:
   struct Device {
      std::vector< Speaker > speakers;
      Egress::Mutes::Time until;
   };

   // `each` names the speakers to a function that mutes one. Returns why that failed; else empty.
   template < class Each > std::string muteOn( Device & device, Each const & each );
   // `name` is called only if it is not known.
   template < class Name >
   void muteOne( Device & device, Egress::Speaker const & id, Name const & name );
   void unmuteOn( Device & device );
   void renew();

   std::optional< Egress::Mutes > mutes_;
   std::map< LinkPlace, Device > devices_;
   Gantry::Timer renewal_;
};

} // namespace Valend
