#include "valenctl/command/Session.h"

#include <ostream>

namespace Valenctl {

Session::Session( Connection connection, Output const & output )
    : connection_( std::move( connection ) ), output_( output ),
      answerTimeout_( connection_.timeout ) {}

Varlink::Client & Session::client() {
   if ( !client_ ) {
      client_.emplace( socket(), "org.valen.daemon", "valend" );
      answerTimeoutIs( answerTimeout_ );
   }
   return *client_;
}

Json Session::call( std::string const & method, Json const & parameters ) {
   return client().call( method, parameters );
}

void Session::answerTimeoutIs( std::chrono::milliseconds timeout ) {
   answerTimeout_ = timeout;
   if ( client_ ) {
      client_->timeoutIs( timeout );
   }
}

void Session::print( Json const & answer, std::string const & text ) {
   output_.out << ( json() ? indented( answer ) + "\n" : text );
}

void Session::printLine( Json const & json ) {
   output_.out << oneLine( json ) << std::endl;
}

Json interfaceParameter( std::string const & interface ) {
   return interface.empty() ? Json::object() : Json{ { "interface", interface } };
}

} // namespace Valenctl
