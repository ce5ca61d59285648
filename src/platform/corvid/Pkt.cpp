#include "platform/corvid/Pkt.h"

#include <algorithm>

namespace Corvid {

void Pkt::stringValueIs( Quill::String bytes, bool /* flag */ ) {
   bytes_ = std::move( bytes );
}

Quill::Ptr< Pkt > Pkt::Manager::newPkt() {
   // A packet exists for one send, so the first one tried is nearly always free.
   for ( std::size_t tries = 0; tries < pool_.size(); ++tries ) {
      auto const & pkt = pool_[ next_ ];
      if ( pkt->refs() == 1 ) {
         pkt->stringValueIs( Quill::String(), false );
         return pkt;
      }
      next_ = ( next_ + 1 ) % pool_.size();
   }
   next_ = pool_.size();
   pool_.push_back( Quill::make< Pkt >() );
   return pool_.back();
}

void Pkt::Manager::trim() noexcept {
   std::erase_if( pool_, []( auto const & pkt ) { return pkt->refs() == 1; } );
   next_ = 0;
}

namespace {

// Not a static of the function, which would be guarded at each packet.
constinit Pkt::Manager manager;

} // namespace

Pkt::Manager & globalPktManager() noexcept {
   return manager;
}

} // namespace Corvid
