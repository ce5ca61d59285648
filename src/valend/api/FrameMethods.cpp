#include "valend/api/FrameMethods.h"

namespace Valend {

std::vector< Method > FrameMethods::methods() {
   using Self = FrameMethods;
   return {
      method( "Publish", Right::change, *this, &Self::publish ),
      method( "Withdraw", Right::change, *this, &Self::withdraw ),
      method( "ListMessages", Right::read, *this, &Self::listMessages ),
   };
}

void FrameMethods::publish( Call const & call, std::string const & agent,
                            std::string const & interface,
                            std::vector< std::string > const & frames,
                            Publications::Lifetime lifetime ) {
   Publications::Message message{ agent, interface, {}, lifetime, call->client() };
   for ( auto const & hex : frames ) {
      message.frames.push_back( Publications::frameOf( hex, message.frames.size() + 1 ) );
   }
   if ( lifetime == Publications::Lifetime::connection && !call->mayLast() ) {
      throw Errors::tooManyClients();
   }
   parts_.publications.publish( std::move( message ) );
   changed( *call, interface );
   call->reply( { { "tooLong", report_.tooLong( parts_.interface( interface ), agent ) } } );
}

void FrameMethods::withdraw( Call const & call, std::string const & agent,
                             std::string const & interface ) {
   parts_.publications.withdraw( agent, interface, call->client() );
   changed( *call, interface );
   call->reply( Json::object() );
}

// What is published is not in the store, so watches of the status do not notice.
void FrameMethods::changed( Varlink::Call & call, std::string const & interface ) {
   call.neededIs( parts_.publications.isNeeded( call.client() ) );
   watches_.changed( interface );
}

void FrameMethods::listMessages( Call const & call,
                                 std::optional< std::string > const & interface ) {
   auto list = report_.messages( parts_.publications );
   if ( interface ) {
      parts_.interface( *interface );
      std::erase_if( list.get_ref< Json::array_t & >(), [ & ]( auto const & message ) {
         return message[ "interface" ] != *interface;
      } );
   }
   call->reply( { { "messages", std::move( list ) } } );
}

} // namespace Valend
