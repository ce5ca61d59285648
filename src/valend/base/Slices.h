// Long work on the loop, in slices: between two of them the loop runs due timers, and answers.
#pragma once

#include "platform/gantry/WorkQueue.h"

#include <chrono>
#include <deque>
#include <functional>
#include <string>

namespace Valend {

class Slices {
 public:
   // How long a slice may take, but for the step that it ends with. A step should take a few microseconds.
   static constexpr std::chrono::microseconds limit{ 1000 };

   // Returns whether it has to be called again.
   using Step = std::function< bool() >;

   // `queue` must outlive this. `name` is for faults: "reload".
   Slices( Gantry::WorkQueue & queue, std::string name ) : posted_( queue, std::move( name ) ) {}

   // Calls `step`, in this turn of the loop and in later ones, until it returns false; after those that were added
   // before. What a step throws goes to the fault sink, and the step is not called again.
   void add( Step step );

 private:
   void run();

   Gantry::PostedWork posted_;
   std::deque< Step > steps_;
   bool posts_ = false; // run() is posted
};

} // namespace Valend
