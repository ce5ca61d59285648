#include "valend/shutdown/ShutdownStatistics.h"

namespace Valend {

using Ending = ShutdownRecord::Ending;

void ShutdownStatistics::add( ShutdownRecord const & record ) {
   resumed_ += record.resumed;
   unflushed_ += record.unflushedBytes > 0;
   auto & totals = totals_[ record.interface ];
   if ( record.ending == Ending::goodbye ) {
      ++goodbyes_;
   } else {
      ++endings_[ record.ending ];
   }
   if ( record.ending == Ending::wentDown ) {
      ++totals.wentDown;
      return;
   }
   totals.shutdowns += record.isShutdown();
   totals.sent += record.sent;
   totals.failed += record.failed;
   totals.aborts += record.ending == Ending::aborted;
   if ( record.failed ) {
      totals.failReason = record.failReason;
   }
   for ( auto const & frames : record.agents ) {
      auto & sum = agents_[ frames.agent ];
      sum.agent = frames.agent;
      sum.sent += frames.sent;
      for ( auto const & [ number, count ] : frames.refused ) {
         sum.refused[ number ] += count;
      }
   }
   for ( auto const & speaker : record.muted ) {
      heldBack_[ speaker.protocol ] += speaker.heldBack;
      greetings_[ speaker.protocol ] += speaker.greeted;
   }
   if ( record.withDelay ) {
      addHeld( record.held );
   }
}

void ShutdownStatistics::addHeld( std::chrono::milliseconds held ) {
   auto const seconds = std::chrono::duration< double >( held ).count();
   for ( std::size_t i = 0; i < Held::bounds.size(); ++i ) {
      held_.atMost[ i ] += seconds <= Held::bounds[ i ];
   }
   ++held_.count;
   held_.seconds += seconds;
}

ShutdownTotals ShutdownStatistics::totals( std::string const & interface ) const {
   auto const found = totals_.find( interface );
   return found == totals_.end() ? ShutdownTotals() : found->second;
}

} // namespace Valend
