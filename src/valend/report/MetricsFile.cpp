#include "valend/report/MetricsFile.h"

#include "valend/base/AtomicFile.h"

#include <unistd.h>
#include <utility>

namespace Valend {

using Work = Valen::Linux::Worker::Work;

// What the worker has: no other thread uses it.
class MetricsFile::File {
 public:
   explicit File( std::string path ) : path_( std::move( path ) ) {}

   // The collector reads names that end in ".prom", so not the file that is being written. It runs as a
   // user of its own, so everyone may read the file, which holds counters and names of agents.
   std::string write( std::string const & text ) {
      auto error = writeAtomically( path_, text, 0644 );
      written_ |= error.empty();
      return error;
   }
   void remove() const {
      if ( written_ ) {
         ::unlink( path_.c_str() );
      }
   }

 private:
   std::string const path_;
   bool written_ = false; // ever: the file may be another daemon's until then
};

MetricsFile::MetricsFile( std::string path, std::function< std::string() > text,
                          Conditions & conditions, Valen::Linux::Worker & worker,
                          Quill::Ptr< Gantry::TaskScheduler > scheduler )
    : file_( path.empty() ? nullptr : std::make_shared< File >( std::move( path ) ) ),
      text_( std::move( text ) ), condition_( conditions, "metrics-file" ), worker_( worker ),
      timer_( std::move( scheduler ), "metricsFile", [ this ] { write(); } ) {
   touch();
}

MetricsFile::~MetricsFile() {
   if ( file_ ) {
      worker_.run( [ file = file_ ]() -> Work {
         file->remove();
         return nullptr;
      } );
   }
}

void MetricsFile::touch() {
   if ( file_ && !soon_ ) {
      soon_ = true;
      timer_.start( soon );
   }
}

void MetricsFile::write() {
   soon_ = false;
   timer_.start( period );
   if ( std::exchange( writing_, true ) ) {
      again_ = true;
      return;
   }
   worker_.run( [ this, file = file_, text = text_() ]() -> Work {
      return [ this, error = file->write( text ) ] { written( error ); };
   } );
}

void MetricsFile::written( std::string const & error ) {
   writing_ = false;
   condition_.update( error );
   if ( std::exchange( again_, false ) ) {
      touch();
   }
}

} // namespace Valend
