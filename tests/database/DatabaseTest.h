// What tests of the room share: a loop with a bound, short times, and a server that says what the test wants.
#pragma once

#include "database/Connection.h"
#include "linux/EventLoop.h"
#include "linux/UnixAddress.h"
#include "tests/support/RedisServer.h"

#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <netinet/in.h>
#include <string>

namespace Database::Test {

using namespace std::chrono_literals;
using Valen::Test::RedisServer;
using Valen::Test::WorkDirectory;

// Times that are short, but not for a busy machine.
inline Connection::Timing shortTiming() {
   return { .connect = 2s, .ping = 100ms, .silence = 400ms, .firstPause = 5ms, .lastPause = 20ms };
}

inline std::size_t openDescriptors() {
   std::filesystem::directory_iterator const files( "/proc/self/fd" );
   return static_cast< std::size_t >( std::distance( begin( files ), end( files ) ) );
}

class DatabaseTest : public ::testing::Test {
 protected:
   // Turns the loop until `condition` holds. Returns whether it does in time.
   bool eventually( std::function< bool() > const & condition,
                    std::chrono::milliseconds timeout = 20s ) {
      auto const end = std::chrono::steady_clock::now() + timeout;
      while ( !condition() ) {
         if ( std::chrono::steady_clock::now() > end ) {
            return false;
         }
         loop.turn( 2ms );
      }
      return true;
   }
   // Turns the loop for a time, for what must not happen.
   void turnFor( std::chrono::milliseconds time ) {
      auto const end = std::chrono::steady_clock::now() + time;
      while ( std::chrono::steady_clock::now() < end ) {
         loop.turn( 2ms );
      }
   }

   Valen::Linux::EventLoop loop;
};

// A server on the test's loop that says what the test wants, whatever the client sends.
class FakeServer {
 public:
   // Takes what a client has sent, and returns what to answer.
   using Answer = std::function< std::string( std::string const & bytes ) >;

   FakeServer( Valen::Linux::EventLoop & loop, Answer answer )
       : loop_( loop ), answer_( std::move( answer ) ),
         listener_( Valen::Linux::requireFd(
            ::socket( AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0 ), "socket" ) ) {
      auto const address = *Valen::Linux::UnixAddress::at( work_ / "fake" );
      listen( address.get(), address.size() );
   }
   // On a port of the loopback device that the kernel chooses.
   struct Tcp {};
   FakeServer( Valen::Linux::EventLoop & loop, Answer answer, Tcp )
       : loop_( loop ), answer_( std::move( answer ) ),
         listener_( Valen::Linux::requireFd(
            ::socket( AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0 ), "socket" ) ) {
      sockaddr_in address{};
      address.sin_family = AF_INET;
      address.sin_addr.s_addr = htonl( INADDR_LOOPBACK );
      listen( reinterpret_cast< sockaddr const * >( &address ), sizeof address );
      socklen_t size = sizeof address;
      ::getsockname( listener_.get(), reinterpret_cast< sockaddr * >( &address ), &size );
      port_ = ntohs( address.sin_port );
   }
   ~FakeServer() {
      loop_.descriptorDel( listener_.get() );
      for ( auto const & [ fd, client ] : clients_ ) {
         loop_.descriptorDel( fd );
      }
   }

   Address address() const { return Address::parse( "unix://" + work_ / "fake" ); }
   std::uint16_t port() const { return port_; }
   int accepted() const { return accepted_; }
   // Sends to all clients.
   void say( std::string const & bytes ) {
      for ( auto const & [ fd, client ] : clients_ ) {
         ::send( fd, bytes.data(), bytes.size(), MSG_NOSIGNAL );
      }
   }
   void hangUp() {
      for ( auto const & [ fd, client ] : clients_ ) {
         loop_.descriptorDel( fd );
      }
      clients_.clear();
   }

   // Answers the greeting, and then each command with what `answer` says.
   static Answer greeted( Answer answer ) {
      return [ answer = std::move( answer ) ]( std::string const & bytes ) {
         auto const greeting = bytes.find( "SETNAME" ) != bytes.npos;
         return greeting ? std::string( "+PONG\r\n+OK\r\n" ) : answer( bytes );
      };
   }

 private:
   void listen( sockaddr const * address, socklen_t size ) {
      EXPECT_EQ( ::bind( listener_.get(), address, size ), 0 ) << std::strerror( errno );
      EXPECT_EQ( ::listen( listener_.get(), 16 ), 0 );
      loop_.descriptorIs( listener_.get(), EPOLLIN, "fake server", [ this ]( U32 ) { accept(); } );
   }
   void accept() {
      Valen::Linux::Fd client(
         ::accept4( listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK ) );
      ASSERT_TRUE( client );
      ++accepted_;
      auto const fd = client.get();
      loop_.descriptorIs( fd, EPOLLIN, "fake client", [ this, fd ]( U32 ) { read( fd ); } );
      clients_[ fd ] = std::move( client );
   }
   void read( int fd ) {
      char buffer[ 65536 ];
      auto const count = ::recv( fd, buffer, sizeof buffer, 0 );
      if ( count <= 0 ) {
         loop_.descriptorDel( fd );
         clients_.erase( fd );
         return;
      }
      auto const text = answer_( { buffer, static_cast< std::size_t >( count ) } );
      ::send( fd, text.data(), text.size(), MSG_NOSIGNAL );
   }

   WorkDirectory const work_;
   Valen::Linux::EventLoop & loop_;
   Answer const answer_;
   Valen::Linux::Fd const listener_;
   std::uint16_t port_ = 0;
   std::map< int, Valen::Linux::Fd > clients_;
   int accepted_ = 0;
};

} // namespace Database::Test
