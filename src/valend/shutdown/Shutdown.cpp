#include "valend/shutdown/Shutdown.h"

#include "platform/quill/Fault.h"
#include "valend/shutdown/FrameSending.h"
#include "valend/shutdown/Places.h"
#include "valend/shutdown/Recovery.h"

#include <algorithm>
#include <cerrno>

namespace Valend {

using std::chrono::milliseconds;

namespace {

constexpr Gantry::Time noDeadline = Gantry::Time::max();

// How often to look again.
constexpr milliseconds readyInterval{ 5 };
constexpr milliseconds flushInterval{ 2 };
constexpr milliseconds downInterval{ 10 };

// What the kernel does not do at once.
constexpr milliseconds firstPause = downInterval;
constexpr milliseconds lastPause{ 1000 };

constexpr char const * otherOwner =
   "interface removed from the configuration, and its device belongs to another interface";

milliseconds inMs( Gantry::Time time ) {
   return std::chrono::duration_cast< milliseconds >( time );
}

bool isMissing( Quill::ErrnoException const & e ) {
   return e.number() == ENODEV || e.number() == ENOENT;
}

Quill::FaultSource faultSource( char const * event ) {
   return { typeid( Shutdown ), "Shutdown", typeid( void ), event };
}

} // namespace

Shutdown::Shutdown( Surroundings const & surroundings, Settings::InterfaceConfig const & interface,
                    Request request )
    : surroundings_( surroundings ), delay_( surroundings.store, interface.name ),
      pause_( firstPause, lastPause ),
      timer_( surroundings.scheduler, "shutdown::" + interface.name, [ this ] { timedOut(); } ) {
   placeIs( placeOf( surroundings.config, interface ) );
   entry_.requestedAt = surroundings.journal.uptime();
   entry_.record.interface = interface.name;
   entry_.record.request = std::move( request );
   entry_.record.when = std::chrono::system_clock::now();
   enter( Phase::requested, noDeadline );
}

Shutdown::Shutdown( Surroundings const & surroundings, JournalEntry entry )
    : surroundings_( surroundings ), delay_( surroundings.store, entry.record.interface ),
      entry_( std::move( entry ) ), pause_( firstPause, lastPause ),
      timer_( surroundings.scheduler, "shutdown::" + entry_.record.interface,
              [ this ] { timedOut(); } ) {
   if ( entry_.hold ) {
      hold_ = holdAfterRestart( *entry_.hold, surroundings.journal.uptime(), now() );
   }
   entry_.record.resumed = true;
   markToCheck_ = entry_.mark.has_value();
   auto const phase = phaseAfterRestart( entry_.phase );
   if ( phase == Phase::heldToDeadline ) {
      observers_.lastStepIs( ShutdownStep::delayed );
      note( "valend restarted " + intoDelay() );
      enter( phase, hold_->until );
   } else {
      enter( phase, now() + readyTimeout );
   }
}

// --- Events --------------------------------------------------------------------------------------

// Every way in from the loop. Whatever `work` throws, the link goes down.
template < class Work > void Shutdown::guard( char const * event, Work const & work ) {
   try {
      work();
   } catch ( ... ) {
      auto const why = Quill::exceptionText();
      Quill::reportFault( faultSource( event ), record().interface );
      failOpen( why );
   }
}

// The handler of an exception should have little to fail in: the next turn sets the link down. Unless it was
// enabled.
void Shutdown::failOpen( std::string const & why ) {
   if ( phase() == Phase::ended ) {
      return;
   }
   if ( record().why.find( why ) == std::string::npos ) { // a retry may throw the same
      note( why );
   }
   if ( phase() != Phase::settingDown && phase() != Phase::settingUp ) {
      enter( Phase::settingDown, now() + downTimeout );
   }
   if ( request_ ) {
      return; // its answer is to come
   }
   if ( now() < deadline_ ) {
      timer_.start( downInterval );
   } else {
      end( Ending::failed, "" );
   }
}

void Shutdown::begin() {
   guard( "begin", [ this ] {
      switch ( phase() ) {
      case Phase::requested:
         return checkLink();
      case Phase::waiting:
         return waitForInterface();
      case Phase::settingDown:
         return setLinkDown();
      case Phase::settingUp:
         return setLinkUp();
      case Phase::heldToDeadline:
         return deviceSeen();
      case Phase::sending:
      case Phase::held:
      case Phase::flushing:
      case Phase::ended:
         return;
      }
   } );
}

void Shutdown::deviceSeen() {
   guard( "device", [ this ] { endedAsExpired(); } );
}

void Shutdown::libraryChanged() {
   guard( "delayed", [ this ] {
      if ( isHeld( phase() ) ) {
         followLibrary();
      }
   } );
}

void Shutdown::setDownOutside() {
   guard( "setDownOutside", [ this ] {
      bool const notes = isHeld( phase() ) || phase() == Phase::flushing;
      if ( notes && setDownOutside_.empty() ) {
         setDownOutside_ = intoDelay();
      }
   } );
}

void Shutdown::timedOut() {
   guard( "timer", [ this ] {
      switch ( phase() ) {
      case Phase::waiting:
         return waitForInterface();
      case Phase::sending:
         note( "sending timed out" );
         return setLinkDown();
      case Phase::held:
         note( "the delay did not end in time" );
         return flushSocket();
      case Phase::heldToDeadline:
      case Phase::flushing:
         return flushSocket();
      case Phase::settingDown:
         return setLinkDown();
      case Phase::settingUp:
         return setLinkUp();
      case Phase::requested:
      case Phase::ended:
         return;
      }
   } );
}

void Shutdown::enabled( std::string const & requester, EnableObserver observer ) {
   guard( "enabled", [ & ] {
      if ( observer ) {
         enablers_.push_back( std::move( observer ) );
      }
      if ( phase() == Phase::settingUp ) {
         return;
      }
      bool const same = requester == record().request.requester();
      auto const who = same ? std::string( "enabled " ) : "enabled by " + requester + " ";
      note( who + ( hold_ ? "after " + std::to_string( inMs( now() - hold_->from ).count() ) + " ms"
                          : std::string( "before the delay began" ) ) );
      if ( request_ && !request_->withdraw() ) {
         enter( Phase::settingUp, now() + downTimeout );
         timer_.stop(); // until downAnswered()
      } else {
         request_ = nullptr;
         abortUnlessDown();
      }
   } );
}

void Shutdown::configChanged() {
   guard( "configChanged", [ this ] {
      bool const moved = placeNow( surroundings_.config, record().interface, place() ) != place();
      if ( phase() == Phase::settingDown && moved && request_ && request_->withdraw() ) {
         request_ = nullptr;
         setLinkDown();
      }
   } );
}

std::optional< milliseconds > Shutdown::remaining() const {
   if ( !isHeld( phase() ) ) {
      return std::nullopt;
   }
   return std::max( milliseconds( 0 ), std::chrono::ceil< milliseconds >( hold_->until - now() ) );
}

// --- Actions -------------------------------------------------------------------------------------

// Records the phase, and arms the timer for its deadline.
void Shutdown::enter( Phase phase, Gantry::Time deadline ) {
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

void Shutdown::waitForInterface() {
   updatePlace(); // checkLink() looks at what it returns
   if ( endedAsExpired() ) {
      return;
   }
   auto const check = checkInterface( delay_, surroundings_.port, place() );
   if ( !check.settled && now() < deadline_ ) {
      return timer_.start( readyInterval );
   }
   if ( !check.whyNoFrames.empty() ) {
      note( "no frames sent after the restart: " + check.whyNoFrames );
   }
   checkLink();
}

void Shutdown::checkLink() {
   if ( !updatePlace() ) {
      return end( Ending::noDevice, otherOwner );
   }
   try {
      if ( !surroundings_.port.up( place() ) ) {
         return end( Ending::alreadyDown, "" );
      }
   } catch ( Quill::ErrnoException const & e ) {
      if ( isMissing( e ) ) {
         return end( Ending::noDevice, e.what() );
      }
      note( e.what() ); // take it to be up
   }
   if ( delay_.isReady() ) {
      sendAndHold();
   } else {
      setLinkDown();
   }
}

void Shutdown::sendAndHold() {
   bool const again =
      hold_.has_value(); // valend restarted while sending: the first deadline counts
   if ( again ) {
      note( "frames sent again: valend restarted while sending" );
   } else {
      milliseconds const configured( surroundings_.config.shutdownDelayMs.value_or( 0 ) );
      hold_ = Hold{ now(), now() + record().request.delay.value_or( configured ) };
   }
   status_ = delay_.status();
   entry_.record.withDelay = true;
   delay_.lowerFlag(); // the link may have been set up outside valend since the last shutdown
   enter( Phase::sending, hold_->until + margin );
   sendFrames( delay_, surroundings_.store, surroundings_.port, place(), *surroundings_.scheduler,
               entry_.record );
   if ( phase() != Phase::sending ) {
      return; // it ended meanwhile
   }
   if ( again ) {
      enter( Phase::heldToDeadline, hold_->until );
   } else {
      enter( Phase::held, hold_->until + margin );
   }
   observers_.tell( ShutdownStep::sent, entry_.record );
   if ( isHeld( phase() ) ) { // else an observer ended it
      holdLink();
   }
}

void Shutdown::holdLink() {
   if ( !status_->delayed() ) {
      note( "the library did not start the delay" );
      return flushSocket();
   }
   surroundings_.delayWatch->follow( delay_.intfId(), status_ );
   observers_.tell( ShutdownStep::delayed, entry_.record );
}

void Shutdown::followLibrary() {
   auto const status = delay_.status();
   if ( status && status_ == status ) {
      if ( !status->delayed() ) {
         flushSocket();
      }
      return;
   }
   auto const never = delay_.whyNever();
   if ( phase() == Phase::held ) {
      note( "readiness lost " + intoDelay() + ( never.empty() ? "" : ": " + never ) );
   } else {
      note( never );
   }
   if ( !never.empty() || now() >= hold_->until ) {
      return flushSocket();
   }
   if ( phase() == Phase::held ) {
      enter( Phase::heldToDeadline, hold_->until );
   }
}

void Shutdown::flushSocket() {
   if ( phase() != Phase::flushing ) {
      entry_.record.held = inMs( now() - hold_->from );
   }
   auto const bytes = surroundings_.port.outstandingBytes( place() );
   if ( bytes && phase() != Phase::flushing ) {
      enter( Phase::flushing, now() + flushTimeout );
   }
   if ( bytes && now() < deadline_ ) {
      return timer_.start( flushInterval );
   }
   entry_.record.unflushedBytes = bytes;
   setLinkDown();
}

void Shutdown::setLinkDown() {
   if ( request_ ) {
      return;
   }
   if ( !updatePlace() ) {
      return end( Ending::noDevice, otherOwner );
   }
   if ( endedAsExpired() ) {
      return;
   }
   if ( phase() != Phase::settingDown ) {
      enter( Phase::settingDown, now() + ( record().resumed ? readyTimeout : downTimeout ) );
   }
   request( LinkChange::down, &Shutdown::downAnswered );
}

// Of the changes that wait for the kernel, the ones that were due first come first.
void Shutdown::request( LinkChange change, void ( Shutdown::*answered )( LinkAnswer const & ) ) {
   timer_.stop();
   request_ = surroundings_.port.request( place(), change, hold_ ? hold_->until : now(),
                                          [ this, answered ]( auto const & answer ) {
                                             guard( "answer", [ & ] {
                                                request_ = nullptr;
                                                ( this->*answered )( answer );
                                             } );
                                          } );
}

void Shutdown::downAnswered( LinkAnswer const & answer ) {
   ++attempts_;
   if ( answer.error == 0 ) {
      surroundings_.linkSetDown( place() );
   }
   if ( phase() == Phase::settingUp ) { // enabled meanwhile
      deadline_ = now() + downTimeout;
      return abortUnlessDown();
   }
   if ( answer.error ) {
      return retry( answer );
   }
   noteDown( answer );
   end( Ending::down, "" );
}

void Shutdown::retry( LinkAnswer const & answer ) {
   if ( answer.missing() ) {
      return now() < deadline_ ? timer_.start( downInterval ) : end( Ending::noDevice, answer.why );
   }
   deadline_ = now() + downTimeout;
   timer_.start( pause_.take() );
   if ( whyRetrying_ != answer.why ) {
      whyRetrying_ = answer.why;
      note( answer.why );
   }
   retryingSince_ = retryingSince_.value_or( now() );
   if ( now() < *retryingSince_ + retryNotice ) {
      return;
   }
   bool const first = !condition_;
   if ( first ) {
      condition_.emplace( surroundings_.conditions, "link/" + record().interface );
   }
   condition_->raise( whyRetrying_ + "; trying again until the link is down or enabled" );
   if ( first ) {
      observers_.tell( ShutdownStep::retrying, entry_.record );
   }
}

// What did not go as expected until the link was down.
void Shutdown::noteDown( LinkAnswer const & answer ) {
   if ( retryingSince_ ) {
      note( "link set down at attempt " + std::to_string( attempts_ ) + ", after " +
            std::to_string( inMs( now() - *retryingSince_ ).count() ) + " ms" );
   }
   if ( setDownOutside_.empty() ) {
      return;
   }
   note( answer.changed ? "link went down " + setDownOutside_ + " and came up again"
                        : ShutdownRecord::setDownOutside + ( " " + setDownOutside_ ) );
}

void Shutdown::abortUnlessDown() {
   if ( isDown() ) {
      setLinkUp();
   } else {
      end( Ending::aborted, "" );
   }
}

void Shutdown::setLinkUp() {
   if ( request_ ) {
      return;
   }
   if ( phase() != Phase::settingUp ) {
      enter( Phase::settingUp, now() + downTimeout );
   }
   request( LinkChange::up, &Shutdown::upAnswered );
}

void Shutdown::upAnswered( LinkAnswer const & answer ) {
   if ( answer.error == 0 ) {
      surroundings_.linkSetUp( place() );
      setUpAgain_ = answer.changed;
      return end( Ending::aborted, answer.changed ? "link was down, and set up again" : "" );
   }
   if ( now() < deadline_ ) {
      return timer_.start( downInterval );
   }
   notUp_ = answer;
   end( answer.missing() ? Ending::noDevice : Ending::down, answer.why );
}

bool Shutdown::isDown() const {
   try {
      return !surroundings_.port.up( place() );
   } catch ( std::exception const & ) { // there is nothing to set up
      return false;
   }
}

void Shutdown::end( Ending ending, std::string const & why ) {
   auto & record = entry_.record;
   if ( isHeld( phase() ) ) {
      record.held = inMs( now() - hold_->from );
   }
   record.ending = ending;
   record.total = inMs( surroundings_.journal.uptime() - entry_.requestedAt );
   note( why );
   request_ = nullptr;
   if ( condition_ ) {
      condition_->clear();
   }
   enter( Phase::ended, noDeadline );
   surroundings_.delayWatch->unfollow( delay_.intfId() );
   if ( ending == Ending::aborted || ending == Ending::expired ) {
      delay_.lowerFlag();
   }
   auto const name = [ & ] { return record.interface; };
   Quill::underFaultBoundary( faultSource( "ended" ), name,
                              [ & ] { surroundings_.ended( *this ); } );
   observers_.tell( ShutdownStep::ended, entry_.record );
   answerEnablers();
}

void Shutdown::answerEnablers() {
   auto const result = [ this ]() -> EnableResult {
      if ( record().ending == Ending::aborted ) {
         return setUpAgain_ ? Enabled::up : Enabled::aborted;
      }
      return whyNotUp( notUp_.value_or( LinkAnswer{ EIO, record().why, false } ) );
   };
   for ( auto const & enabler : enablers_ ) {
      auto const name = [ & ] { return record().interface; };
      Quill::underFaultBoundary( faultSource( "enabled" ), name, [ & ] { enabler( result() ); } );
   }
}

// After a restart: whether the link was set up while valend was not running. Then it is not what was
// to go down any more.
bool Shutdown::endedAsExpired() {
   auto const device = markToCheck_ ? surroundings_.port.device( place() ) : std::nullopt;
   if ( !device || phase() == Phase::ended ) {
      return false;
   }
   markToCheck_ = false;
   auto const change = changeSince( *entry_.mark, *device );
   if ( !change.empty() ) {
      end( Ending::expired, change );
   }
   return !change.empty();
}

void Shutdown::placeIs( LinkPlace const & place ) {
   if ( place == this->place() ) {
      return;
   }
   entry_.record.place = place;
   auto const device = surroundings_.port.device( place );
   entry_.mark =
      device ? std::optional( LinkMark{ device->ifIndex, device->carrierUps } ) : std::nullopt;
   markToCheck_ = false;
}

// The configuration may have given the interface another device or VRF since the request. False when
// the interface is gone, and its device belongs to another one now.
bool Shutdown::updatePlace() {
   auto const now = placeNow( surroundings_.config, record().interface, place() );
   if ( now ) {
      placeIs( *now );
   }
   return now.has_value();
}

// "120 ms into the delay"
std::string Shutdown::intoDelay() const {
   auto const since = hold_ ? now() - hold_->from : Gantry::Time();
   return std::to_string( inMs( since ).count() ) + " ms into the delay";
}

} // namespace Valend
