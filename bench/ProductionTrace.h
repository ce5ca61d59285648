// The trace as an agent in production has it: the ring on, all levels, in a mapped file; no text.
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
