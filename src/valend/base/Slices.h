// Long work on the loop, in slices: between two of them the loop runs due timers, and answers.
//
// There are two kinds. Steps are given to add(), which calls them. Work that goes through something itself begins a
// slice, and asks before each of its steps whether that goes on; if not, it posts what is left.
#pragma once

#include "platform/gantry/TaskScheduler.h"
#include "platform/gantry/WorkQueue.h"

#include <chrono>
#include <deque>
#include <functional>
#include <string>

namespace Valend {

class Slices {
 public:
   // How long a slice may take, but for the step that it ends with, and how many steps it may have, for a clock that
   // does not move. A step should take a few microseconds.
   static constexpr std::chrono::milliseconds longest{ 1 };
   static constexpr unsigned mostSteps = 200;

   // Returns whether it has to be called again.
   using Step = std::function< bool() >;

   // `queue` must outlive this. `name` is for faults: "reload".
   Slices( Gantry::WorkQueue & queue, Quill::Ptr< Gantry::TaskScheduler > scheduler,
           std::string name )
       : scheduler_( std::move( scheduler ) ), posted_( queue, std::move( name ) ) {}

   // Calls `step`, in this turn of the loop and in later ones, until it returns false; after those that were added
   // before. What a step throws goes to the fault sink, and the step is not called again.
   void add( Step step );

   // Begins a slice.
   void begin() noexcept;
   // Whether the next step belongs to the slice. The first one always does.
   bool goesOn() noexcept;
   // How long the slice has taken so far.
   Gantry::Time spent() const noexcept { return scheduler_->now() - begin_; }
   // Runs `work` in the next turn.
   void post( Gantry::WorkQueue::Work work ) { posted_.post( std::move( work ) ); }

 private:
   void run();

   Quill::Ptr< Gantry::TaskScheduler > const scheduler_;
   Gantry::PostedWork posted_;
   Gantry::Time begin_{};    // of the slice
   unsigned stepsBegun_ = 0; // in it
   std::deque< Step > added_;
   bool posts_ = false; // run() is posted
};

} // namespace Valend
