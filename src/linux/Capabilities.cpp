#include "linux/Capabilities.h"

#include <cerrno>
#include <cstring>
#include <linux/capability.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

namespace Valen::Linux {

namespace {

// A request that changes something, of a type that no subsystem handles: the kernel checks the privilege
// (EPERM), finds nothing to call (EOPNOTSUPP), and takes no lock, which another process may hold for long.
constexpr U16 unhandledRequest = RTM_NEWNEIGHTBL + 1;

struct Request {
   nlmsghdr header;
   rtgenmsg general;
};

struct Reply {
   nlmsghdr header;
   nlmsgerr error;
};

// The errno with which the kernel rejects the request; 0 when that is unknown.
int rejectionOf( int socket ) noexcept {
   Request request{};
   request.header.nlmsg_len = sizeof request;
   request.header.nlmsg_type = unhandledRequest;
   request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK;
   sockaddr_nl kernel{};
   kernel.nl_family = AF_NETLINK;
   if ( ::sendto( socket, &request, sizeof request, MSG_DONTWAIT,
                  reinterpret_cast< sockaddr const * >( &kernel ), sizeof kernel ) < 0 ) {
      return 0;
   }
   Reply reply{};
   auto const size = ::recv( socket, &reply, sizeof reply, MSG_DONTWAIT );
   bool const isError =
      size >= static_cast< ssize_t >( sizeof reply ) && reply.header.nlmsg_type == NLMSG_ERROR;
   return isError ? -reply.error.error : 0;
}

} // namespace

std::vector< std::string > missingCapabilities( NetNsUse use ) {
   __user_cap_header_struct header{ _LINUX_CAPABILITY_VERSION_3, 0 };
   __user_cap_data_struct data[ _LINUX_CAPABILITY_U32S_3 ]{};
   if ( ::syscall( SYS_capget, &header, data ) < 0 ) {
      return {};
   }
   std::vector< std::pair< unsigned, char const * > > needed{ { CAP_NET_ADMIN, "CAP_NET_ADMIN" },
                                                              { CAP_NET_RAW, "CAP_NET_RAW" } };
   if ( use == NetNsUse::named ) {
      needed.emplace_back( CAP_SYS_ADMIN, "CAP_SYS_ADMIN" );
   }
   std::vector< std::string > missing;
   for ( auto const & [ number, name ] : needed ) {
      if ( !( data[ number / 32 ].effective >> ( number % 32 ) & 1u ) ) {
         missing.emplace_back( name );
      }
   }
   return missing;
}

bool mayChangeLinks( NetNs const & netNs ) {
   NetNsScope const inside( netNs );
   Fd const socket(
      ::socket( AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE ) );
   return !socket || rejectionOf( socket.get() ) != EPERM;
}

} // namespace Valen::Linux
