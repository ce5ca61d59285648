#include "valend/speakers/Greetings.h"

#include "egress/Egress.h"

namespace Valend {

namespace {

Quill::Ptr< Corvid::Pkt > packet( std::string const & bytes ) {
   auto packet = Corvid::globalPktManager().newPkt();
   packet->stringValueIs( Quill::String( bytes ), false );
   return packet;
}

} // namespace

Greetings::Greetings( Valen::Linux::NetNsDirectories const & directories,
                      Quill::Ptr< Gantry::TaskScheduler > const & scheduler )
    : provider_( directories, scheduler ) {
   provider_.markIs( EGRESS_OWN_MARK );
}

bool Greetings::send( LinkPlace const & place, U32 ifIndex,
                      SpeakerTable::Speaker const & speaker ) {
   Quill::Expect const expected( Quill::ExceptionId::errnoFailure );
   try {
      auto & through = endpoint( place.netNs );
      through.burstIs( ifIndex, place.device );
      bool sent = true;
      for ( auto const & [ name, part ] : speaker.parts ) {
         auto const greeting = packet( part.heard.greeting );
         sent = through.send( *greeting, ifIndex ) && sent;
      }
      if ( !sent ) {
         endpoints_.erase( place.netNs ); // the namespace may have been replaced
      }
      return sent;
   } catch ( Quill::ErrnoException const & ) {
      endpoints_.erase( place.netNs );
      return false;
   }
}

Corvid::RawTxPam & Greetings::endpoint( std::string const & netNs ) {
   auto & endpoint = endpoints_[ netNs ];
   if ( !endpoint ) {
      endpoint = provider_.newRawTxPam( "greetings" );
      endpoint->netNsIs( Corvid::NamespaceName( netNs ) );
      endpoint->enabledIs( true );
   }
   return *endpoint;
}

} // namespace Valend
