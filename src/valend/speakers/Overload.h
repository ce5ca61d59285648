// The conditions "speakers" and "copies": more speakers, or more frames of them, than valend learns from. Raised once,
// however many there are, and cleared when there were no more for a while.
#pragma once

#include "egress/Copies.h"
#include "platform/gantry/Timer.h"
#include "valend/base/Conditions.h"
#include "valend/speakers/SpeakerTable.h"

#include <functional>
#include <map>

namespace Valend {

class Overload {
 public:
   static constexpr std::chrono::seconds period{ 1 }; // of looking
   static constexpr std::chrono::seconds calm{ 60 };

   // All must outlive this.
   Overload( SpeakerTable const & table, std::function< Egress::Lost() > lost,
             Conditions & conditions, Quill::Ptr< Gantry::TaskScheduler > scheduler );
   Overload( Overload const & ) = delete;
   Overload & operator=( Overload const & ) = delete;

   // Frames were read.
   void lookSoon();

 private:
   // A condition that lasts `calm` longer than its reason.
   struct Lasting {
      Condition condition;
      Gantry::Time last{};
   };

   void look();
   std::string crowded();
   std::string full();
   void update( Lasting & lasting, std::string const & text );

   SpeakerTable const & table_;
   std::function< Egress::Lost() > const lost_;
   Quill::Ptr< Gantry::TaskScheduler > const scheduler_;
   Lasting speakers_;
   Lasting copies_;
   std::map< std::string, U64 > madeRoom_; // as of the last look
   U64 full_ = 0;
   Gantry::Timer timer_;
};

} // namespace Valend
