// The speakers on the devices of interfaces: what they said last, muting them, and sending again what they said.
//
// A filter at the egress of each device (Attaching.h) copies their frames, and drops them while they are muted. While
// a device has none, its goodbyes are sent, but do not last: the daemon that runs on it takes them back with its next
// frame; and nothing is learned there.
#pragma once

#include "egress/Copies.h"
#include "linux/PacketEndpoint.h"
#include "valend/speakers/Attaching.h"
#include "valend/speakers/Greetings.h"
#include "valend/speakers/Memberships.h"
#include "valend/speakers/Muting.h"
#include "valend/speakers/Overload.h"
#include "valend/speakers/SpeakerPort.h"
#include "valend/speakers/SpeakerTable.h"

namespace Valend {

class Speakers final : public SpeakerPort, private Attaching::Observer {
 public:
   // Called from the loop when the goodbyes that can be learned on a device have changed.
   using Changed = std::function< void( LinkPlace const & place ) >;

   // All must outlive this. Raises the condition "mute" while a device has no filter, and those of Overload.h.
   Speakers( Valen::Linux::EventLoop & loop, Valen::Linux::NetNsDirectories const & directories,
             Attaching::IfIndexOf ifIndexOf, Conditions & conditions );
   ~Speakers() override;

   void changedIs( Changed changed ) { changed_ = std::move( changed ); }

   // Which devices have filters.
   Attaching & attaching() noexcept { return attaching_; }
   Attaching const & attaching() const noexcept { return attaching_; }
   SpeakerTable const & table() const noexcept { return table_; }
   Egress::Lost lost() const noexcept { return copies_ ? copies_->lost() : Egress::Lost(); }

   std::string mute( LinkPlace const & place, std::vector< std::string_view > const & goodbyes,
                     std::chrono::milliseconds time ) override;
   std::vector< SpeakerIdentity > muted( LinkPlace const & place ) const override;
   std::string muteAgain( LinkPlace const & place, std::vector< SpeakerIdentity > const & speakers,
                          std::chrono::milliseconds time ) override;
   std::vector< MutedSpeaker > unmute( LinkPlace const & place, bool greet ) override;

 private:
   void loaded( Attaching::Maps maps ) override;
   void attached( LinkPlace const & place, FilteredDevice const & device ) override;
   void lost( LinkPlace const & place, FilteredDevice const & device ) override;

   void read();
   void take( Egress::Copy const & copy );
   void groupsRead( LinkPlace const & place, std::vector< Derivation::Heard > const & said );
   void expire();
   void expireLater();

   // To be muted when their device has a filter.
   struct ToMute {
      std::vector< SpeakerIdentity > speakers;
      Egress::Mutes::Time until;
   };

   Valen::Linux::EventLoop & loop_;
   Changed changed_ = []( auto const & ) {};
   SpeakerTable table_;
   Muting muting_;
   std::map< LinkPlace, ToMute > toMute_; // after a restart
   Greetings greetings_;
   Memberships memberships_;
   std::optional< Egress::Copies > copies_;              // once a filter was loaded
   std::map< std::pair< U32, U32 >, LinkPlace > places_; // that have filters, by filter and index
   Gantry::Timer expiry_;
   Gantry::Time expiryAt_{}; // while it is running
   Overload overload_;
   Attaching attaching_;
};

} // namespace Valend
