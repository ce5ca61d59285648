#include "valend/report/MetricsFile.h"

#include "valend/base/AtomicFile.h"

#include <unistd.h>

namespace Valend {

MetricsFile::MetricsFile( std::string path, std::function< std::string() > text,
                          Conditions & conditions, Quill::Ptr< Gantry::TaskScheduler > scheduler )
    : path_( std::move( path ) ), text_( std::move( text ) ),
      condition_( conditions, "metrics-file" ),
      timer_( std::move( scheduler ), "metricsFile", [ this ] { write(); } ) {
   touch();
}

MetricsFile::~MetricsFile() {
   if ( written_ ) {
      ::unlink( path_.c_str() );
   }
}

void MetricsFile::touch() {
   if ( !path_.empty() && !soon_ ) {
      soon_ = true;
      timer_.start( soon );
   }
}

void MetricsFile::write() {
   soon_ = false;
   timer_.start( period );
   // The collector reads names that end in ".prom", so not the file that is being written. It runs as a
   // user of its own, so everyone may read the file, which holds counters and names of agents.
   auto const error = writeAtomically( path_, text_(), 0644 );
   written_ |= error.empty();
   condition_.update( error );
}

} // namespace Valend
