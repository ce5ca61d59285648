// The observers of one shutdown or goodbye. One that throws is reported as a fault, and the others are
// told all the same.
#pragma once

#include "valend/shutdown/ShutdownRecord.h"

#include <optional>
#include <vector>

namespace Valend {

class ObserverList {
 public:
   // Tells the observer the last step, if there was one, and the further ones as they come. `record`
   // notes a failure, unless it is complete.
   void join( ShutdownObserver observer, ShutdownRecord & record );
   void tell( ShutdownStep step, ShutdownRecord & record );
   // The step that those who join are told, without telling it to the others.
   void lastStepIs( ShutdownStep step ) { lastStep_ = step; }

 private:
   void tellOne( ShutdownObserver const & observer, ShutdownRecord & record ) const;

   std::vector< ShutdownObserver > observers_;
   std::optional< ShutdownStep > lastStep_;
};

} // namespace Valend
