#include "valend/speakers/Overload.h"

#include <utility>

namespace Valend {

Overload::Overload( SpeakerTable const & table, std::function< Egress::Lost() > lost,
                    Conditions & conditions, Quill::Ptr< Gantry::TaskScheduler > scheduler )
    : table_( table ), lost_( std::move( lost ) ),
      scheduler_( std::move( scheduler ) ), speakers_{ Condition( conditions, "speakers" ) },
      copies_{ Condition( conditions, "copies" ) },
      timer_( scheduler_, "overload", [ this ] { look(); } ) {}

void Overload::lookSoon() {
   if ( !timer_.running() ) {
      timer_.start( period );
   }
}

void Overload::look() {
   update( speakers_, crowded() );
   update( copies_, full() );
   if ( speakers_.condition.raised() || copies_.condition.raised() ) {
      timer_.start( period );
   }
}

// What has happened since the last look; empty if nothing.
std::string Overload::crowded() {
   std::string text;
   for ( auto const & [ protocol, counters ] : table_.counters() ) {
      if ( std::exchange( madeRoom_[ protocol ], counters.madeRoom ) != counters.madeRoom ) {
         text = "more than " + std::to_string( SpeakerTable::mostOfAProtocol ) + " speakers of " +
                protocol + " on device " + counters.crowded.device + " in namespace \"" +
                counters.crowded.netNs + "\"; those heard least recently are forgotten";
      }
   }
   return text;
}

std::string Overload::full() {
   auto const full = lost_().full;
   return std::exchange( full_, full ) != full
             ? "daemons send frames faster than valend reads them; their goodbyes may be outdated"
             : "";
}

// The text stays as it was raised: each change would be logged.
void Overload::update( Lasting & lasting, std::string const & text ) {
   auto const now = scheduler_->now();
   if ( !text.empty() ) {
      lasting.last = now;
      if ( !lasting.condition.raised() ) {
         lasting.condition.raise( text );
      }
   } else if ( now - lasting.last >= calm ) {
      lasting.condition.clear();
   }
}

} // namespace Valend
