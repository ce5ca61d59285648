#include "valend/shutdown/OwedLines.h"

namespace Valend {

void OwedLines::add( Line line ) {
   if ( auto const old = byId_.find( line.id ); old != byId_.end() ) {
      remove( old->second );
   }
   bytes_ += line.text.size();
   auto const id = line.id;
   byId_[ id ] = lines_.insert( lines_.end(), std::move( line ) );
   for ( auto each = lines_.begin(); bytes_ > limit && each != lines_.end(); ) {
      each = each->kind == Kind::optional ? remove( each ) : std::next( each );
   }
}

OwedLines::Lines::iterator OwedLines::remove( Lines::iterator line ) {
   bytes_ -= line->text.size();
   byId_.erase( line->id );
   return lines_.erase( line );
}

} // namespace Valend
