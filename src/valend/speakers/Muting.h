// Mutes the speakers of an interface from their goodbye to the end of its shutdown: see egress/Mutes.h.
//
// While a device has no filter (Attaching.h), its goodbyes are sent, but do not last: the daemon that runs on it
// takes them back with its next frame.
#pragma once

#include "egress/Mutes.h"
#include "valend/speakers/Attaching.h"
#include "valend/speakers/SpeakerPort.h"

namespace Valend {

class Muting final : public SpeakerPort {
 public:
   // While valend lives, a mute that would end is renewed until this long from now.
   static constexpr std::chrono::milliseconds lease{ 1500 };

   // Both must outlive this. Takes the callbacks of `attaching`.
   Muting( Attaching & attaching, Quill::Ptr< Gantry::TaskScheduler > scheduler );
   ~Muting() override;

   std::string mute( LinkPlace const & place, std::vector< std::string_view > const & goodbyes,
                     std::chrono::milliseconds time ) override;
   std::vector< MutedSpeaker > unmute( LinkPlace const & place ) override;

   // Speakers that are muted at this moment.
   std::size_t muted() const noexcept;

 private:
   struct Speaker {
      Egress::Speaker id;
      U64 heldBack = 0; // before the last renewal
      bool muted = false;
   };
   struct Device {
      std::vector< Speaker > speakers;
      Egress::Mutes::Time until;
   };

   void muteOn( Device & device, FilteredDevice const & filtered,
                std::vector< std::string_view > const & goodbyes );
   void unmuteOn( Device & device );
   void renew();

   Attaching & attaching_;
   std::optional< Egress::Mutes > mutes_; // once a filter was loaded
   std::map< LinkPlace, Device > devices_;
   Gantry::Timer renewal_;
};

} // namespace Valend
