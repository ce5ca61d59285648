#include "valend/shutdown/Recovery.h"

#include <algorithm>

namespace Valend {

namespace {

void endAs( ShutdownRecord::Ending ending, JournalEntry & entry ) {
   entry.phase = Phase::ended;
   entry.record.ending = ending;
   entry.record.resumed = true;
}

// The links were reset with the machine: there is nothing left to do.
bool endedByReboot( JournalEntry & entry, Journal const & journal ) {
   if ( entry.bootId == journal.bootId() ) {
      return false;
   }
   endAs( ShutdownRecord::Ending::rebooted, entry );
   return true;
}

bool endedAsExpired( JournalEntry & entry, Journal const & journal ) {
   bool const begun = entry.hold.has_value();
   auto const ago = journal.uptime() - ( begun ? entry.hold->until : entry.requestedAt );
   if ( ago <= expiry ) {
      return false;
   }
   auto const seconds = std::chrono::duration_cast< std::chrono::seconds >( ago ).count();
   entry.record.note( "valend started " + std::to_string( seconds ) + " s after the " +
                      ( begun ? "end of the delay" : "request" ) );
   endAs( ShutdownRecord::Ending::expired, entry );
   return true;
}

} // namespace

Recovered recover( Journal & journal ) {
   auto content = journal.read();
   Recovered recovered{ {}, {}, std::move( content.history ) };
   auto const keepEnd = [ & ]( JournalEntry & entry ) {
      journal.write( entry );
      recovered.ended.push_back( std::move( entry ) );
   };
   for ( auto & entry : content.superseded ) { // its end could not be written
      entry.record.note( "its end was not recorded, and the interface was used since" );
      endAs( ShutdownRecord::Ending::expired, entry );
      keepEnd( entry );
   }
   for ( auto & entry : content.unfinished ) {
      if ( !endedByReboot( entry, journal ) && !endedAsExpired( entry, journal ) ) {
         recovered.unfinished.push_back( std::move( entry ) );
      } else {
         keepEnd( entry );
      }
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
   case Phase::settingUp:
      return Phase::settingUp;
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

std::string changeSince( LinkMark const & mark, LinkDevice const & device ) {
   if ( device.ifIndex != mark.ifIndex ) {
      return "device recreated since valend stopped";
   }
   // A link that is down is not used: it may be set down again.
   bool const cameUp = device.up && device.carrierUps != mark.carrierUps;
   return cameUp ? "link set up since valend stopped" : "";
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
   return { !never.empty(), delay.whyNotReady() };
}

} // namespace Valend
