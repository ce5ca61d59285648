// A client of the control API that can misbehave.
#pragma once

#include "linux/Fd.h"

#include <nlohmann/json.hpp>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>

namespace Valen::Test {

class RawClient {
 public:
   using Json = nlohmann::json;

   // Long, so that a busy machine does not look like a daemon that hangs.
   static constexpr int timeoutMs = 30'000;

   explicit RawClient( std::string const & path )
       : fd_( Linux::requireFd( ::socket( AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0 ), "socket" ) ) {
      sockaddr_un address{};
      address.sun_family = AF_UNIX;
      path.copy( address.sun_path, sizeof address.sun_path - 1 );
      if ( ::connect( fd_.get(), reinterpret_cast< sockaddr * >( &address ), sizeof address ) ) {
         Linux::throwErrno( "connect " + path, errno );
      }
   }

   // Sends all of it. Returns false when valend has disconnected, or takes nothing for a second.
   bool send( std::string_view bytes ) {
      while ( !bytes.empty() ) {
         pollfd ready{ fd_.get(), POLLOUT, 0 };
         if ( ::poll( &ready, 1, 1000 ) <= 0 ) {
            return false;
         }
         auto const count =
            ::send( fd_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT );
         if ( count < 0 && errno != EAGAIN ) {
            return false;
         }
         bytes.remove_prefix( count > 0 ? static_cast< std::size_t >( count ) : 0 );
      }
      return true;
   }
   static std::string text( std::string const & method, Json const & parameters,
                            bool more = false ) {
      return Json{ { "method", "org.valen.daemon." + method },
                   { "parameters", parameters },
                   { "more", more } }
                .dump() +
             '\0';
   }
   void call( std::string const & method, Json const & parameters, bool more = false ) {
      send( text( method, parameters, more ) );
   }
   // Waits for the next answer; null when none comes.
   Json answer() {
      auto end = buffer_.find( '\0' );
      while ( end == std::string::npos && receive() ) {
         end = buffer_.find( '\0' );
      }
      if ( end == std::string::npos ) {
         return Json();
      }
      auto answer = Json::parse( buffer_.substr( 0, end ), nullptr, false );
      buffer_.erase( 0, end + 1 );
      return answer;
   }
   // Whether valend disconnects without an answer.
   bool ended() { return !receive() && buffer_.empty(); }

 private:
   bool receive() {
      pollfd ready{ fd_.get(), POLLIN, 0 };
      char chunk[ 65536 ];
      auto const count =
         ::poll( &ready, 1, timeoutMs ) > 0 ? ::recv( fd_.get(), chunk, sizeof chunk, 0 ) : 0;
      buffer_.append( chunk, static_cast< std::size_t >( count > 0 ? count : 0 ) );
      return count > 0;
   }

   Linux::Fd const fd_;
   std::string buffer_;
};

} // namespace Valen::Test
