#include "valenctl/command/Session.h"

#include <cerrno>
#include <cstring>
#include <ostream>

namespace Valenctl {

namespace {

// Why a connection could not be made, without what the client says before it: the part behind the
// name of the socket.
std::string reasonOf( std::string const & text, std::string const & socket ) {
   auto const separator = socket + ": ";
   auto const at = text.rfind( separator );
   return at == std::string::npos ? text : text.substr( at + separator.size() );
}

// What to do about it, when that is likely to help.
char const * hint( std::string const & reason ) {
   bool const nobodyListens =
      reason == std::strerror( ENOENT ) || reason == std::strerror( ECONNREFUSED );
   return nobodyListens ? " (is it running?)" : "";
}

} // namespace

Session::Session( Connection connection, Output const & output )
    : connection_( std::move( connection ) ), output_( output ),
      answerTimeout_( connection_.timeout ) {}

Varlink::Client & Session::client() {
   if ( !client_ ) {
      try {
         client_.emplace( socket(), "org.valen.daemon", "valend" );
      } catch ( Varlink::NoService const & e ) {
         auto const reason = reasonOf( e.what(), socket() );
         throw Varlink::NoService( "cannot connect to valend at " + socket() + ": " + reason +
                                   hint( reason ) );
      }
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
