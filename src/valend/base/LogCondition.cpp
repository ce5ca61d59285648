#include "valend/base/LogCondition.h"

namespace Valend {

LogCondition::LogCondition( Valen::Linux::StandardError & output, Conditions & conditions,
                            Quill::Ptr< Gantry::TaskScheduler > const & scheduler )
    : output_( output ), condition_( conditions, "log" ),
      timer_( scheduler, "log", [ this ] { look(); } ) {
   // Later, because raising the condition writes a line.
   output_.droppingIs( [ this ] { timer_.start( std::chrono::milliseconds( 0 ) ); } );
}

LogCondition::~LogCondition() {
   output_.droppingIs( nullptr );
}

void LogCondition::look() {
   if ( !output_.dropping() ) {
      return condition_.clear();
   }
   condition_.raise( Valen::Linux::StandardError::isJournal()
                        ? "the system journal does not read; lines are dropped"
                        : "standard error is not read; lines are dropped" );
   timer_.start( period );
}

} // namespace Valend
