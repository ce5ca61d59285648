#include "valend/shutdown/FrameSending.h"

#include <algorithm>

namespace Valend {

namespace {

// Counts each agent's frames as sent; an agent's frames follow one another.
std::vector< AgentFrames > allSent( std::vector< QueuedFrame > const & queued ) {
   std::vector< AgentFrames > all;
   for ( auto const & frame : queued ) {
      if ( all.empty() || all.back().agent != frame.agent ) {
         all.push_back( { frame.agent, 0, {}, {} } );
      }
      ++all.back().sent;
   }
   return all;
}

// Moves the frames that the kernel rejected from `sent` to `refused`.
void countRefused( std::vector< RefusedPacket > const & refused,
                   std::vector< QueuedFrame > const & queued, ShutdownRecord & record ) {
   for ( auto const & packet : refused ) {
      record.failReason = packet.why;
      if ( packet.packet >= queued.size() ) {
         continue;
      }
      auto const found =
         std::find_if( record.agents.begin(), record.agents.end(), [ & ]( auto const & each ) {
            return each.agent == queued[ packet.packet ].agent;
         } );
      --found->sent;
      ++found->refused[ packet.number ];
   }
}

void nameGoodbyes( std::vector< QueuedFrame > const & queued, std::set< U32 > const & refused,
                   ShutdownRecord & record ) {
   for ( auto & agent : record.agents ) {
      std::vector< std::string_view > accepted;
      for ( U32 number = 0; number < queued.size(); ++number ) {
         if ( queued[ number ].agent == agent.agent && !refused.contains( number ) ) {
            accepted.push_back( queued[ number ].bytes.view() );
         }
      }
      agent.goodbyes = goodbyesAmong( accepted );
   }
}

} // namespace

std::vector< QueuedFrame > queuedFrames( InterfaceDelay const & delay, Store const & store ) {
   std::vector< QueuedFrame > queued;
   auto const intf = store.allIntf->intf( delay.intfId() );
   if ( !intf || !intf->intfMessage() ) {
      return queued;
   }
   for ( auto const & entry : intf->intfMessage()->message() ) {
      for ( auto const & frame : entry.value->message() ) {
         queued.push_back( { entry.key.stdString(), frame } );
      }
   }
   return queued;
}

std::set< U32 > sendFrames( InterfaceDelay const & delay, std::vector< QueuedFrame > const & queued,
                            LinkPort const & port, LinkPlace const & place,
                            Gantry::TaskScheduler const & scheduler, ShutdownRecord & record ) {
   auto const before = port.counters( place.netNs );
   auto const begin = scheduler.now();
   delay.raiseFlag( record.request.delay );
   record.sending =
      std::chrono::duration_cast< std::chrono::microseconds >( scheduler.now() - begin );
   auto const after = port.counters( place.netNs );
   record.sent = after.sent - before.sent;
   record.failed = after.failed - before.failed;
   record.agents = allSent( queued );
   auto const refused = port.refused( place );
   countRefused( refused, queued, record );
   std::set< U32 > numbers;
   for ( auto const & packet : refused ) {
      numbers.insert( packet.packet );
   }
   nameGoodbyes( queued, numbers, record );
   return numbers;
}

} // namespace Valend
