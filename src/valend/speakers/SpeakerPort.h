// What the link controller needs of the speakers on a device, the protocol daemons that send on it beside valend.
// Implemented by Speakers, and by a fake in tests. No function waits for the kernel.
#pragma once

#include "platform/quill/Int.h"
#include "valend/kernel/LinkPort.h"

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

namespace Valend {

// A speaker that was muted.
struct MutedSpeaker {
   std::string protocol; // "lldp", "vrrp"
   std::string name;     // who it is: "virtual router 7 (IPv4)"; empty if valend cannot tell
   U64 heldBack = 0;     // its frames that were dropped meanwhile
   bool greeted = false; // what it said last was sent again
   bool operator==( MutedSpeaker const & ) const = default;
};

// Which speaker is muted, for a restarted valend.
struct SpeakerIdentity {
   std::string protocol;
   U16 vlan = 0;
   std::string identity; // in hexadecimal digits: Egress::identityOf()
   std::string name;     // as MutedSpeaker has it
   bool operator==( SpeakerIdentity const & ) const = default;
};

class SpeakerPort {
 public:
   static constexpr std::size_t mostIdentities = 16;

   virtual ~SpeakerPort() = default;

   // Mutes the speakers of these goodbyes, and no others of the device: what they send does not leave it, so that
   // they do not take their goodbyes back. Returns why that is not possible; empty if it is.
   //   time   after which they are heard again if valend has died; while it lives, they are muted until unmute()
   virtual std::string mute( LinkPlace const & place,
                             std::vector< std::string_view > const & goodbyes,
                             std::chrono::milliseconds time ) = 0;
   // Those that are muted, not more than mostIdentities.
   virtual std::vector< SpeakerIdentity > muted( LinkPlace const & place ) const = 0;
   // After a restart: mutes them as soon as that is possible. Returns why it is not yet; empty if it is.
   virtual std::string muteAgain( LinkPlace const & place,
                                  std::vector< SpeakerIdentity > const & speakers,
                                  std::chrono::milliseconds time ) = 0;
   // Ends that. Returns the speakers that were muted since the first call of mute() or muteAgain().
   //   greet   whether to send again what each said last, for the neighbors that its goodbye has made forget it
   virtual std::vector< MutedSpeaker > unmute( LinkPlace const & place, bool greet ) = 0;
};

} // namespace Valend
