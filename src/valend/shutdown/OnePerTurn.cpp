#include "valend/shutdown/OnePerTurn.h"

#include <utility>

namespace Valend {

void OnePerTurn::add( Begin begin ) {
   waiting_.push_back( std::move( begin ) );
   if ( waiting_.size() == 1 ) {
      posted_.post( [ this ] { beginNext(); } );
   }
}

void OnePerTurn::beginNext() {
   bool begun = false;
   while ( !begun && !waiting_.empty() ) {
      auto const begin = std::move( waiting_.front() );
      waiting_.pop_front();
      begun = begin();
   }
   if ( !waiting_.empty() ) {
      posted_.post( [ this ] { beginNext(); } );
   }
}

} // namespace Valend
