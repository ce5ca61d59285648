#include "valend/shutdown/ShutdownHold.h"

#include <algorithm>

namespace Valend {

using std::chrono::milliseconds;

namespace {

// How often to look whether the frames have left.
constexpr milliseconds flushInterval{ 2 };

} // namespace

ShutdownHold::ShutdownHold( ShutdownState & state, ObserverList & observers )
    : state_( state ), observers_( observers ),
      delay_( state.surroundings().store, state.record().interface ) {}

bool ShutdownHold::sendFrames() {
   auto const & surroundings = state_.surroundings();
   // valend restarted while sending: the first deadline counts.
   bool const again = state_.hold().has_value();
   if ( again ) {
      state_.note( "frames sent again: valend restarted while sending" );
   } else {
      milliseconds const configured( surroundings.config.shutdownDelayMs.value_or( 0 ) );
      auto const now = state_.now();
      state_.holdIs( { now, now + state_.record().request.delay.value_or( configured ) } );
   }
   auto const until = state_.hold()->until;
   status_ = delay_.status();
   state_.record().withDelay = true;
   delay_.lowerFlag(); // the link may have been set up outside valend since the last shutdown
   state_.enter( Phase::sending, until + margin );
   // Muted first: what a daemon sends between its goodbye and the mute would take the goodbye back.
   auto const queued = queuedFrames( delay_, surroundings.store );
   mute( queued, {} );
   auto const refused = Valend::sendFrames( delay_, queued, surroundings.port, state_.place(),
                                            *surroundings.scheduler, state_.record() );
   if ( !refused.empty() ) {
      mute( queued, refused );
   }
   if ( state_.phase() != Phase::sending ) {
      return false; // it ended meanwhile
   }
   if ( again ) {
      state_.enter( Phase::heldToDeadline, until );
   } else {
      state_.enter( Phase::held, until + margin );
   }
   observers_.tell( ShutdownStep::sent, state_.record() );
   return isHeld( state_.phase() ) && beginHold(); // else an observer ended it
}

// Those whose goodbye was rejected stay heard.
void ShutdownHold::mute( std::vector< QueuedFrame > const & queued,
                         std::set< U32 > const & refused ) {
   std::vector< std::string_view > goodbyes;
   for ( U32 number = 0; number < queued.size(); ++number ) {
      if ( !refused.contains( number ) ) {
         goodbyes.push_back( queued[ number ].bytes.view() );
      }
   }
   mutedAt_ = state_.place();
   auto & speakers = state_.surroundings().speakers;
   state_.record().notMuted = speakers.mute( *mutedAt_, goodbyes, muteTime() );
   state_.mutedAre( speakers.muted( *mutedAt_ ) );
}

milliseconds ShutdownHold::muteTime() const {
   return std::chrono::ceil< milliseconds >( state_.hold()->until + muteMargin - state_.now() );
}

void ShutdownHold::muteAgain() {
   if ( !state_.muted().empty() ) {
      mutedAt_ = state_.place();
      whyNotAgain_ =
         state_.surroundings().speakers.muteAgain( *mutedAt_, state_.muted(), muteTime() );
   }
}

void ShutdownHold::end( bool linkStaysUp ) {
   if ( mutedAt_ ) {
      auto & record = state_.record();
      record.muted = state_.surroundings().speakers.unmute( *mutedAt_, linkStaysUp );
      if ( record.muted.empty() && record.notMuted.empty() ) {
         record.notMuted = whyNotAgain_;
      }
      mutedAt_.reset();
      state_.mutedAre( {} );
   }
}

bool ShutdownHold::beginHold() {
   if ( !status_->delayed() ) {
      state_.note( "the library did not start the delay" );
      return flush();
   }
   state_.surroundings().delayWatch->follow( delay_.intfId(), status_ );
   observers_.tell( ShutdownStep::delayed, state_.record() );
   return false;
}

bool ShutdownHold::libraryChanged() {
   auto const status = delay_.status();
   if ( status && status_ == status ) {
      return !status->delayed() && flush();
   }
   return readinessLost();
}

bool ShutdownHold::readinessLost() {
   auto const never = delay_.whyNever();
   bool const first = state_.phase() == Phase::held;
   if ( first ) {
      state_.note( "readiness lost " + state_.intoDelay() + ( never.empty() ? "" : ": " + never ) );
   } else {
      state_.note( never );
   }
   if ( !never.empty() || state_.now() >= state_.hold()->until ) {
      return flush();
   }
   if ( first ) {
      state_.enter( Phase::heldToDeadline, state_.hold()->until );
   }
   return false;
}

bool ShutdownHold::flush() {
   auto & record = state_.record();
   if ( state_.phase() != Phase::flushing ) {
      record.held = state_.held();
   }
   auto const bytes = state_.surroundings().port.outstandingBytes( state_.place() );
   if ( bytes && state_.phase() != Phase::flushing ) {
      state_.enter( Phase::flushing, state_.now() + flushTimeout );
   }
   if ( bytes && !state_.late() ) {
      state_.lookAgain( flushInterval );
      return false;
   }
   record.unflushedBytes = bytes;
   return true;
}

std::optional< milliseconds > ShutdownHold::remaining() const {
   if ( !isHeld( state_.phase() ) ) {
      return std::nullopt;
   }
   return std::max( milliseconds( 0 ),
                    std::chrono::ceil< milliseconds >( state_.hold()->until - state_.now() ) );
}

} // namespace Valend
