// Work of which the loop begins one per turn, so that due timers run in between.
#pragma once

#include "platform/gantry/WorkQueue.h"

#include <deque>
#include <functional>
#include <string>

namespace Valend {

class OnePerTurn {
 public:
   // Returns false if there was nothing to begin: then the next one begins in the same turn.
   using Begin = std::function< bool() >;

   // `queue` must outlive this. `name` is for faults: "link controller".
   OnePerTurn( Gantry::WorkQueue & queue, std::string name )
       : posted_( queue, std::move( name ) ) {}

   // Calls `begin` in a later turn, after those that were added before.
   void add( Begin begin );

 private:
   void beginNext();

   Gantry::PostedWork posted_;
   std::deque< Begin > waiting_; // oldest first
};

} // namespace Valend
