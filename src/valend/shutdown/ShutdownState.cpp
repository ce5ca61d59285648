#include "valend/shutdown/ShutdownState.h"

#include "valend/kernel/Places.h"
#include "valend/shutdown/Recovery.h"

namespace Valend {

using std::chrono::milliseconds;

ShutdownState::ShutdownState( ShutdownSurroundings const & surroundings,
                              Settings::InterfaceConfig const & interface, Request request,
                              std::function< void() > timedOut )
    : surroundings_( surroundings ),
      timer_( surroundings.scheduler, "shutdown::" + interface.name, std::move( timedOut ) ) {
   placeIs( placeOf( surroundings.config, interface ) );
   entry_.requestedAt = surroundings.journal.uptime();
   entry_.record.interface = interface.name;
   entry_.record.request = std::move( request );
   entry_.record.when = std::chrono::system_clock::now();
}

ShutdownState::ShutdownState( ShutdownSurroundings const & surroundings, JournalEntry entry,
                              std::function< void() > timedOut )
    : surroundings_( surroundings ), entry_( std::move( entry ) ),
      timer_( surroundings.scheduler, "shutdown::" + entry_.record.interface,
              std::move( timedOut ) ) {
   if ( entry_.hold ) {
      hold_ = holdAfterRestart( *entry_.hold, surroundings.journal.uptime(), now() );
   }
   entry_.record.resumed = true;
   markToCheck_ = entry_.mark.has_value();
}

void ShutdownState::enter( Phase phase, Gantry::Time deadline ) {
   entry_.phase = phase;
   deadline_ = deadline;
   if ( deadline == noDeadline ) {
      timer_.stop();
   } else {
      timer_.start( deadline - now() );
   }
   if ( hold_ ) {
      auto const ahead = surroundings_.journal.uptime() - now(); // of the scheduler's clock
      entry_.hold = Hold{ hold_->from + ahead, hold_->until + ahead };
   }
   surroundings_.journal.write( entry_ );
}

milliseconds ShutdownState::held() const {
   auto const since = hold_ ? now() - hold_->from : Gantry::Time();
   return std::chrono::duration_cast< milliseconds >( since );
}

std::string ShutdownState::intoDelay() const {
   return std::to_string( held().count() ) + " ms into the delay";
}

milliseconds ShutdownState::total() const {
   return std::chrono::duration_cast< milliseconds >( surroundings_.journal.uptime() -
                                                      entry_.requestedAt );
}

bool ShutdownState::updatePlace() {
   auto const now = placeNow( surroundings_.config, record().interface, place() );
   if ( now ) {
      placeIs( *now );
   }
   return now.has_value();
}

void ShutdownState::placeIs( LinkPlace const & place ) {
   if ( place == this->place() ) {
      return;
   }
   entry_.record.place = place;
   auto const device = surroundings_.port.device( place );
   entry_.mark =
      device ? std::optional( LinkMark{ device->ifIndex, device->carrierUps } ) : std::nullopt;
   markToCheck_ = false;
}

std::string ShutdownState::changeSinceRestart() {
   auto const device = markToCheck_ ? surroundings_.port.device( place() ) : std::nullopt;
   if ( !device || phase() == Phase::ended ) {
      return "";
   }
   markToCheck_ = false;
   return changeSince( *entry_.mark, *device );
}

} // namespace Valend
