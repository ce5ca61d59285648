// Writes records whose count grows (see History.h) to the journal: not each time, or a link that flaps
// would fill the journal and push out the shutdowns.
//
// The first repeat is written after `firstPause`, with those that happened meanwhile; the pauses double up to
// `lastPause`, so a link that flaps all day takes some 300 lines. A crash of valend loses the count of at most
// that time; a stop loses nothing.
#pragma once

#include "platform/gantry/Backoff.h"
#include "platform/gantry/Timer.h"
#include "valend/shutdown/History.h"
#include "valend/shutdown/Journal.h"

#include <map>

namespace Valend {

class Repeats {
 public:
   static constexpr std::chrono::seconds firstPause{ 5 };
   static constexpr std::chrono::minutes lastPause{ 5 };

   // `journal` must outlive this.
   Repeats( Journal & journal, Quill::Ptr< Gantry::TaskScheduler > scheduler );
   ~Repeats(); // writes what was not written yet
   Repeats( Repeats const & ) = delete;
   Repeats & operator=( Repeats const & ) = delete;

   // The record in `entry` has been repeated.
   void repeated( History::Entry const & entry );

 private:
   struct Repeated {
      U64 id = 0;
      ShutdownRecord record;
      bool written = true;
      Gantry::Time due{}; // when it is to be written, if it is not
      Gantry::Backoff pause{ firstPause, lastPause };
   };

   void writeDue();
   void write( Repeated & repeated );

   Journal & journal_;
   Quill::Ptr< Gantry::TaskScheduler > const scheduler_;
   std::map< std::string, Repeated > repeated_; // by interface
   Gantry::Timer timer_;
};

} // namespace Valend
