#include "valend/shutdown/Enablings.h"

#include "platform/quill/Fault.h"

#include <utility>

namespace Valend {

Enablings::Enablings( LinkPort & port, Quill::Ptr< Gantry::TaskScheduler > scheduler,
                      Answered answered )
    : port_( port ), scheduler_( std::move( scheduler ) ), answered_( std::move( answered ) ) {}

void Enablings::begin( std::string const & interface, LinkPlace const & place,
                       EnableObserver observer ) {
   auto & enabling = running_[ interface ];
   enabling.observers.push_back( std::move( observer ) );
   enabling.request = port_.request(
      place, LinkChange::up, scheduler_->now(),
      [ this, interface, place ]( auto const & answer ) { end( interface, place, answer ); } );
}

void Enablings::join( std::string const & interface, EnableObserver observer ) {
   running_.at( interface ).observers.push_back( std::move( observer ) );
}

void Enablings::end( std::string const & interface, LinkPlace const & place,
                     LinkAnswer const & answer ) {
   auto const enabling = running_.extract( interface );
   answered_( interface, place, answer );
   auto const result = [ & ]() -> EnableResult {
      if ( answer.error ) {
         return whyNotUp( answer );
      }
      return answer.changed ? Enabled::up : Enabled::alreadyUp;
   };
   for ( auto const & observer : enabling.mapped().observers ) {
      Quill::underFaultBoundary(
         { typeid( Enablings ), "Enablings", typeid( void ), "enabled" },
         [ & ] { return interface; }, [ & ] { observer( result() ); } );
   }
}

std::vector< std::string > Enablings::pendingLines() const {
   std::vector< std::string > lines;
   for ( auto const & [ interface, enabling ] : running_ ) {
      lines.push_back( interface +
                       ( enabling.request->begun()
                            ? ": link being set up at this moment"
                            : ": request to set the link up dropped; link left unchanged" ) );
   }
   return lines;
}

} // namespace Valend
