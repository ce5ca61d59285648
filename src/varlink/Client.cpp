#include "varlink/Client.h"

#include "varlink/UnixSocket.h"

#include <cerrno>
#include <poll.h>
#include <sys/socket.h>

namespace Varlink {

using Valen::Linux::errorText;
using Valen::Linux::Fd;

namespace {

constexpr std::size_t maxAnswerBytes = 64u << 20;
constexpr std::chrono::seconds refusedWithin{ 1 };

Fd connected( std::string const & socket, std::string const & service ) {
   try {
      return connectTo( socket );
   } catch ( Quill::ErrnoException const & e ) {
      bool const nobodyListens = e.number() == ENOENT || e.number() == ECONNREFUSED;
      throw NoService( "cannot connect to " + service + " at " + socket + ": " + e.text() +
                       ( nobodyListens ? " (is it running?)" : "" ) );
   }
}

} // namespace

Client::Client( std::string const & socket, std::string interface, std::string service )
    : interface_( std::move( interface ) ), service_( std::move( service ) ),
      fd_( connected( socket, service_ ) ), in_( maxAnswerBytes ) {}

Json Client::call( std::string const & method, Json const & parameters ) {
   send( { { "method", interface_ + "." + method }, { "parameters", parameters } } );
   return receive().value( "parameters", Json::object() );
}

void Client::callMore( std::string const & method, Json const & parameters, Reply const & reply ) {
   send(
      { { "method", interface_ + "." + method }, { "parameters", parameters }, { "more", true } } );
   for ( ;; ) {
      auto const answer = receive();
      bool const wanted = reply( answer.value( "parameters", Json::object() ) );
      if ( !wanted || !answer.value( "continues", false ) ) {
         return;
      }
   }
}

void Client::waitForEnd() {
   timeout_ = std::chrono::milliseconds( 0 );
   for ( ;; ) {
      receive(); // nothing was asked, so nothing comes
   }
}

void Client::send( Json const & message ) {
   auto const text = encoded( message );
   std::string_view rest( text );
   while ( !rest.empty() ) {
      waitFor( POLLOUT );
      auto const count = ::send( fd_.get(), rest.data(), rest.size(), MSG_NOSIGNAL );
      if ( count < 0 && errno != EINTR ) {
         throw closed( "lost the connection to " + service_ + ": " + errorText( errno ) );
      }
      rest.remove_prefix( count > 0 ? static_cast< std::size_t >( count ) : 0 );
   }
}

// The next answer. Throws Refused when it is an error.
Json Client::receive() {
   auto const answer = Json::parse( receiveText(), nullptr, false );
   if ( !answer.is_object() ) {
      throw NoService( "what " + service_ + " answered is not a varlink message" );
   }
   if ( !answer.contains( "error" ) ) {
      return answer;
   }
   auto const name = answer.value( "error", "" );
   auto const parameters = answer.value( "parameters", Json::object() );
   auto const message = parameters.find( "message" );
   auto const text = message != parameters.end() && message->is_string()
                        ? message->get< std::string >()
                        : service_ + " rejected the call: " + name + " " +
                             parameters.dump( -1, ' ', false, Json::error_handler_t::replace );
   throw Refused( name, text, parameters );
}

std::string Client::receiveText() {
   for ( ;; ) {
      if ( auto text = in_.next() ) {
         return *text;
      }
      char chunk[ 65536 ];
      waitFor( POLLIN );
      auto const count = ::recv( fd_.get(), chunk, sizeof chunk, 0 );
      if ( count < 0 && errno == EINTR ) {
         continue;
      }
      if ( count <= 0 || in_.tooLong() ) {
         throw closed( service_ + " closed the connection before it answered" );
      }
      received_ = true;
      in_.feed( { chunk, static_cast< std::size_t >( count ) } );
   }
}

// The connection has ended. A service that accepts no more clients closes new connections at once.
NoService Client::closed( std::string const & otherwise ) const {
   bool const atOnce = !received_ && std::chrono::steady_clock::now() - connected_ < refusedWithin;
   return NoService( atOnce
                        ? service_ + " closed the connection at once: too many clients, or it is "
                                     "exiting (end clients that are not needed, and try again)"
                        : otherwise );
}

void Client::waitFor( short event ) {
   pollfd entry{ fd_.get(), event, 0 };
   auto const timeout = timeout_.count() ? static_cast< int >( timeout_.count() ) : -1;
   int result = 0;
   while ( ( result = ::poll( &entry, 1, timeout ) ) < 0 && errno == EINTR ) {
   }
   if ( result == 0 ) {
      throw TimedOut( service_ + " did not answer within " + std::to_string( timeout_.count() ) +
                      " ms" );
   }
}

} // namespace Varlink
