// A server that answers calls of valend's methods as a test wants, and remembers them.
#pragma once

#include "tests/support/WorkDirectory.h"

#include <cstring>
#include <gtest/gtest.h>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace Valenctl::Test {

using Json = nlohmann::json;

class FakeDaemon {
 public:
   struct Call {
      std::string method; // without the interface's name
      Json parameters;
      bool more = false;

      bool operator==( Call const & ) const = default;
   };

   FakeDaemon() {
      sockaddr_un address{};
      address.sun_family = AF_UNIX;
      std::strcpy( address.sun_path, path_.c_str() );
      listener_ = ::socket( AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0 );
      EXPECT_EQ( ::bind( listener_, reinterpret_cast< sockaddr * >( &address ), sizeof address ),
                 0 );
      EXPECT_EQ( ::listen( listener_, 8 ), 0 );
      thread_ = std::thread( [ this ] { serve(); } );
   }
   ~FakeDaemon() {
      ::shutdown( listener_, SHUT_RDWR ); // ends accept()
      thread_.join();
      ::close( listener_ );
   }
   FakeDaemon( FakeDaemon const & ) = delete;
   FakeDaemon & operator=( FakeDaemon const & ) = delete;

   std::string const & path() const { return path_; }

   // What each call of `method` is answered with: one answer after the other, all but the last of
   // which say that more follow.
   void answers( std::string const & method, std::vector< Json > const & answers ) {
      auto const lock = std::lock_guard( mutex_ );
      replies_[ method ].clear();
      for ( std::size_t i = 0; i < answers.size(); ++i ) {
         Json reply{ { "parameters", answers[ i ] } };
         if ( i + 1 < answers.size() ) {
            reply[ "continues" ] = true;
         }
         replies_[ method ].push_back( reply );
      }
   }
   // Rejects each call of `method` with an error of valend's.
   void rejects( std::string const & method, std::string const & error, Json const & parameters ) {
      auto const lock = std::lock_guard( mutex_ );
      replies_[ method ] = {
         { { "error", "org.valen.daemon." + error }, { "parameters", parameters } } };
   }
   // Keeps the callers of `method` waiting.
   void ignores( std::string const & method ) {
      auto const lock = std::lock_guard( mutex_ );
      replies_[ method ] = {};
   }

   // Ends the connection of the client that is being served.
   void disconnect() {
      auto const lock = std::lock_guard( mutex_ );
      ::shutdown( connection_, SHUT_RDWR );
   }

   // All calls so far.
   std::vector< Call > calls() const {
      auto const lock = std::lock_guard( mutex_ );
      return calls_;
   }

 private:
   // One connection after the other, until the listening socket is shut down. A method without a
   // reply ends the connection.
   void serve() {
      for ( int fd; ( fd = ::accept( listener_, nullptr, nullptr ) ) >= 0; ::close( fd ) ) {
         {
            auto const lock = std::lock_guard( mutex_ );
            connection_ = fd;
         }
         std::string request;
         while ( receive( fd, request ) && reply( fd, Json::parse( request ) ) ) {
         }
      }
   }

   static bool receive( int fd, std::string & request ) {
      request.clear();
      for ( char byte; ::recv( fd, &byte, 1, 0 ) == 1; request += byte ) {
         if ( byte == '\0' ) {
            return true;
         }
      }
      return false;
   }

   bool reply( int fd, Json const & request ) {
      auto const lock = std::lock_guard( mutex_ );
      auto const name = request.at( "method" ).get< std::string >();
      auto const method = name.substr( name.rfind( '.' ) + 1 );
      calls_.push_back( { method, request.at( "parameters" ), request.value( "more", false ) } );
      auto const found = replies_.find( method );
      if ( found == replies_.end() ) {
         return false;
      }
      for ( auto const & each : found->second ) {
         auto const text = each.dump() + '\0';
         ::send( fd, text.data(), text.size(), MSG_NOSIGNAL );
      }
      return true;
   }

   Valen::Test::WorkDirectory const work_;
   std::string const path_ = work_ / "socket";
   int listener_ = -1;
   int connection_ = -1;
   mutable std::mutex mutex_;
   std::map< std::string, std::vector< Json > > replies_;
   std::vector< Call > calls_;
   std::thread thread_;
};

} // namespace Valenctl::Test
