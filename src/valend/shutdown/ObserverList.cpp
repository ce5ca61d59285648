#include "valend/shutdown/ObserverList.h"

#include "platform/quill/Fault.h"

namespace Valend {

void ObserverList::join( ShutdownObserver observer, ShutdownRecord & record ) {
   if ( lastStep_ ) {
      tellOne( observer, record );
   }
   observers_.push_back( std::move( observer ) );
}

void ObserverList::tell( ShutdownStep step, ShutdownRecord & record ) {
   lastStep_ = step;
   for ( auto const & observer : std::vector( observers_ ) ) { // one may bring another
      tellOne( observer, record );
   }
}

void ObserverList::tellOne( ShutdownObserver const & observer, ShutdownRecord & record ) const {
   try {
      observer( *lastStep_, record );
   } catch ( ... ) {
      if ( record.ending == ShutdownRecord::Ending::running ) {
         record.note( "an observer failed: " + Quill::exceptionText() );
      }
      Quill::reportFault( { typeid( ObserverList ), "Shutdown", typeid( void ), "observer" },
                          record.interface );
   }
}

} // namespace Valend
