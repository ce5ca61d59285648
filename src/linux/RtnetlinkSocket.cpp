#include "linux/RtnetlinkSocket.h"

#include "linux/DescriptorReserve.h"

#include <cerrno>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

namespace Valen::Linux {

namespace {

int openSocket() noexcept {
   return ::socket( AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE );
}

// A socket for requests may come from the reserve: a link has to go down even when the process is out of
// descriptors.
Fd openInside( NetNs const & netNs, std::optional< int > const & receiveBuffer ) {
   NetNsScope const inside( netNs );
   auto fd = receiveBuffer ? Fd( openSocket() ) : DescriptorReserve::ofProcess().open( openSocket );
   if ( !fd ) {
      throwErrno( "cannot open an rtnetlink socket in network namespace \"" +
                     netNs.name.stdString() + "\"",
                  errno );
   }
   return fd;
}

// SO_RCVBUFFORCE needs CAP_NET_ADMIN. Without it, the system's limit applies.
void receiveBufferIs( int fd, int bytes ) noexcept {
   if ( ::setsockopt( fd, SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof bytes ) < 0 ) {
      ::setsockopt( fd, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes );
   }
}

} // namespace

RtnetlinkSocket::RtnetlinkSocket( NetNs const & netNs, std::optional< int > receiveBuffer )
    : fd_( openInside( netNs, receiveBuffer ) ) {
   sockaddr_nl address{};
   address.nl_family = AF_NETLINK;
   if ( receiveBuffer ) {
      receiveBufferIs( fd_.get(), *receiveBuffer );
      address.nl_groups = RTMGRP_LINK;
   }
   if ( ::bind( fd_.get(), reinterpret_cast< sockaddr const * >( &address ), sizeof address ) <
        0 ) {
      throwErrno( "cannot bind an rtnetlink socket", errno );
   }
}

void RtnetlinkSocket::send( std::span< std::byte const > request ) {
   sockaddr_nl kernel{};
   kernel.nl_family = AF_NETLINK;
   if ( ::sendto( fd_.get(), request.data(), request.size(), MSG_DONTWAIT,
                  reinterpret_cast< sockaddr const * >( &kernel ), sizeof kernel ) < 0 ) {
      throwErrno( "cannot send to rtnetlink", errno );
   }
}

RtnetlinkSocket::Received RtnetlinkSocket::receive( std::span< std::byte > buffer,
                                                    std::span< std::byte const > & datagram ) {
   for ( ;; ) {
      sockaddr_nl sender{};
      socklen_t senderLength = sizeof sender;
      auto const received =
         ::recvfrom( fd_.get(), buffer.data(), buffer.size(), MSG_DONTWAIT | MSG_TRUNC,
                     reinterpret_cast< sockaddr * >( &sender ), &senderLength );
      if ( received < 0 && errno == EINTR ) {
         continue;
      }
      if ( received < 0 && errno == EAGAIN ) {
         return Received::nothing;
      }
      if ( received < 0 && ( errno == ENOBUFS || errno == ENOMEM ) ) {
         return Received::lost;
      }
      if ( received < 0 ) {
         throwErrno( "cannot receive from rtnetlink", errno );
      }
      if ( sender.nl_pid != 0 ) {
         continue; // from another process: ignore it
      }
      auto const length = static_cast< std::size_t >( received );
      if ( length > buffer.size() ) {
         return Received::lost;
      }
      datagram = buffer.first( length );
      return Received::datagram;
   }
}

} // namespace Valen::Linux
