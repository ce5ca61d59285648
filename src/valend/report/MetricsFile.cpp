#include "valend/report/MetricsFile.h"

#include "valend/base/AtomicFile.h"
#include "valend/base/Log.h"

#include <unistd.h>

namespace Valend {

MetricsFile::MetricsFile( std::string path, std::function< std::string() > text,
                          Quill::Ptr< Gantry::TaskScheduler > scheduler )
    : path_( std::move( path ) ), text_( std::move( text ) ),
      timer_( std::move( scheduler ), "metricsFile", [ this ] { write(); } ) {
   touch();
}

MetricsFile::~MetricsFile() {
   if ( !path_.empty() ) {
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
   // The collector takes names that end in ".prom", and so not the file that is not whole yet.
   auto const trouble = writeAtomically( path_, text_(), 0644 );
   if ( trouble == trouble_ ) {
      return;
   }
   trouble_ = trouble;
   trouble_.empty() ? log( LogLevel::notice, "the metrics file is written again" )
                    : log( LogLevel::error, "the metrics file is not written: " + trouble_ );
}

} // namespace Valend
