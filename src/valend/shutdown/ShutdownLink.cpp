#include "valend/shutdown/ShutdownLink.h"

#include <cerrno>
#include <utility>

namespace Valend {

using Ending = ShutdownRecord::Ending;
using std::chrono::milliseconds;

namespace {

// How often to look again for a missing device.
constexpr milliseconds missingInterval{ 10 };

// What the kernel does not do at once.
constexpr milliseconds firstPause = missingInterval;
constexpr milliseconds lastPause{ 1000 };

} // namespace

ShutdownLink::ShutdownLink( ShutdownState & state, ObserverList & observers,
                            std::function< void( LinkAnswer const & ) > answered )
    : state_( state ), observers_( observers ), answered_( std::move( answered ) ),
      pause_( firstPause, lastPause ) {}

// --- Requests ------------------------------------------------------------------------------------

// Of the changes that wait for the kernel, the ones that were due first come first.
void ShutdownLink::request( LinkChange change ) {
   state_.lookNoMore();
   requested_ = change;
   request_ = state_.surroundings().port.request(
      state_.place(), change, state_.hold() ? state_.hold()->until : state_.now(),
      [ this ]( auto const & answer ) { answered_( answer ); } );
}

ShutdownLink::MaybeOutcome ShutdownLink::take( LinkAnswer const & answer ) {
   request_ = nullptr;
   return requested_ == LinkChange::down ? downAnswered( answer ) : upAnswered( answer );
}

bool ShutdownLink::withdraw() {
   if ( request_ && !request_->withdraw() ) {
      return false;
   }
   request_ = nullptr;
   return true;
}

void ShutdownLink::end() {
   request_ = nullptr;
   if ( condition_ ) {
      condition_->clear();
   }
}

// --- Down ----------------------------------------------------------------------------------------

void ShutdownLink::setDown( milliseconds missing ) {
   if ( state_.phase() != Phase::settingDown ) {
      state_.enter( Phase::settingDown, state_.now() + missing );
   }
   request( LinkChange::down );
}

ShutdownLink::MaybeOutcome ShutdownLink::downAnswered( LinkAnswer const & answer ) {
   ++attempts_;
   if ( answer.error == 0 ) {
      state_.surroundings().linkSetDown( state_.place() );
   }
   if ( state_.phase() == Phase::settingUp ) { // enabled meanwhile
      state_.deadlineIs( state_.now() + downTimeout );
      return abortUnlessDown();
   }
   if ( answer.error ) {
      return retry( answer );
   }
   noteDown( answer );
   return Outcome{ Ending::down, "" };
}

ShutdownLink::MaybeOutcome ShutdownLink::retry( LinkAnswer const & answer ) {
   if ( answer.missing() ) {
      if ( state_.late() ) {
         return Outcome{ Ending::noDevice, answer.why };
      }
      state_.lookAgain( missingInterval );
      return std::nullopt;
   }
   state_.deadlineIs( state_.now() + downTimeout );
   state_.lookAgain( pause_.take() );
   if ( whyRetrying_ != answer.why ) {
      whyRetrying_ = answer.why;
      state_.note( answer.why );
   }
   retryingSince_ = retryingSince_.value_or( state_.now() );
   if ( state_.now() >= *retryingSince_ + retryNotice ) {
      tellRetrying();
   }
   return std::nullopt;
}

void ShutdownLink::tellRetrying() {
   bool const first = !condition_;
   if ( first ) {
      condition_.emplace( state_.surroundings().conditions, "link/" + state_.record().interface );
   }
   condition_->raise( whyRetrying_ + "; trying again until the link is down or enabled" );
   if ( first ) {
      observers_.tell( ShutdownStep::retrying, state_.record() );
   }
}

void ShutdownLink::noteSetDownOutside() {
   if ( setDownOutside_.empty() ) {
      setDownOutside_ = state_.intoDelay();
   }
}

// What did not go as expected until the link was down.
void ShutdownLink::noteDown( LinkAnswer const & answer ) {
   if ( retryingSince_ ) {
      auto const took =
         std::chrono::duration_cast< milliseconds >( state_.now() - *retryingSince_ );
      state_.note( "link set down at attempt " + std::to_string( attempts_ ) + ", after " +
                   std::to_string( took.count() ) + " ms" );
   }
   if ( setDownOutside_.empty() ) {
      return;
   }
   state_.note( answer.changed ? "link went down " + setDownOutside_ + " and came up again"
                               : ShutdownRecord::setDownOutside + ( " " + setDownOutside_ ) );
}

// --- Up ------------------------------------------------------------------------------------------

ShutdownLink::MaybeOutcome ShutdownLink::enable() {
   if ( withdraw() ) {
      return abortUnlessDown();
   }
   state_.enter( Phase::settingUp, state_.now() + downTimeout );
   state_.lookNoMore(); // until the answer
   return std::nullopt;
}

ShutdownLink::MaybeOutcome ShutdownLink::abortUnlessDown() {
   if ( !isDown() ) {
      return Outcome{ Ending::aborted, "" };
   }
   setUp();
   return std::nullopt;
}

bool ShutdownLink::isDown() const {
   try {
      return !state_.surroundings().port.up( state_.place() );
   } catch ( std::exception const & ) { // there is nothing to set up
      return false;
   }
}

void ShutdownLink::setUp() {
   if ( state_.phase() != Phase::settingUp ) {
      state_.enter( Phase::settingUp, state_.now() + downTimeout );
   }
   request( LinkChange::up );
}

ShutdownLink::MaybeOutcome ShutdownLink::upAnswered( LinkAnswer const & answer ) {
   if ( answer.error == 0 ) {
      state_.surroundings().linkSetUp( state_.place() );
      setUpAgain_ = answer.changed;
      return Outcome{ Ending::aborted, answer.changed ? "link was down, and set up again" : "" };
   }
   if ( !state_.late() ) {
      state_.lookAgain( missingInterval );
      return std::nullopt;
   }
   notUp_ = answer;
   return Outcome{ answer.missing() ? Ending::noDevice : Ending::down, answer.why };
}

EnableResult ShutdownLink::enableResult() const {
   if ( state_.record().ending == Ending::aborted ) {
      return setUpAgain_ ? Enabled::up : Enabled::aborted;
   }
   return whyNotUp( notUp_.value_or( LinkAnswer{ EIO, state_.record().why, false } ) );
}

} // namespace Valend
