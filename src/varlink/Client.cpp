#include "varlink/Client.h"

#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace Varlink {

namespace {

constexpr std::size_t maxAnswerBytes = 64u << 20;

[[noreturn]] void noAgent( std::string const & socket, int number ) {
   throw NoService( "no agent answers at " + socket + ": " + std::strerror( number ) );
}

// What a refusal says to a person.
std::string refusalText( std::string const & name, Json const & parameters ) {
   auto const message = parameters.find( "message" );
   if ( message != parameters.end() && message->is_string() ) {
      return message->get< std::string >();
   }
   return "the agent refused: " + name + " " +
          parameters.dump( -1, ' ', false, Json::error_handler_t::replace );
}

} // namespace

Client::Client( std::string const & socket, std::string interface )
    : socket_( socket ), interface_( std::move( interface ) ) {
   sockaddr_un address{};
   address.sun_family = AF_UNIX;
   if ( socket.size() >= sizeof address.sun_path ) {
      noAgent( socket, ENAMETOOLONG );
   }
   std::memcpy( address.sun_path, socket.data(), socket.size() );
   fd_ = ::socket( AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0 );
   if ( fd_ < 0 ||
        ::connect( fd_, reinterpret_cast< sockaddr const * >( &address ), sizeof address ) != 0 ) {
      auto const number = errno;
      if ( fd_ >= 0 ) {
         ::close( fd_ );
      }
      noAgent( socket, number );
   }
}

Client::~Client() {
   ::close( fd_ );
}

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
   patience_ = std::chrono::milliseconds( 0 );
   for ( ;; ) {
      receive(); // nothing was asked, so nothing comes
   }
}

void Client::send( Json const & message ) {
   auto const text = message.dump( -1, ' ', false, Json::error_handler_t::replace );
   std::string_view rest( text.c_str(), text.size() + 1 ); // with the zero byte that ends it
   while ( !rest.empty() ) {
      waitFor( POLLOUT );
      auto const count = ::send( fd_, rest.data(), rest.size(), MSG_NOSIGNAL );
      if ( count < 0 && errno != EINTR ) {
         throw NoService( "the agent hung up: " + std::string( std::strerror( errno ) ) );
      }
      rest.remove_prefix( count > 0 ? static_cast< std::size_t >( count ) : 0 );
   }
}

// The next answer. Throws Refused when it is an error.
Json Client::receive() {
   auto end = buffer_.find( '\0' );
   while ( end == std::string::npos ) {
      char chunk[ 65536 ];
      waitFor( POLLIN );
      auto const count = ::recv( fd_, chunk, sizeof chunk, 0 );
      if ( count < 0 && errno == EINTR ) {
         continue;
      }
      if ( count <= 0 || buffer_.size() > maxAnswerBytes ) {
         throw NoService( "the agent hung up before it answered" );
      }
      auto const before = buffer_.size();
      buffer_.append( chunk, static_cast< std::size_t >( count ) );
      end = buffer_.find( '\0', before );
   }
   auto answer = Json::parse( buffer_.substr( 0, end ), nullptr, false );
   buffer_.erase( 0, end + 1 );
   if ( !answer.is_object() ) {
      throw NoService( "who answers at " + socket_ + " is no agent" );
   }
   if ( answer.contains( "error" ) ) {
      auto const name = answer.value( "error", "" );
      auto const parameters = answer.value( "parameters", Json::object() );
      throw Refused( name, refusalText( name, parameters ), parameters );
   }
   return answer;
}

void Client::waitFor( short event ) {
   pollfd entry{ fd_, event, 0 };
   auto const timeout = patience_.count() ? static_cast< int >( patience_.count() ) : -1;
   int result = 0;
   while ( ( result = ::poll( &entry, 1, timeout ) ) < 0 && errno == EINTR ) {
   }
   if ( result == 0 ) {
      throw TimedOut( "the agent did not answer within " + std::to_string( patience_.count() ) +
                      " ms" );
   }
}

} // namespace Varlink
