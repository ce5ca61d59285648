#include "valend/shutdown/Goodbye.h"

#include "platform/quill/Fault.h"
#include "valend/shutdown/FrameSending.h"

namespace Valend {

namespace {

constexpr std::chrono::milliseconds lookInterval{ 2 }; // how often to look again

Quill::FaultSource goodbyeFault( char const * event ) {
   return { typeid( Goodbye ), "Goodbye", typeid( void ), event };
}

} // namespace

Goodbye::Goodbye( Surroundings const & surroundings, ShutdownRecord record )
    : surroundings_( surroundings ), delay_( surroundings.store, record.interface ),
      record_( std::move( record ) ), requestedAt_( surroundings.scheduler->now() ),
      timer_( surroundings.scheduler, "goodbye::" + record_.interface,
              [ this ] { guard( [ this ] { flush(); } ); } ) {
   record_.when = std::chrono::system_clock::now();
}

// Every way in from the loop. Whatever `work` throws, the goodbye ends.
template < class Work > void Goodbye::guard( Work const & work ) {
   try {
      work();
   } catch ( ... ) {
      auto const why = Quill::exceptionText();
      Quill::reportFault( goodbyeFault( "goodbye" ), record_.interface );
      end( why );
   }
}

void Goodbye::begin() {
   guard( [ this ] { send(); } );
}

void Goodbye::join( ShutdownObserver observer ) {
   observers_.join( std::move( observer ), record_ );
}

void Goodbye::send() {
   if ( !delay_.isReady() ) {
      return end( delay_.whyNotReady() );
   }
   delay_.lowerFlag(); // the link may have been set up outside valend since the last shutdown
   sendFrames( delay_, queuedFrames( delay_, surroundings_.store ), surroundings_.port,
               record_.place, *surroundings_.scheduler, record_ );
   delay_.lowerFlag();
   deadline_ = surroundings_.scheduler->now() + flushTimeout;
   flush();
}

void Goodbye::flush() {
   auto const bytes = surroundings_.port.outstandingBytes( record_.place );
   if ( bytes && surroundings_.scheduler->now() < deadline_ ) {
      return timer_.start( lookInterval );
   }
   record_.unflushedBytes = bytes;
   end( "" );
}

void Goodbye::end( std::string const & why ) {
   if ( record_.ending != ShutdownRecord::Ending::running ) {
      return;
   }
   record_.note( why );
   record_.ending = ShutdownRecord::Ending::goodbye;
   record_.total = std::chrono::duration_cast< std::chrono::milliseconds >(
      surroundings_.scheduler->now() - requestedAt_ );
   timer_.stop();
   auto const name = [ & ] { return record_.interface; };
   Quill::underFaultBoundary( goodbyeFault( "ended" ), name,
                              [ & ] { surroundings_.ended( *this ); } );
   observers_.tell( ShutdownStep::ended, record_ );
}

} // namespace Valend
