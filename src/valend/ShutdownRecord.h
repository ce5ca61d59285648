// What the agent remembers of one shutdown.
#pragma once

#include "platform/quill/Int.h"

#include <chrono>
#include <functional>
#include <string>

namespace Valend {

struct ShutdownRecord {
   enum class Ending : U8 {
      running,
      down,        // the link is down
      aborted,     // enabled again in time; the link stayed up
      alreadyDown, // it was down before; nothing was sent
      noDevice,    // there is no device to set down
      failed,      // the kernel refused to set the link down
   };

   std::string interface;
   std::string by; // who asked: "uid 0"
   std::chrono::system_clock::time_point when;
   bool withDelay = false;              // frames were sent and the link was held
   U64 sent = 0;                        // frames that the kernel took
   U64 failed = 0;                      // frames that it refused
   std::string failReason;              // of the last of these
   std::chrono::milliseconds held{ 0 }; // from the sending on
   U64 unflushedBytes = 0;              // had not left the machine when the link went down
   Ending ending = Ending::running;
   std::string why; // what did not go the usual way; empty when all did

   // "down", "aborted", "already-down", "no-device", "failed", "running"
   char const * endingText() const noexcept;
   // "Ethernet1: shutdown by root: 3 frames sent, held 500 ms, down"
   std::string summary() const;
};

// A step of a running shutdown.
enum class ShutdownStep : U8 {
   sent,    // the frames are out
   delayed, // the link is held
   ended,   // see the record's ending
};

// Told of each step; the record is as it stands then.
using ShutdownObserver = std::function< void( ShutdownStep step, ShutdownRecord const & record ) >;

// What became of an interface over all its shutdowns since the agent started.
struct ShutdownTotals {
   U64 shutdowns = 0;
   U64 sent = 0;
   U64 failed = 0;
   std::string failReason; // of the last refused frame
   U64 aborts = 0;
};

} // namespace Valend
