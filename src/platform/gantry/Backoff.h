// Growing pauses between attempts.
#pragma once

#include <algorithm>
#include <chrono>
#include <utility>

namespace Gantry {

// Pauses that double from `first` to `last`: for what is tried again after a failure.
class Backoff {
 public:
   constexpr Backoff( std::chrono::milliseconds first, std::chrono::milliseconds last ) noexcept
       : first_( first ), last_( last ), next_( first ) {}

   // The pause to make now; the next one is longer.
   std::chrono::milliseconds take() noexcept {
      return std::exchange( next_, std::min( next_ * 2, last_ ) );
   }
   // After a success: the next pause is the first one again.
   void reset() noexcept { next_ = first_; }

 private:
   std::chrono::milliseconds first_;
   std::chrono::milliseconds last_;
   std::chrono::milliseconds next_;
};

} // namespace Gantry
