#include "valend/shutdown/History.h"

namespace Valend {

namespace {

bool isRepeat( ShutdownRecord const & record, ShutdownRecord const & newest ) {
   using Ending = ShutdownRecord::Ending;
   return record.ending == Ending::wentDown && newest.ending == Ending::wentDown &&
          record.why == newest.why && record.place == newest.place &&
          record.when - newest.last() <= History::repeatWithin;
}

} // namespace

void History::add( U64 id, ShutdownRecord record ) {
   auto const interface = record.interface;
   auto & own = interfaces_[ interface ];
   own.records.push_back( records_.insert( records_.end(), std::move( record ) ) );
   own.newestId = id;
   if ( own.records.size() > interfaceLimit ) {
      forgetOldest( interface );
   }
   if ( records_.size() > limit ) {
      forgetOldest( std::string( records_.front().interface ) );
   }
}

std::optional< History::Entry > History::repeat( ShutdownRecord const & record ) {
   auto const own = interfaces_.find( record.interface );
   if ( own == interfaces_.end() || !isRepeat( record, *own->second.records.back() ) ) {
      return std::nullopt;
   }
   auto const newest = own->second.records.back();
   newest->count += record.count;
   newest->until = record.last();
   records_.splice( records_.end(), records_, newest );
   return Entry{ own->second.newestId, *newest };
}

void History::forgetOldest( std::string const & interface ) {
   auto const own = interfaces_.find( interface );
   records_.erase( own->second.records.front() );
   own->second.records.pop_front();
   if ( own->second.records.empty() ) {
      interfaces_.erase( own );
   }
}

} // namespace Valend
