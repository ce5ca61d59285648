#include "valend/report/ReadinessLoss.h"

#include <utility>

namespace Valend {

ReadinessLoss::ReadinessLoss( Feeder const & feeder, StatusReport const & report,
                              Quill::Ptr< Gantry::TaskScheduler > scheduler,
                              Gantry::WorkQueue & work )
    : feeder_( feeder ), report_( report ), slices_( work, scheduler, "readiness" ),
      timer_( std::move( scheduler ), "readinessLoss", [ this ] {
         for ( auto const & check : std::exchange( checks_, {} ) ) {
            pass( check );
         }
      } ) {}

Slices::Step ReadinessLoss::readyInto( std::vector< std::string > & names ) const {
   names.clear();
   return [ this, &names, last = std::string() ]() mutable { // no name is empty
      auto const & interfaces = feeder_.config().interfaces;
      auto const found = interfaces.upper_bound( last );
      if ( found == interfaces.end() ) {
         return false;
      }
      last = found->first;
      if ( report_.ready( last ) ) {
         names.push_back( last );
      }
      return true;
   };
}

void ReadinessLoss::reportSince( std::vector< std::string > before, Done done ) {
   pass( std::make_shared< Check >(
      Check{ std::move( before ), 0, {}, {}, std::move( done ), settle } ) );
}

bool ReadinessLoss::isLost( std::string const & name ) const {
   return feeder_.config().interfaces.contains( name ) && !report_.ready( name );
}

void ReadinessLoss::pass( CheckPtr const & check ) {
   slices_.add( [ this, check ] {
      if ( check->next == check->names.size() ) {
         passEnded( check );
         return false;
      }
      auto & name = check->names[ check->next++ ];
      if ( isLost( name ) ) {
         check->lost.push_back( std::move( name ) );
      }
      return true;
   } );
}

void ReadinessLoss::passEnded( CheckPtr const & check ) {
   check->names = std::exchange( check->lost, {} );
   check->next = 0;
   if ( check->names.empty() || check->left.count() <= 0 ) {
      return slices_.add( [ this, check ] { return reasonNext( *check ); } );
   }
   check->left -= period;
   checks_.push_back( check );
   if ( !timer_.running() ) {
      timer_.start( period );
   }
}

bool ReadinessLoss::reasonNext( Check & check ) const {
   if ( check.next == check.names.size() ) {
      check.done( check.reasons );
      return false;
   }
   auto const & name = check.names[ check.next++ ];
   if ( isLost( name ) ) {
      check.reasons.push_back(
         { name, report_.notReady( feeder_.config().interfaces.at( name ) ) } );
   }
   return true;
}

} // namespace Valend
