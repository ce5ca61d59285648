#include "platform/gantry/WorkQueue.h"

#include "platform/quill/Fault.h"

#include <utility>

namespace Gantry {

void WorkQueue::post( Work work ) {
   entries_.push_back( { std::move( work ), false, {} } );
}

void WorkQueue::run( Work const & after ) {
   auto const entries = std::exchange( entries_, {} );
   for ( auto const & entry : entries ) {
      run( entry );
      if ( after ) {
         after();
      }
   }
}

void WorkQueue::run( Entry const & entry ) {
   auto const owner = entry.owner.lock();
   if ( entry.owned && !owner ) {
      return;
   }
   Quill::underFaultBoundary(
      { typeid( WorkQueue ), "WorkQueue" }, [ & ] { return owner ? owner->name : std::string(); },
      entry.work );
}

PostedWork::PostedWork( WorkQueue & queue, std::string name )
    : queue_( queue ), owner_( std::make_shared< WorkQueue::Owner const >(
                          WorkQueue::Owner{ std::move( name ) } ) ) {}

void PostedWork::post( WorkQueue::Work work ) {
   queue_.entries_.push_back( { std::move( work ), true, owner_ } );
}

} // namespace Gantry
