// The trace as in production: all levels go to the ring, in a mapped file; no text output.
#pragma once

#include "linux/TraceOutputs.h"

namespace Valen::Bench {

class ProductionTrace {
 public:
   ProductionTrace() : ring_( "/run/valen/bench.ring", 4 << 20 ) {
      Quill::traceLevelsIs( "*/0-1" );
   }
   ~ProductionTrace() { Quill::traceLevelsIs( "" ); }
   ProductionTrace( ProductionTrace const & ) = delete;
   ProductionTrace & operator=( ProductionTrace const & ) = delete;

 private:
   Linux::RingFile ring_;
};

} // namespace Valen::Bench
