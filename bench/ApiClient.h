// A client of the API of valend: sends calls, and reads what is answered, as whole answers or as bytes.
#pragma once

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

namespace Valen::Bench {

class ApiClient {
 public:
   using Json = nlohmann::json;

   explicit ApiClient( std::string const & path )
       : fd_( ::socket( AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0 ) ) {
      sockaddr_un address{};
      address.sun_family = AF_UNIX;
      path.copy( address.sun_path, sizeof address.sun_path - 1 );
      if ( ::connect( fd_, reinterpret_cast< sockaddr * >( &address ), sizeof address ) != 0 ) {
         throw std::runtime_error( "cannot connect to valend at " + path );
      }
   }
   ~ApiClient() { ::close( fd_ ); }
   ApiClient( ApiClient const & ) = delete;
   ApiClient & operator=( ApiClient const & ) = delete;

   int fd() const noexcept { return fd_; }

   // A call as it is sent.
   static std::string encoded( std::string const & method, Json const & parameters,
                               bool more = false ) {
      return Json{ { "method", "org.valen.daemon." + method },
                   { "parameters", parameters },
                   { "more", more } }
                .dump() +
             '\0';
   }
   // Sends one or more encoded calls.
   void send( std::string_view calls ) {
      while ( !calls.empty() ) {
         auto const count = ::send( fd_, calls.data(), calls.size(), MSG_NOSIGNAL );
         if ( count < 0 ) {
            throw std::runtime_error( "a call could not be sent" );
         }
         calls.remove_prefix( static_cast< std::size_t >( count ) );
      }
   }
   void call( std::string const & method, Json const & parameters, bool more = false ) {
      send( encoded( method, parameters, more ) );
   }

   // The next whole answer, of what can be read now without waiting when `wait` is false.
   std::optional< Json > answer( bool wait ) {
      for ( auto end = rest_.find( '\0' );; end = rest_.find( '\0' ) ) {
         if ( end != std::string::npos ) {
            auto answer = Json::parse( rest_.substr( 0, end ) );
            rest_.erase( 0, end + 1 );
            return answer;
         }
         auto const text = received( wait ? 0 : MSG_DONTWAIT );
         if ( !text ) {
            return std::nullopt;
         }
         rest_ += *text;
      }
   }

   // The bytes that can be read; waits until there are some. They are valid until the next call.
   std::string_view receive() { return *received( 0 ); }
   // How many answers end in these bytes.
   static std::size_t ends( std::string_view bytes ) {
      return static_cast< std::size_t >( std::count( bytes.begin(), bytes.end(), '\0' ) );
   }
   // Waits until so many answers have been read, and drops them.
   void skip( std::size_t answers ) {
      for ( std::size_t read = 0; read < answers; ) {
         read += ends( receive() );
      }
   }

 private:
   // Nothing when that would wait, and the flags have MSG_DONTWAIT.
   std::optional< std::string_view > received( int flags ) {
      auto const count = ::recv( fd_, buffer_.data(), buffer_.size(), flags );
      if ( count < 0 && errno == EAGAIN ) {
         return std::nullopt;
      }
      if ( count <= 0 ) {
         throw std::runtime_error( "valend closed the connection" );
      }
      return std::string_view( buffer_.data(), static_cast< std::size_t >( count ) );
   }

   int const fd_;
   std::vector< char > buffer_ = std::vector< char >( 1u << 18 );
   std::string rest_; // of what was read: the beginning of an answer, or more of them
};

} // namespace Valen::Bench
