// What became of all shutdowns since the agent started: by interface, and altogether.
#pragma once

#include "valend/shutdown/ShutdownRecord.h"

#include <array>
#include <map>
#include <string>

namespace Valend {

// Of one interface.
struct ShutdownTotals {
   U64 shutdowns = 0; // links that went down by themselves are none
   U64 sent = 0;
   U64 failed = 0;
   std::string failReason; // of the last refused frame
   U64 aborts = 0;
   U64 wentDown = 0; // without goodbye
};

class ShutdownStatistics {
 public:
   // How many shutdowns were held for how long.
   struct Held {
      // Upper bounds in seconds, each included; what is above is in none.
      static constexpr std::array< double, 9 > bounds{ 0.1, 0.25, 0.5, 1, 2.5, 5, 10, 30, 65.535 };
      std::array< U64, bounds.size() > atMost{}; // in the order of the bounds; cumulative
      U64 count = 0;
      double seconds = 0;
   };

   // Takes a record that has ended in.
   void add( ShutdownRecord const & record );

   ShutdownTotals totals( std::string const & interface ) const;
   // By ending, those of which there were any.
   std::map< ShutdownRecord::Ending, U64 > const & endings() const noexcept { return endings_; }
   // Frames by agent.
   std::map< std::string, AgentFrames > const & agents() const noexcept { return agents_; }
   Held const & held() const noexcept { return held_; }
   U64 resumed() const noexcept { return resumed_; }
   U64 unflushed() const noexcept { return unflushed_; }

 private:
   void addHeld( std::chrono::milliseconds held );

   std::map< std::string, ShutdownTotals > totals_;
   std::map< ShutdownRecord::Ending, U64 > endings_;
   std::map< std::string, AgentFrames > agents_;
   Held held_;
   U64 resumed_ = 0;   // begun by an agent before this one
   U64 unflushed_ = 0; // whose frames had not all left the machine
};

} // namespace Valend
