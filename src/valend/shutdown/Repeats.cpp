#include "valend/shutdown/Repeats.h"

#include <algorithm>

namespace Valend {

Repeats::Repeats( Journal & journal, Quill::Ptr< Gantry::TaskScheduler > scheduler )
    : journal_( journal ), scheduler_( std::move( scheduler ) ),
      timer_( scheduler_, "repeats", [ this ] { writeDue(); } ) {}

Repeats::~Repeats() {
   for ( auto & [ interface, repeated ] : repeated_ ) {
      if ( !repeated.written ) {
         write( repeated );
      }
   }
}

void Repeats::repeated( History::Entry const & entry ) {
   auto & repeated = repeated_[ entry.record.interface ];
   if ( repeated.id != entry.id ) {
      if ( !repeated.written ) {
         write( repeated );
      }
      repeated = Repeated();
      repeated.id = entry.id;
   }
   repeated.record = entry.record;
   if ( !repeated.written ) {
      return;
   }
   repeated.written = false;
   repeated.due = scheduler_->now() + repeated.pause.take();
   if ( !timer_.running() ) {
      timer_.start( firstPause ); // none is due earlier
   }
}

void Repeats::writeDue() {
   bool waiting = false;
   for ( auto & [ interface, repeated ] : repeated_ ) {
      if ( !repeated.written && repeated.due <= scheduler_->now() ) {
         write( repeated );
      }
      waiting |= !repeated.written;
   }
   if ( waiting ) {
      timer_.start( firstPause );
   }
}

void Repeats::write( Repeated & repeated ) {
   JournalEntry entry;
   entry.id = repeated.id;
   entry.phase = Phase::ended;
   entry.requestedAt = journal_.uptime();
   entry.record = repeated.record;
   journal_.write( entry );
   repeated.written = true;
}

} // namespace Valend
