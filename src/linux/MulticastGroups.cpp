#include "linux/MulticastGroups.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <net/if.h>
#include <net/if_arp.h>
#include <netinet/in.h>
#include <optional>
#include <sstream>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <utility>

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

using ByIndex = std::map< U32, MulticastGroups >;

MulticastGroups * find( ByIndex & devices, U32 ifIndex ) {
   auto const device = devices.find( ifIndex );
   return device == devices.end() ? nullptr : &device->second;
}

// A device line "2  eth0  :  1  V3", and a line for each of its groups, "  010000E0  1 0:00000000  0": the address as a
// number of the machine's order.
void readIgmp( ByIndex & devices ) {
   std::ifstream file( std::string( directory ) + "igmp" );
   MulticastGroups * device = nullptr;
   for ( std::string line; std::getline( file, line ); ) {
      std::istringstream words( line );
      if ( line[ 0 ] != '\t' && line[ 0 ] != ' ' ) {
         U32 index = 0;
         std::string name, colon, count, version;
         words >> index >> name >> colon >> count >> version;
         device = find( devices, index );
         if ( device && version.starts_with( 'V' ) && version.size() == 2 ) {
            device->igmpVersion = version[ 1 ] - '0';
         }
      } else if ( device ) {
         std::string group;
         words >> group;
         auto const address = static_cast< U32 >( std::stoul( group, nullptr, 16 ) );
         device->groups.emplace_back( reinterpret_cast< char const * >( &address ),
                                      sizeof address );
      }
   }
}

// "2  eth0  ff02000000000000000000000000fb00  1 00000004 0"
void readMld( ByIndex & devices ) {
   std::ifstream file( std::string( directory ) + "igmp6" );
   U32 index = 0;
   std::string name, group;
   for ( std::string line; std::getline( file, line ); ) {
      if ( std::istringstream( line ) >> index >> name >> group ) {
         if ( auto * const device = find( devices, index ) ) {
            device->groups.push_back( bytesOf( group ) );
         }
      }
   }
}

// "fe800000000000000000000000000001 02 40 20 80 eth0": the address, the index, the prefix, the scope.
void readLinkLocal( ByIndex & devices ) {
   std::ifstream file( std::string( directory ) + "if_inet6" );
   for ( std::string line; std::getline( file, line ); ) {
      std::string address;
      unsigned index = 0, prefix = 0, scope = 0;
      std::istringstream words( line );
      words >> address >> std::hex >> index >> prefix >> scope;
      auto * const device = words && scope == linkScope ? find( devices, index ) : nullptr;
      if ( device && device->linkLocal.empty() ) {
         device->linkLocal = bytesOf( address );
      }
   }
}

// Nothing if there is no such device.
std::optional< MulticastGroups > readDevice( Fd const & socket, U32 ifIndex ) {
   ifreq request{};
   request.ifr_ifindex = static_cast< int >( ifIndex );
   if ( ::ioctl( socket.get(), SIOCGIFNAME, &request ) < 0 ||
        ::ioctl( socket.get(), SIOCGIFMTU, &request ) < 0 ) {
      if ( errno == ENODEV || errno == ENXIO ) {
         return std::nullopt;
      }
      throwErrno( "cannot look at the device with the index " + std::to_string( ifIndex ), errno );
   }
   MulticastGroups found;
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
   return found;
}

} // namespace

ByIndex multicastGroups( NetNs const & netNs, std::set< U32 > const & devices ) {
   NetNsScope const inside( netNs );
   // Not a packet socket: when one is closed, the kernel waits for a grace period of RCU.
   Fd const socket( ::socket( AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0 ) );
   if ( !socket ) {
      throwErrno( "cannot open a socket", errno );
   }
   ByIndex found;
   for ( auto const ifIndex : devices ) {
      if ( auto device = readDevice( socket, ifIndex ) ) {
         found.emplace( ifIndex, std::move( *device ) );
      }
   }
   readIgmp( found );
   readMld( found );
   readLinkLocal( found );
   return found;
}

} // namespace Valen::Linux
