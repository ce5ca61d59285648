#include "valend/api/WatchMethods.h"

#include <algorithm>

namespace Valend {

namespace {

using Until = WatchMethods::Until;

bool isMet( Json const & interface, Until until ) {
   switch ( until ) {
   case Until::ready:
      return interface[ "ready" ];
   case Until::up:
      return interface[ "link" ] == "up" && !interface[ "shuttingDown" ];
   case Until::down:
      return interface[ "link" ] != "up";
   case Until::idle:
      return !interface[ "shuttingDown" ];
   }
   return false;
}

} // namespace

WatchMethods::WatchMethods( Parts const & parts, StatusReport const & report )
    : parts_( parts ), report_( report ),
      model_( parts.store, parts.feeder, report, parts.scheduler, parts.work,
              [ this ] { news(); } ),
      slices_( parts.work, parts.scheduler, "status readers" ),
      slow_( parts.scheduler, "status readers", [ this ] { answerWatches(); } ),
      rest_( parts.scheduler, "status readers", [ this ] { answerWatches(); } ) {}

std::vector< Method > WatchMethods::methods() {
   using Self = WatchMethods;
   return {
      method( "WatchStatus", Right::read, *this, &Self::watchStatus, Replies::stream ),
      method( "Wait", Right::read, *this, &Self::wait ),
   };
}

void WatchMethods::clientGone( U64 client ) {
   auto const isOf = [ & ]( auto const & each ) { return each.call->client() == client; };
   std::erase_if( watches_, isOf );
   std::erase_if( waits_, isOf );
   ended();
}

// A watch or a wait has ended.
void WatchMethods::ended() {
   if ( watches_.empty() && waits_.empty() ) {
      model_.neededIs( false );
      answers_.clear();
   }
}

void WatchMethods::news() {
   answerWaits();
   answerWatches();
}

// --- WatchStatus ---------------------------------------------------------------------------------

void WatchMethods::watchStatus( Call const & call,
                                std::optional< std::string > const & interface ) {
   if ( interface ) {
      parts_.interface( *interface );
   }
   lasts( *call );
   model_.neededIs( true );
   if ( interface ) {
      model_.update( *interface );
   }
   watches_.push_back( { call, interface } );
   slices_.post( [ this ] { answerWatches(); } );
}

bool WatchMethods::wants( Watch const & watch ) const {
   if ( watch.interface ) {
      return !watch.answered || model_.last( *watch.interface ) > watch.seen;
   }
   return model_.complete() && ( !watch.answered || model_.last() > watch.seen );
}

// As many as a slice allows; the others in the next turn.
void WatchMethods::answerWatches() {
   std::erase_if( watches_, []( auto const & watch ) { return !watch.call->open(); } );
   ended();
   slices_.begin();
   auto oldest = model_.last();
   auto const rest = restEnd_ - parts_.scheduler->now();
   for ( auto & watch : watches_ ) {
      if ( wants( watch ) && watch.answered && rest > Gantry::Time( 0 ) ) {
         rest_.start( rest );
      } else if ( wants( watch ) && watch.call->waiting() > 0 ) {
         if ( !slow_.running() ) {
            slow_.start( slowPeriod );
         }
      } else if ( wants( watch ) ) {
         if ( !slices_.goesOn() ) {
            spent_ += slices_.spent();
            return slices_.post( [ this ] { answerWatches(); } );
         }
         auto const answer = answerTo( watch );
         watch.answered = true;
         watch.seen = model_.last();
         watch.call->replyContinues( answer );
      } else if ( watch.answered ) {
         watch.seen = model_.last(); // nothing of the changes concerns it
      }
      oldest = std::min( oldest, watch.seen );
   }
   model_.forget( oldest );
   spent_ += slices_.spent();
   if ( rest <= Gantry::Time( 0 ) ) {
      restEnd_ = parts_.scheduler->now() + restFactor * std::exchange( spent_, Gantry::Time( 0 ) );
   }
}

Varlink::Encoded const & WatchMethods::answerTo( Watch const & watch ) {
   if ( answersUpTo_ != model_.last() ) {
      answers_.clear();
      answersUpTo_ = model_.last();
   }
   auto & answer = answers_[ { watch.interface.value_or( "" ), watch.seen } ];
   if ( !answer ) {
      answer = Varlink::encodedAnswer( model_.difference( watch.seen, watch.interface ),
                                       Varlink::Continues::yes );
   }
   return answer;
}

// --- Wait ----------------------------------------------------------------------------------------

void WatchMethods::wait( Call const & call, std::string const & interface, Until until,
                         std::optional< U64 > timeoutMs ) {
   auto const & config = parts_.interface( interface );
   auto const now = report_.interface( config );
   if ( isMet( now, until ) ) {
      return call->reply( { { "interface", now } } );
   }
   lasts( *call );
   model_.neededIs( true );
   model_.update( interface );
   auto & kept = waits_.emplace_back( call, interface, until );
   kept.seen = model_.last( interface );
   if ( timeoutMs ) {
      auto const most = static_cast< U64 >( maxTimeout.count() );
      kept.timeout.emplace( parts_.scheduler, "wait", [ this, &kept ] { timedOut( kept ); } );
      kept.timeout->start( std::chrono::milliseconds( std::min( *timeoutMs, most ) ) );
   }
}

// Whether the call is answered: the interface is so, or is not configured any more.
bool WatchMethods::answerIfMet( Wait const & wait, Json const * now ) {
   if ( !now ) {
      answer( *wait.call, Errors::noSuchInterface( wait.interface ) );
      return true;
   }
   if ( !isMet( *now, wait.until ) ) {
      return false;
   }
   wait.call->reply( { { "interface", *now } } );
   return true;
}

void WatchMethods::answerWaits() {
   std::erase_if( waits_, [ this ]( auto & wait ) {
      auto const last = model_.last( wait.interface );
      if ( !wait.call->open() ) {
         return true;
      }
      bool const isNew = last > wait.seen;
      wait.seen = last;
      return isNew && answerIfMet( wait, model_.find( wait.interface ) );
   } );
   ended();
}

void WatchMethods::timedOut( Wait const & wait ) {
   model_.update( wait.interface ); // what has not been noticed
   if ( !answerIfMet( wait, model_.find( wait.interface ) ) ) {
      answer( *wait.call, Errors::timedOut( wait.interface, textOf( wait.until ) ) );
   }
   std::erase_if( waits_, [ & ]( auto const & each ) { return &each == &wait; } );
   ended();
}

} // namespace Valend
