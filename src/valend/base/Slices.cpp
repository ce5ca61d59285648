#include "valend/base/Slices.h"

#include <utility>

namespace Valend {

void Slices::add( Step step ) {
   steps_.push_back( std::move( step ) );
   if ( !std::exchange( posts_, true ) ) {
      posted_.post( [ this ] { run(); } );
   }
}

void Slices::run() {
   if ( steps_.empty() ) {
      posts_ = false;
      return;
   }
   posted_.post( [ this ] { run(); } ); // in the next turn, even if a step throws
   auto const end = std::chrono::steady_clock::now() + limit;
   do {
      auto step = std::move( steps_.front() );
      steps_.pop_front();
      if ( step() ) {
         steps_.push_front( std::move( step ) );
      }
   } while ( !steps_.empty() && std::chrono::steady_clock::now() < end );
}

} // namespace Valend
