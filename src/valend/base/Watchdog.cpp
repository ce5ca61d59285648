#include "valend/base/Watchdog.h"

#include "valend/base/Notify.h"

#include <charconv>
#include <chrono>
#include <cstdlib>
#include <string_view>
#include <unistd.h>

namespace Valend {

namespace {

std::optional< long > numberIn( char const * variable ) {
   auto const * const value = std::getenv( variable );
   std::string_view const text( value ? value : "" );
   long number = 0;
   auto const result = std::from_chars( text.data(), text.data() + text.size(), number );
   bool const whole = result.ec == std::errc() && result.ptr == text.data() + text.size();
   return whole && number > 0 ? std::optional( number ) : std::nullopt;
}

std::optional< Gantry::Time > periodWanted() {
   auto const limit = numberIn( "WATCHDOG_USEC" );
   bool const forAnother =
      std::getenv( "WATCHDOG_PID" ) && numberIn( "WATCHDOG_PID" ) != ::getpid();
   if ( !limit || forAnother ) {
      return std::nullopt;
   }
   return std::chrono::microseconds( *limit ) / 2;
}

} // namespace

Watchdog::Watchdog( Quill::Ptr< Gantry::TaskScheduler > const & scheduler )
    : period_( periodWanted() ), timer_( scheduler, "watchdog", [ this ] { tell(); } ) {
   if ( period_ ) {
      timer_.start( *period_ );
   }
}

void Watchdog::tell() {
   notifyManager( "WATCHDOG=1" );
   timer_.start( *period_ );
}

} // namespace Valend
