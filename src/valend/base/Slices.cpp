#include "valend/base/Slices.h"

#include <utility>

namespace Valend {

void Slices::begin() noexcept {
   begin_ = scheduler_->now();
   stepsBegun_ = 0;
}

bool Slices::goesOn() noexcept {
   ++stepsBegun_;
   return stepsBegun_ == 1 || ( stepsBegun_ <= mostSteps && spent() < longest );
}

void Slices::add( Step step ) {
   added_.push_back( std::move( step ) );
   if ( !std::exchange( posts_, true ) ) {
      post( [ this ] { run(); } );
   }
}

void Slices::run() {
   if ( added_.empty() ) {
      posts_ = false;
      return;
   }
   post( [ this ] { run(); } ); // even if a step throws
   begin();
   while ( !added_.empty() && goesOn() ) {
      auto step = std::move( added_.front() );
      added_.pop_front();
      if ( step() ) {
         added_.push_front( std::move( step ) );
      }
   }
}

} // namespace Valend
