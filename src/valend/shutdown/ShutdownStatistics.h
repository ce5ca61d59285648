// Counters of all shutdowns and goodbyes since valend started: by interface, by agent, and altogether.
#pragma once

#include "valend/shutdown/ShutdownRecord.h"

#include <array>
#include <map>
#include <string>

namespace Valend {

// Of one interface.
struct ShutdownTotals {
   U64 shutdowns = 0;      // without goodbyes, and links that were set down outside valend
   U64 sent = 0;           // frames that the kernel accepted
   U64 failed = 0;         // frames that it rejected
   std::string failReason; // of the last rejected frame
   U64 aborts = 0;
   U64 wentDown = 0; // links set down outside valend
};

class ShutdownStatistics {
 public:
   // How many shutdowns were held for how long, as a histogram.
   struct Held {
      // Upper bounds in seconds, each included. A longer time counts in `count` alone.
      static constexpr std::array< double, 9 > bounds{ 0.1, 0.25, 0.5, 1, 2.5, 5, 10, 30, 65.535 };
      std::array< U64, bounds.size() > atMost{}; // in the order of the bounds; cumulative
      U64 count = 0;
      double seconds = 0;
   };

   // Adds a shutdown that has ended, a goodbye, or a link that was set down outside.
   void add( ShutdownRecord const & record );

   ShutdownTotals totals( std::string const & interface ) const;
   // Shutdowns by ending; an ending that never occurred is missing.
   std::map< ShutdownRecord::Ending, U64 > const & endings() const noexcept { return endings_; }
   U64 goodbyes() const noexcept { return goodbyes_; }
   // By agent: all its frames.
   std::map< std::string, AgentFrames > const & agents() const noexcept { return agents_; }
   Held const & held() const noexcept { return held_; }
   // Frames of muted speakers that were dropped, and speakers whose last frames were sent again, by protocol.
   std::map< std::string, U64 > const & heldBack() const noexcept { return heldBack_; }
   std::map< std::string, U64 > const & greetings() const noexcept { return greetings_; }
   // Shutdowns that were continued after a restart.
   U64 resumed() const noexcept { return resumed_; }
   // Shutdowns whose frames had not all left the machine when the link went down.
   U64 unflushed() const noexcept { return unflushed_; }

 private:
   void addHeld( std::chrono::milliseconds held );

   std::map< std::string, ShutdownTotals > totals_;
   std::map< ShutdownRecord::Ending, U64 > endings_;
   std::map< std::string, AgentFrames > agents_;
   std::map< std::string, U64 > heldBack_;
   std::map< std::string, U64 > greetings_;
   Held held_;
   U64 goodbyes_ = 0;
   U64 resumed_ = 0;
   U64 unflushed_ = 0;
};

} // namespace Valend
