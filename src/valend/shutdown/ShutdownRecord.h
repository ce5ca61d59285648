// What the agent remembers of one shutdown.
#pragma once

#include "platform/quill/Int.h"

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace Valend {

// What became of the frames that one agent had queued.
struct AgentFrames {
   std::string agent;
   U64 sent = 0;                 // that the kernel took
   std::map< int, U64 > refused; // that it did not, by errno
   bool operator==( AgentFrames const & ) const = default;
};

struct ShutdownRecord {
   enum class Ending : U8 {
      running,
      down,        // the link is down
      aborted,     // enabled again in time; the link stayed up
      alreadyDown, // it was down before; nothing was sent
      noDevice,    // there is no device to set down
      failed,      // the kernel refused to set the link down
      wentDown,    // nobody asked: somebody else set the link down, without goodbye
      rebooted,    // the machine was started anew meanwhile
   };

   std::string interface;
   std::string by; // who asked: "uid 0"
   std::chrono::system_clock::time_point when;
   bool withDelay = false;                 // frames were sent and the link was held
   bool resumed = false;                   // the agent was started anew meanwhile
   U64 sent = 0;                           // frames that the kernel took
   U64 failed = 0;                         // frames that it refused
   std::string failReason;                 // of the last of these
   std::vector< AgentFrames > agents;      // the same by agent, in the order of sending
   std::chrono::microseconds sending{ 0 }; // how long that took
   std::chrono::milliseconds held{ 0 };    // from the sending on
   std::chrono::milliseconds total{ 0 };   // from the asking to the end
   U64 unflushedBytes = 0;                 // had not left the machine when the link went down
   Ending ending = Ending::running;
   std::string why; // what did not go the usual way; empty when all did

   // "down", "aborted", "already-down", "no-device", "failed", "went-down", "rebooted", "running"
   char const * endingText() const noexcept;
   // What happened, in a line: "Ethernet1: shutdown by root: 3 frames in 0.2 ms, held 500 ms, link
   // down, total 501 ms".
   std::string summary() const;

   bool operator==( ShutdownRecord const & ) const = default;
};

// The ending of that text; `running` for any other.
ShutdownRecord::Ending endingOf( std::string const & text ) noexcept;

// A step of a running shutdown.
enum class ShutdownStep : U8 {
   sent,    // the frames are out
   delayed, // the link is held
   ended,   // see the record's ending
};

// Told of each step; the record is as it stands then.
using ShutdownObserver = std::function< void( ShutdownStep step, ShutdownRecord const & record ) >;

} // namespace Valend
