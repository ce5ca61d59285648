#include "valenctl/frame/DeviceAddresses.h"

#include <bit>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <future>
#include <ifaddrs.h>
#include <memory>
#include <net/if.h>
#include <net/if_arp.h>
#include <netinet/in.h>
#include <netpacket/packet.h>
#include <sched.h>
#include <stdexcept>
#include <unistd.h>

namespace Valenctl {

namespace {

using Goodbye::Ipv4;
using Goodbye::Ipv6;

// Moves the calling thread into a namespace; it cannot return.
void enter( std::string const & netNs ) {
   auto const path = netNs.find( '/' ) == std::string::npos ? "/run/netns/" + netNs : netNs;
   auto const fd = ::open( path.c_str(), O_RDONLY | O_CLOEXEC );
   if ( fd < 0 ) {
      throw std::runtime_error( "cannot open network namespace " + netNs + ": " +
                                std::strerror( errno ) );
   }
   auto const result = ::setns( fd, CLONE_NEWNET );
   auto const number = errno;
   ::close( fd );
   if ( result < 0 ) {
      throw std::runtime_error( "cannot enter network namespace " + netNs + ": " +
                                std::strerror( number ) );
   }
}

void add( DeviceAddresses & addresses, ifaddrs const & entry ) {
   if ( entry.ifa_addr->sa_family == AF_PACKET ) {
      auto const & link = reinterpret_cast< sockaddr_ll const & >( *entry.ifa_addr );
      if ( link.sll_hatype == ARPHRD_ETHER && link.sll_halen == Goodbye::Mac::address_size ) {
         addresses.mac = Goodbye::Mac( link.sll_addr );
      }
   } else if ( entry.ifa_addr->sa_family == AF_INET && !addresses.ipv4 ) {
      auto const of = []( sockaddr const * address ) {
         return reinterpret_cast< sockaddr_in const * >( address )->sin_addr.s_addr;
      };
      auto const length = entry.ifa_netmask ? std::popcount( of( entry.ifa_netmask ) ) : 32;
      addresses.ipv4 = { Ipv4( of( entry.ifa_addr ) ), static_cast< U8 >( length ) };
   } else if ( entry.ifa_addr->sa_family == AF_INET6 && !addresses.linkLocal ) {
      auto const & address = reinterpret_cast< sockaddr_in6 const & >( *entry.ifa_addr );
      Ipv6 const ipv6( address.sin6_addr.s6_addr );
      if ( Goodbye::isLinkLocal( ipv6 ) ) {
         addresses.linkLocal = ipv6;
      }
   }
}

DeviceAddresses addressesHere( std::string const & device, std::string const & where ) {
   if ( ::if_nametoindex( device.c_str() ) == 0 ) {
      throw std::runtime_error( "there is no device " + device + where );
   }
   ifaddrs * list = nullptr;
   if ( ::getifaddrs( &list ) < 0 ) {
      throw std::runtime_error( "cannot read the addresses of " + device + where + ": " +
                                std::strerror( errno ) );
   }
   std::unique_ptr< ifaddrs, void ( * )( ifaddrs * ) > const owner( list, ::freeifaddrs );
   DeviceAddresses addresses;
   for ( auto const * entry = list; entry; entry = entry->ifa_next ) {
      if ( entry->ifa_addr && device == entry->ifa_name ) {
         add( addresses, *entry );
      }
   }
   return addresses;
}

std::vector< std::string > namesHere() {
   std::unique_ptr< struct if_nameindex, void ( * )( struct if_nameindex * ) > const list(
      ::if_nameindex(), ::if_freenameindex );
   if ( !list ) {
      throw std::runtime_error( std::string( "cannot list the devices: " ) +
                                std::strerror( errno ) );
   }
   std::vector< std::string > names;
   for ( auto const * entry = list.get(); entry->if_index; ++entry ) {
      names.emplace_back( entry->if_name );
   }
   return names;
}

// What `read` returns in the namespace. A separate thread enters it, so that this one does not have to
// return from it.
template < class Read > auto inside( std::string const & netNs, Read const & read ) {
   auto const reading = [ & ] {
      enter( netNs );
      return read();
   };
   return std::async( std::launch::async, reading ).get();
}

} // namespace

DeviceAddresses deviceAddresses( std::string const & device, std::string const & netNs ) {
   if ( netNs.empty() ) {
      return addressesHere( device, "" );
   }
   return inside( netNs,
                  [ & ] { return addressesHere( device, " in network namespace " + netNs ); } );
}

std::vector< std::string > deviceNames( std::string const & netNs ) {
   return netNs.empty() ? namesHere() : inside( netNs, namesHere );
}

} // namespace Valenctl
