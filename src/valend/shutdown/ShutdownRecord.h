// What valend records of one shutdown, of one goodbye, and of a link that was set down outside.
#pragma once

#include "valend/base/EnumTexts.h"
#include "valend/kernel/LinkPort.h"
#include "valend/shutdown/Request.h"
#include "valend/speakers/SentGoodbyes.h"
#include "valend/speakers/SpeakerPort.h"

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace Valend {

// The frames that one agent had queued, and what became of them.
struct AgentFrames {
   std::string agent;
   U64 sent = 0;                             // accepted by the kernel
   std::map< int, U64 > refused;             // rejected by the kernel, by errno
   std::vector< SentGoodbye > goodbyes = {}; // whose, of those that were accepted
   bool operator==( AgentFrames const & ) const = default;
};

struct ShutdownRecord {
   enum class Ending : U8 {
      running,
      down,        // the link is down
      aborted,     // enabled in time; the link stayed up
      alreadyDown, // it was down before; no frames were sent
      noDevice,    // there is no device to set down
      failed,      // valend itself failed again and again; the link was not set down
      wentDown,    // not a shutdown: the link was set down outside valend, without goodbye frames
      rebooted,    // the machine rebooted meanwhile, which reset its links
      expired,     // valend came back too late to finish it; the link was left unchanged
      goodbye,     // not a shutdown: the frames were sent, and the link stays up
   };

   friend constexpr auto enumTexts( Ending ) {
      return std::to_array< EnumText< Ending > >( {
         { Ending::running, "running" },
         { Ending::down, "down" },
         { Ending::aborted, "aborted" },
         { Ending::alreadyDown, "already-down" },
         { Ending::noDevice, "no-device" },
         { Ending::failed, "failed" },
         { Ending::wentDown, "went-down" },
         { Ending::rebooted, "rebooted" },
         { Ending::expired, "expired" },
         { Ending::goodbye, "goodbye" },
      } );
   }

   // Request::by and `why` of a link that was set down outside valend.
   static constexpr char const * outside = "outside valend";
   static constexpr char const * setDownOutside = "link set down outside valend";

   std::string interface;
   LinkPlace place; // of the interface, by the configuration that had it last
   Request request;
   std::chrono::system_clock::time_point when; // it was requested
   bool withDelay = false;                     // frames were sent and the link was held
   bool resumed = false;                       // valend restarted meanwhile
   U64 sent = 0;                               // frames that the kernel accepted
   U64 failed = 0;                             // frames that it rejected
   std::string failReason;                     // of the last of these
   std::vector< AgentFrames > agents;          // the same by agent, in the order of sending
   std::chrono::microseconds sending{ 0 };     // how long the sending took
   std::chrono::milliseconds held{ 0 };        // since the sending
   std::chrono::milliseconds total{ 0 };       // since the request
   std::vector< MutedSpeaker > muted;          // until the end; each sent its goodbye
   std::string notMuted;                       // why none could be muted; else empty
   U64 unflushedBytes = 0;                     // had not left the machine when the link went down
   Ending ending = Ending::running;
   std::string why; // what did not go as expected, parts separated by "; "; empty when all did
   U64 count = 1;   // how often; more than once only for a link that was set down outside valend
   std::chrono::system_clock::time_point until; // the last time, if it is more than once

   // When it was requested or, if it is more than once, happened last.
   std::chrono::system_clock::time_point last() const noexcept { return count > 1 ? until : when; }
   // "down", "already-down", ...
   char const * endingText() const noexcept { return textOf( ending ); }
   // Whether it is the record of a shutdown: see the endings that are not.
   bool isShutdown() const noexcept {
      return ending != Ending::wentDown && ending != Ending::goodbye;
   }
   // What happened, in a line: "Ethernet1: shutdown by root: 3 frames in 0.2 ms, held 500 ms, link
   // down, total 501 ms".
   std::string summary() const;
   // What became of the speakers: "muted lldp, vrrp (12 frames held back), greeted lldp", "not muted: REASON"; empty
   // if no speaker said goodbye.
   std::string mutedText() const;
   // Adds a part to `why`; an empty one has no effect.
   void note( std::string const & part );

   bool operator==( ShutdownRecord const & ) const = default;
};

static_assert( hasEveryValue( ShutdownRecord::Ending::goodbye ) );

// The ending with this text; `running` for any other.
ShutdownRecord::Ending endingOf( std::string const & text ) noexcept;

// A step of a running shutdown.
enum class ShutdownStep : U8 {
   sent,     // the frames are out
   delayed,  // the link is held
   retrying, // the kernel does not set the link down: the record says why. valend goes on trying
   ended,    // see the record's ending
};

// Called at each step with the record at that moment.
using ShutdownObserver = std::function< void( ShutdownStep step, ShutdownRecord const & record ) >;

} // namespace Valend
