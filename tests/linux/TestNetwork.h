// Network namespaces, devices and captures for the tests. The namespaces are named "vt-PID-N". A test
// deletes its own at its end, and those of tests that died at its start.
#pragma once

#include "linux/EventLoop.h"
#include "linux/NetNs.h"

#include <arpa/inet.h>
#include <chrono>
#include <cstdlib>
#include <dirent.h>
#include <functional>
#include <gtest/gtest.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <poll.h>
#include <signal.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace Valen::Test {

// Runs a command. Throws if it fails.
inline void run( std::string const & command ) {
   if ( std::system( ( command + " >/dev/null" ).c_str() ) != 0 ) {
      throw std::runtime_error( "command failed: " + command );
   }
}

// Deletes a namespace, if it exists. A frame that waits in the queue of a device keeps its socket alive, and the socket
// keeps the namespace: a link that goes down empties its queue.
inline void deleteNamespace( std::string const & name ) {
   auto const commands = "ip -n " + name + " link set group default down; ip netns del " + name;
   (void)std::system( ( "( " + commands + " ) 2>/dev/null" ).c_str() );
}

// Deletes the namespaces of tests that died.
inline void sweepNamespaces() {
   auto * const directory = ::opendir( Linux::NetNsDirectories::usual );
   while ( auto const * const entry = directory ? ::readdir( directory ) : nullptr ) {
      std::string const name( entry->d_name );
      if ( name.starts_with( "vt-" ) && ::kill( std::atoi( name.c_str() + 3 ), 0 ) < 0 ) {
         deleteNamespace( name );
      }
   }
   if ( directory ) {
      ::closedir( directory );
   }
}

// A new namespace, with only its loopback device.
class TestNetNs {
 public:
   TestNetNs() : TestNetNs( newName() ) {}
   explicit TestNetNs( std::string name ) : name_( std::move( name ) ) { create(); }
   ~TestNetNs() { deleteNamespace( name_ ); }
   TestNetNs( TestNetNs const & ) = delete;
   TestNetNs & operator=( TestNetNs const & ) = delete;

   // An unused name.
   static std::string newName() {
      static int next = 0;
      return "vt-" + std::to_string( ::getpid() ) + "-" + std::to_string( ++next );
   }

   std::string const & text() const { return name_; }
   Corvid::NamespaceName name() const { return Corvid::NamespaceName( std::string_view( name_ ) ); }

   void create() { run( "ip netns add " + name_ ); }
   void destroy() { run( "ip netns del " + name_ ); }

   // Runs `ip` in the namespace: ip( "link set et1 up" ).
   void ip( std::string const & arguments ) const { run( "ip -n " + name_ + " " + arguments ); }

   // Creates a device, with its other end in `far`, and sets both up. The far end comes first: a device
   // that is set up while its peer is down drops frames until some time after the peer is up.
   void veth( std::string const & device, TestNetNs const & far,
              std::string const & farDevice ) const {
      ip( "link add " + device + " type veth peer name " + farDevice + " netns " + far.text() );
      far.ip( "link set " + farDevice + " up" );
      ip( "link set " + device + " up" );
   }

   // The index of a device; 0 if it does not exist.
   U32 index( std::string const & device ) const {
      auto const netNs = Linux::NetNsDirectories().open( name() );
      Linux::NetNsScope const inside( netNs );
      return ::if_nametoindex( device.c_str() );
   }

 private:
   std::string const name_;
};

// Captures the frames that a device receives.
class Capture {
 public:
   Capture( TestNetNs const & netNs, std::string const & device ) {
      auto const opened = Linux::NetNsDirectories().open( netNs.name() );
      Linux::NetNsScope const inside( opened );
      fd_ = Linux::requireFd( ::socket( AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0 ), "socket" );
      sockaddr_ll address{};
      address.sll_family = AF_PACKET;
      address.sll_protocol = htons( ETH_P_ALL );
      address.sll_ifindex = static_cast< int >( ::if_nametoindex( device.c_str() ) );
      if ( ::bind( fd_.get(), reinterpret_cast< sockaddr * >( &address ), sizeof address ) < 0 ) {
         Linux::throwErrno( "bind", errno );
      }
   }

   // Waits for `count` test frames, at most for `timeout`, and returns those received. Ignores other
   // frames, which the kernel sends on its own.
   std::vector< std::string >
   frames( std::size_t count,
           std::chrono::milliseconds timeout = std::chrono::milliseconds( 2000 ) ) {
      std::vector< std::string > frames;
      auto const end = std::chrono::steady_clock::now() + timeout;
      while ( frames.size() < count ) {
         auto const left = std::chrono::duration_cast< std::chrono::milliseconds >(
            end - std::chrono::steady_clock::now() );
         pollfd ready{ fd_.get(), POLLIN, 0 };
         if ( left.count() <= 0 || ::poll( &ready, 1, static_cast< int >( left.count() ) ) <= 0 ) {
            break;
         }
         std::string frame( 70000, '\0' );
         auto const length = ::recv( fd_.get(), frame.data(), frame.size(), 0 );
         frame.resize( length > 0 ? static_cast< std::size_t >( length ) : 0 );
         if ( frame.size() >= 14 && frame.substr( 12, 2 ) == testType ) {
            frames.push_back( std::move( frame ) );
         }
      }
      return frames;
   }

   // The EtherType for local experiments, which the kernel does not use.
   static inline std::string const testType = "\x88\xb5";

 private:
   Linux::Fd fd_;
};

// A broadcast Ethernet frame with `payload`.
inline std::string testFrame( std::string const & payload ) {
   return std::string( 6, '\xff' ) + std::string( "\x02\0\0\0\0\x01", 6 ) + Capture::testType +
          payload;
}

// A fixture with an event loop, for tests that create namespaces.
class NetworkTest : public ::testing::Test {
 protected:
   void SetUp() override {
      if ( ::geteuid() != 0 && !std::getenv( "CI" ) ) {
         GTEST_SKIP() << "creating network namespaces needs root";
      }
      static bool const swept = ( sweepNamespaces(), true );
      (void)swept;
   }

   // Turns the loop until `condition` is true. Returns false after the timeout.
   bool turnUntil( std::function< bool() > const & condition,
                   std::chrono::milliseconds timeout = std::chrono::milliseconds( 5000 ) ) {
      auto const end = std::chrono::steady_clock::now() + timeout;
      while ( !condition() ) {
         if ( std::chrono::steady_clock::now() > end ) {
            return false;
         }
         loop_.turn( std::chrono::milliseconds( 20 ) );
      }
      return true;
   }

   // Turns the loop for the given time, so that pending events are handled.
   void settle( std::chrono::milliseconds quiet = std::chrono::milliseconds( 50 ) ) {
      auto const end = std::chrono::steady_clock::now() + quiet;
      while ( std::chrono::steady_clock::now() < end ) {
         loop_.turn( std::chrono::milliseconds( 10 ) );
      }
   }

   Linux::EventLoop loop_;
};

} // namespace Valen::Test
