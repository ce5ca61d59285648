// The condition "log": lines of the log are being dropped, because their reader has stopped.
#pragma once

#include "linux/StandardError.h"
#include "platform/gantry/Timer.h"
#include "valend/base/Conditions.h"

namespace Valend {

class LogCondition {
 public:
   // How often it looks whether lines are still dropped.
   static constexpr std::chrono::milliseconds period{ 500 };

   // All must outlive this.
   LogCondition( Valen::Linux::StandardError & output, Conditions & conditions,
                 Quill::Ptr< Gantry::TaskScheduler > const & scheduler );
   ~LogCondition();
   LogCondition( LogCondition const & ) = delete;
   LogCondition & operator=( LogCondition const & ) = delete;

 private:
   void look();

   Valen::Linux::StandardError & output_;
   Condition condition_;
   Gantry::Timer timer_;
};

} // namespace Valend
