#include "valend/shutdown/Recovery.h"

#include <algorithm>

namespace Valend {

namespace {

// The links were reset with the machine: there is nothing left to do.
void endAsRebooted( JournalEntry & entry ) {
   entry.phase = Phase::ended;
   entry.record.ending = ShutdownRecord::Ending::rebooted;
   entry.record.resumed = true;
}

} // namespace

Recovered recover( Journal & journal ) {
   auto content = journal.read();
   Recovered recovered{ {}, std::move( content.history ) };
   for ( auto & entry : content.unfinished ) {
      if ( entry.bootId == journal.bootId() ) {
         recovered.unfinished.push_back( std::move( entry ) );
         continue;
      }
      endAsRebooted( entry );
      journal.write( entry );
      recovered.history.push_back( std::move( entry.record ) );
   }
   while ( recovered.history.size() > Journal::historyLimit ) {
      recovered.history.pop_front();
   }
   return recovered;
}

Phase phaseAfterRestart( Phase recorded ) noexcept {
   switch ( recorded ) {
   case Phase::requested:
   case Phase::waiting:
   case Phase::sending:
      return Phase::waiting;
   case Phase::held:
   case Phase::heldToDeadline:
      return Phase::heldToDeadline;
   case Phase::flushing:
   case Phase::settingDown:
      return Phase::settingDown;
   case Phase::ended:
      break;
   }
   return Phase::ended;
}

Hold holdAfterRestart( Hold const & recorded, std::chrono::nanoseconds uptime, Gantry::Time now ) {
   constexpr std::chrono::milliseconds longestDelay{ 65535 };
   return { now + ( recorded.from - uptime ),
            now + std::min< Gantry::Time >( recorded.until - uptime, longestDelay ) };
}

InterfaceCheck checkInterface( InterfaceDelay const & delay, LinkPort const & port,
                               LinkPlace const & place ) {
   auto const device = port.device( place );
   if ( !device ) {
      return {};
   }
   if ( !device->up || delay.isReady() ) {
      return { true, "" };
   }
   auto const never = delay.whyNever();
   return { !never.empty(), never.empty() ? "interface not ready" : never };
}

} // namespace Valend
