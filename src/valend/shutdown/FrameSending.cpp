#include "valend/shutdown/FrameSending.h"

#include <algorithm>

namespace Valend {

namespace {

// The agent of each frame, in the order in which the library sends them.
std::vector< std::string > agentsInOrder( Store const & store, Corvid::IntfId const & intfId ) {
   std::vector< std::string > agents;
   auto const intf = store.allIntf->intf( intfId );
   if ( !intf || !intf->intfMessage() ) {
      return agents;
   }
   for ( auto const & entry : intf->intfMessage()->message() ) {
      agents.insert( agents.end(), entry.value->messages(), entry.key.stdString() );
   }
   return agents;
}

// Counts each agent's frames as sent; an agent's frames follow one another.
std::vector< AgentFrames > allSent( std::vector< std::string > const & agents ) {
   std::vector< AgentFrames > all;
   for ( auto const & agent : agents ) {
      if ( all.empty() || all.back().agent != agent ) {
         all.push_back( { agent, 0, {} } );
      }
      ++all.back().sent;
   }
   return all;
}

// Moves the frames that the kernel rejected from `sent` to `refused`.
void countRefused( std::vector< RefusedPacket > const & refused,
                   std::vector< std::string > const & agents, ShutdownRecord & record ) {
   for ( auto const & packet : refused ) {
      record.failReason = packet.why;
      if ( packet.packet >= agents.size() ) {
         continue;
      }
      auto const found =
         std::find_if( record.agents.begin(), record.agents.end(), [ & ]( auto const & each ) {
            return each.agent == agents[ packet.packet ];
         } );
      --found->sent;
      ++found->refused[ packet.number ];
   }
}

} // namespace

void sendFrames( InterfaceDelay const & delay, Store const & store, LinkPort const & port,
                 LinkPlace const & place, Gantry::TaskScheduler const & scheduler,
                 ShutdownRecord & record ) {
   auto const agents = agentsInOrder( store, delay.intfId() );
   auto const before = port.counters( place.netNs );
   auto const begin = scheduler.now();
   delay.raiseFlag( record.request.delay );
   record.sending =
      std::chrono::duration_cast< std::chrono::microseconds >( scheduler.now() - begin );
   auto const after = port.counters( place.netNs );
   record.sent = after.sent - before.sent;
   record.failed = after.failed - before.failed;
   record.agents = allSent( agents );
   countRefused( port.refused( place ), agents, record );
}

} // namespace Valend
