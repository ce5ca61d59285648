#include "valend/report/ReadinessLoss.h"

namespace Valend {

ReadinessLoss::ReadinessLoss( Feeder const & feeder, StatusReport const & report,
                              Quill::Ptr< Gantry::TaskScheduler > scheduler )
    : feeder_( feeder ), report_( report ),
      timer_( std::move( scheduler ), "readinessLoss", [ this ] { look(); } ) {}

std::vector< std::string > ReadinessLoss::ready() const {
   std::vector< std::string > names;
   for ( auto const & [ name, config ] : feeder_.config().interfaces ) {
      if ( report_.ready( name ) ) {
         names.push_back( name );
      }
   }
   return names;
}

void ReadinessLoss::reportSince( std::vector< std::string > before, Done done ) {
   removeReady( before );
   if ( before.empty() ) {
      return done( {} );
   }
   checks_.push_back( { std::move( before ), std::move( done ), settle } );
   timer_.start( period );
}

// Leaves those that are configured and not ready.
void ReadinessLoss::removeReady( std::vector< std::string > & names ) const {
   auto const & interfaces = feeder_.config().interfaces;
   std::erase_if( names, [ & ]( auto const & name ) {
      return !interfaces.contains( name ) || report_.ready( name );
   } );
}

std::vector< ReadinessLoss::Lost >
ReadinessLoss::withReasons( std::vector< std::string > const & names ) const {
   std::vector< Lost > lost;
   for ( auto const & name : names ) {
      lost.push_back( { name, report_.notReady( feeder_.config().interfaces.at( name ) ) } );
   }
   return lost;
}

void ReadinessLoss::look() {
   for ( auto & check : std::exchange( checks_, {} ) ) { // `done` may add others
      removeReady( check.lost );
      check.left -= period;
      if ( check.lost.empty() || check.left.count() <= 0 ) {
         check.done( withReasons( check.lost ) );
      } else {
         checks_.push_back( std::move( check ) );
      }
   }
   if ( !checks_.empty() ) {
      timer_.start( period );
   }
}

} // namespace Valend
