#include "linux/MulticastGroups.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <net/if.h>
#include <net/if_arp.h>
#include <netinet/in.h>
#include <sstream>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace Valen::Linux {

namespace {

// Of the thread's namespace.
constexpr char const * directory = "/proc/thread-self/net/";

constexpr unsigned linkScope = 0x20; // in if_inet6, as in include/net/ipv6.h

std::string bytesOf( std::string const & hex ) {
   std::string bytes;
   for ( std::size_t at = 0; at + 2 <= hex.size(); at += 2 ) {
      bytes.push_back( static_cast< char >( std::stoi( hex.substr( at, 2 ), nullptr, 16 ) ) );
   }
   return bytes;
}

// A device line "2  eth0  :  1  V3", and a line for each of its groups, "  010000E0  1 0:00000000  0": the address as a
// number of the machine's order.
void readIgmp( U32 ifIndex, MulticastGroups & found ) {
   std::ifstream file( std::string( directory ) + "igmp" );
   bool own = false;
   for ( std::string line; std::getline( file, line ); ) {
      std::istringstream words( line );
      if ( line[ 0 ] != '\t' && line[ 0 ] != ' ' ) {
         U32 index = 0;
         std::string name, colon, count, version;
         words >> index >> name >> colon >> count >> version;
         own = index == ifIndex;
         if ( own && version.starts_with( 'V' ) && version.size() == 2 ) {
            found.igmpVersion = version[ 1 ] - '0';
         }
      } else if ( own ) {
         std::string group;
         words >> group;
         auto const address = static_cast< U32 >( std::stoul( group, nullptr, 16 ) );
         found.groups.emplace_back( reinterpret_cast< char const * >( &address ), sizeof address );
      }
   }
}

// "2  eth0  ff02000000000000000000000000fb00  1 00000004 0"
void readMld( U32 ifIndex, MulticastGroups & found ) {
   std::ifstream file( std::string( directory ) + "igmp6" );
   U32 index = 0;
   std::string name, group;
   for ( std::string line; std::getline( file, line ); ) {
      if ( std::istringstream( line ) >> index >> name >> group && index == ifIndex ) {
         found.groups.push_back( bytesOf( group ) );
      }
   }
}

// "fe800000000000000000000000000001 02 40 20 80 eth0": the address, the index, the prefix, the scope.
void readLinkLocal( U32 ifIndex, MulticastGroups & found ) {
   std::ifstream file( std::string( directory ) + "if_inet6" );
   for ( std::string line; std::getline( file, line ) && found.linkLocal.empty(); ) {
      std::string address;
      unsigned index = 0, prefix = 0, scope = 0;
      std::istringstream words( line );
      words >> address >> std::hex >> index >> prefix >> scope;
      if ( words && index == ifIndex && scope == linkScope ) {
         found.linkLocal = bytesOf( address );
      }
   }
}

void readDevice( U32 ifIndex, MulticastGroups & found ) {
   Fd const socket( ::socket( AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC, 0 ) );
   if ( !socket ) {
      throwErrno( "cannot open a socket", errno );
   }
   ifreq request{};
   request.ifr_ifindex = static_cast< int >( ifIndex );
   if ( ::ioctl( socket.get(), SIOCGIFNAME, &request ) < 0 ||
        ::ioctl( socket.get(), SIOCGIFMTU, &request ) < 0 ) {
      throwErrno( "cannot look at the device with the index " + std::to_string( ifIndex ), errno );
   }
   found.mtu = static_cast< unsigned >( request.ifr_mtu );
   if ( ::ioctl( socket.get(), SIOCGIFHWADDR, &request ) == 0 &&
        request.ifr_hwaddr.sa_family == ARPHRD_ETHER ) {
      found.mac.assign( request.ifr_hwaddr.sa_data, 6 );
   }
   if ( ::ioctl( socket.get(), SIOCGIFADDR, &request ) == 0 ) {
      sockaddr_in address{};
      std::memcpy( &address, &request.ifr_addr, sizeof address );
      found.ipv4.assign( reinterpret_cast< char const * >( &address.sin_addr ),
                         sizeof address.sin_addr );
   }
}

} // namespace

MulticastGroups multicastGroups( NetNs const & netNs, U32 ifIndex ) {
   NetNsScope const inside( netNs );
   MulticastGroups found;
   readDevice( ifIndex, found );
   readIgmp( ifIndex, found );
   readMld( ifIndex, found );
   readLinkLocal( ifIndex, found );
   return found;
}

} // namespace Valen::Linux
