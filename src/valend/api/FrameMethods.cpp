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
                            std::vector< std::string > const & frames, Lifetime asked ) {
   Settings::FrameList list;
   for ( auto const & hex : frames ) {
      list.push_back( Publications::frameOf( hex, list.size() + 1 ) );
   }
   auto const lifetime =
      asked == Lifetime::kept ? Publications::Lifetime::kept : Publications::Lifetime::connection;
   if ( asked == Lifetime::connection && !call->mayLast() ) {
      throw Errors::tooManyClients();
   }
   parts_.publications.publish( { agent, interface, std::move( list ), lifetime, call->client() } );
   changed( *call, interface );
   answerWhenSaved( call, lifetime, { { "tooLong", tooLong( agent, interface ) } } );
}

void FrameMethods::withdraw( Call const & call, std::string const & agent,
                             std::string const & interface ) {
   auto const lifetime = parts_.publications.withdraw( agent, interface, call->client() );
   changed( *call, interface );
   answerWhenSaved( call, lifetime, Json::object() );
}

// While a configuration is being applied, the interface may be there in a moment.
Json FrameMethods::tooLong( std::string const & agent, std::string const & interface ) const {
   auto const & interfaces = parts_.feeder.config().interfaces;
   auto const found = interfaces.find( interface );
   return found == interfaces.end() ? Json::array() : report_.tooLong( found->second, agent );
}

// A client that has the answer can rely on the disk.
void FrameMethods::answerWhenSaved( Call const & call, Publications::Lifetime lifetime,
                                    Json const & parameters ) {
   auto const answer = [ call, parameters ]( bool saved ) {
      auto reply = parameters;
      reply[ "saved" ] = saved;
      call->reply( std::move( reply ) );
   };
   if ( lifetime == Publications::Lifetime::kept ) {
      parts_.whenSaved( answer );
   } else {
      answer( false );
   }
}

// What is published is not in the store, so watches of the status do not notice.
void FrameMethods::changed( Varlink::Call & call, std::string const & interface ) {
   call.neededIs( parts_.publications.isNeeded( call.client() ) );
   watches_.changed( interface );
}

void FrameMethods::listMessages( Call const & call,
                                 std::optional< std::string > const & interface ) {
   if ( !interface ) {
      return all_.to( call );
   }
   parts_.interface( *interface );
   call->reply( { { "messages", StatusReport::messages( parts_.publications, parts_.speakers,
                                                        *interface ) } } );
}

// One message after the other, while they may come and go.
SlowAnswer::Part FrameMethods::allMessages() const {
   auto next = [ this, place = StatusReport::MessagePlace() ]() mutable {
      return StatusReport::nextMessage( parts_.publications, parts_.speakers, place );
   };
   return SlowAnswer::lists( { { "messages", std::move( next ) } } );
}

} // namespace Valend
