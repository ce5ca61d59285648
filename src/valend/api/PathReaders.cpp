#include "valend/api/PathReaders.h"

#include <algorithm>

namespace Valend {

using Varlink::Continues;

namespace {

Varlink::Encoded valueAnswer( StoreView::Text const & value, Continues continues ) {
   return Varlink::encodedAnswer( "{\"value\":" + ( value ? *value : "null" ) + "}", continues );
}

} // namespace

PathReaders::PathReaders( Parts const & parts, StoreTexts & texts, std::string path )
    : parts_( parts ), path_( path ),
      view_( *parts.store.entityManager, texts, std::move( path ), [ this ] { lookLater(); } ),
      slices_( parts.work, parts.scheduler, "store readers" ),
      rest_( parts.scheduler, "store readers", [ this ] { look(); } ),
      slow_( parts.scheduler, "store readers", [ this ] { answerWatches(); } ) {}

void PathReaders::show( Call const & call ) {
   shows_.push_back( call );
   if ( view_.ready() ) {
      readNow();
   }
}

void PathReaders::watch( Call const & call ) {
   watches_.push_back( { call } );
   lookLater();
}

void PathReaders::clientGone( U64 client ) {
   std::erase_if( watches_,
                  [ & ]( auto const & watch ) { return watch.call->client() == client; } );
   std::erase_if( shows_, [ & ]( auto const & call ) { return call->client() == client; } );
}

// --- Looking -------------------------------------------------------------------------------------

void PathReaders::lookLater() {
   if ( !std::exchange( pending_, true ) ) {
      slices_.post( [ this ] { look(); } );
   }
}

void PathReaders::look() {
   pending_ = false;
   if ( empty() ) {
      return;
   }
   auto const now = parts_.scheduler->now();
   onlyNew_ = now < restEnd_;
   if ( onlyNew_ ) {
      rest_.start( restEnd_ - now );
      if ( !hasNewReader() ) {
         return;
      }
   }
   if ( view_.ready() ) {
      readNow();
   }
}

bool PathReaders::hasNewReader() const {
   return !shows_.empty() || std::any_of( watches_.begin(), watches_.end(),
                                          []( auto const & watch ) { return !watch.answered; } );
}

// Reads the value, and answers with it.
void PathReaders::readNow() {
   auto const began = parts_.scheduler->now();
   try {
      auto const value = view_.text();
      if ( value != value_ ) {
         shown_ = watched_ = nullptr;
      }
      value_ = value;
   } catch ( Refusal const & e ) { // it is too large, or has become so
      return fail( e );
   }
   answerShows();
   auto const spent = parts_.scheduler->now() - began;
   answerWatches();
   if ( !onlyNew_ ) {
      auto const bytes = ( value_ ? value_->size() : 0 ) * watches_.size();
      restEnd_ = began + restFactor * spent + std::chrono::milliseconds( bytes / bytesPerMs );
   }
}

// --- Answering -----------------------------------------------------------------------------------

void PathReaders::fail( Refusal const & refusal ) {
   for ( auto const & call : std::exchange( shows_, {} ) ) {
      answer( *call, refusal );
   }
   for ( auto const & watch : std::exchange( watches_, {} ) ) {
      answer( *watch.call, refusal );
   }
}

void PathReaders::answerShows() {
   for ( auto const & call : std::exchange( shows_, {} ) ) {
      if ( !value_ ) {
         answer( *call, Errors::noSuchPath( path_ ) );
         continue;
      }
      if ( !shown_ ) {
         shown_ = valueAnswer( value_, Continues::no );
      }
      call->reply( shown_ );
   }
}

bool PathReaders::wants( Watch const & watch ) const {
   if ( watch.answered && onlyNew_ ) {
      return false;
   }
   if ( !watch.answered || watch.last == value_ ) {
      return !watch.answered;
   }
   return !watch.last || !value_ || *watch.last != *value_; // it may have changed and changed back
}

// As many as a slice allows; the others in the next turn.
void PathReaders::answerWatches() {
   std::erase_if( watches_, []( auto const & watch ) { return !watch.call->open(); } );
   slices_.begin();
   for ( auto & watch : watches_ ) {
      if ( !wants( watch ) ) {
         continue;
      }
      if ( watch.call->waiting() > 0 ) {
         if ( !slow_.running() ) {
            slow_.start( slowPeriod );
         }
         continue;
      }
      if ( !slices_.goesOn() ) {
         return slices_.post( [ this ] { answerWatches(); } );
      }
      if ( !watched_ ) {
         watched_ = valueAnswer( value_, Continues::yes );
      }
      watch.last = value_;
      watch.answered = true;
      watch.call->replyContinues( watched_ );
   }
}

} // namespace Valend
