#include "Devices.h"

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <linux/if_packet.h>
#include <net/if.h>
#include <stdexcept>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/socket.h>

namespace Valen::Bench {

namespace {

void ipBatch( std::string const & commands ) {
   auto * const ip = ::popen( "ip -batch -", "w" );
   if ( !ip ) {
      Linux::throwErrno( "popen ip", errno );
   }
   std::fputs( commands.c_str(), ip );
   if ( ::pclose( ip ) != 0 ) {
      throw std::runtime_error( "ip could not make the devices" );
   }
}

} // namespace

void ipv6Is( Ipv6 ipv6 ) {
   for ( auto const * which : { "all", "default" } ) {
      std::ofstream( std::string( "/proc/sys/net/ipv6/conf/" ) + which + "/disable_ipv6" )
         << ( ipv6 == Ipv6::off );
   }
}

void makeRoutes( U32 count ) {
   std::string commands;
   if ( ::if_nametoindex( "routes" ) != 0 ) {
      commands += "link del routes\n";
   }
   commands += "link add routes type ifb\nlink set routes up\n";
   char route[ 64 ];
   for ( U32 i = 0; i < count; ++i ) {
      std::snprintf( route, sizeof route, "route add 2001:db8:%x:%x::/64 dev routes\n", i >> 16,
                     i & 0xffff );
      commands += route;
   }
   ipBatch( commands );
}

void makeVethPair() {
   if ( ::if_nametoindex( "e0" ) == 0 ) {
      ipv6Is( Ipv6::off );
      ipBatch( "link add e0 type veth peer name p0\nlink set e0 up\nlink set p0 up\n" );
   }
}

void makeDropDevices( U32 count ) {
   if ( ::if_nametoindex( "e0" ) != 0 ) {
      return;
   }
   ipv6Is( Ipv6::off ); // or each new one would cost more than the one before
   std::string commands;
   for ( U32 i = 0; i < count; ++i ) {
      auto const name = std::string( "e" ).append( std::to_string( i ) );
      commands += "link add " + name + " type ifb\nlink set " + name + " up\n";
   }
   ipBatch( commands );
}

void makeNamespaceNames( U32 count ) {
   for ( U32 i = 0; i < count; ++i ) {
      auto const path = "/run/netns/ns" + std::to_string( i );
      std::ofstream( path ).close();
      if ( ::mount( "/proc/self/ns/net", path.c_str(), nullptr, MS_BIND, nullptr ) < 0 ) {
         Linux::throwErrno( "mount " + path, errno );
      }
   }
   rlimit limit{};
   ::getrlimit( RLIMIT_NOFILE, &limit );
   limit.rlim_cur = limit.rlim_max;
   ::setrlimit( RLIMIT_NOFILE, &limit );
}

U32 deviceIndex( std::string const & deviceName ) {
   auto const index = ::if_nametoindex( deviceName.c_str() );
   if ( index == 0 ) {
      Linux::throwErrno( "if_nametoindex " + deviceName, errno );
   }
   return index;
}

std::string frame( std::size_t bytes ) {
   std::string frame( "\x01\x80\xc2\x00\x00\x0e\x02\x00\x00\x00\x00\x01\x88\xb5", 14 );
   frame.resize( bytes, 'g' );
   return frame;
}

BareSender::BareSender()
    : socket_( Linux::requireFd( ::socket( AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, 0 ),
                                 "socket" ) ) {
   int const bytes = 16 << 20;
   ::setsockopt( socket_.get(), SOL_SOCKET, SO_SNDBUFFORCE, &bytes, sizeof bytes );
}

void BareSender::send( std::string_view frame, U32 ifIndex ) const {
   sockaddr_ll device{};
   device.sll_family = AF_PACKET;
   device.sll_ifindex = static_cast< int >( ifIndex );
   if ( ::sendto( socket_.get(), frame.data(), frame.size(), MSG_DONTWAIT,
                  reinterpret_cast< sockaddr const * >( &device ), sizeof device ) < 0 ) {
      Linux::throwErrno( "sendto", errno );
   }
}

} // namespace Valen::Bench
