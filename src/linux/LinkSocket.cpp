#include "linux/LinkSocket.h"

#include "linux/Rtnetlink.h"
#include "platform/quill/Printable.h"

#include <cerrno>
#include <cstring>
#include <linux/sockios.h>
#include <net/if.h>
#include <poll.h>
#include <sys/ioctl.h>

namespace Valen::Linux {

namespace {

using Clock = std::chrono::steady_clock;

// Large enough for an acknowledgment with the request in it.
constexpr std::size_t answerBytes = 4096;

void query( int socket, unsigned long what, ifreq & request, LinkId const & link ) {
   if ( ::ioctl( socket, what, &request ) < 0 ) {
      throwErrno( "cannot query " + link.text(), errno );
   }
}

} // namespace

std::string LinkId::text() const {
   return device + " (index " + std::to_string( ifIndex ) + ") in network namespace \"" + netNs +
          "\"";
}

LinkState linkState( int socket, LinkId const & link ) {
   if ( link.ifIndex == 0 ) {
      throw Quill::ErrnoException( "device " + link.device + " has no index", ENODEV );
   }
   ifreq request{};
   request.ifr_ifindex = static_cast< int >( link.ifIndex );
   query( socket, SIOCGIFNAME, request, link );
   std::string const name( request.ifr_name,
                           ::strnlen( request.ifr_name, sizeof request.ifr_name ) );
   if ( name != link.device ) {
      throw Quill::ErrnoException( link.text() + " is now " + Quill::printable( name ), ENODEV );
   }
   query( socket, SIOCGIFFLAGS, request, link ); // of that name
   return request.ifr_flags & IFF_UP ? LinkState::up : LinkState::down;
}

LinkSocket::LinkSocket( NetNs const & netNs, std::chrono::milliseconds timeout )
    : identity_( netNs.identity ), timeout_( timeout ), socket_( netNs, std::nullopt ),
      buffer_( answerBytes ) {}

bool LinkSocket::stateIs( LinkId const & link, LinkState state ) {
   if ( this->state( link ) == state ) {
      return false;
   }
   bool const up = state == LinkState::up;
   ++sequence_;
   auto const error = ask( up ? Rtnetlink::upRequest( sequence_, link.ifIndex )
                              : Rtnetlink::downRequest( sequence_, link.ifIndex ),
                           link );
   if ( error ) {
      throwErrno( ( up ? "cannot set up " : "cannot set down " ) + link.text(), error );
   }
   return true;
}

// Returns the kernel's error; 0 after a success.
int LinkSocket::ask( std::vector< std::byte > const & request, LinkId const & link ) {
   auto const deadline = Clock::now() + timeout_;
   broken_ = true; // until it has answered
   socket_.send( request );
   for ( ;; ) {
      std::span< std::byte const > datagram;
      auto const received = socket_.receive( buffer_, datagram );
      if ( received == RtnetlinkSocket::Received::nothing ) {
         await( link, deadline );
      } else if ( auto const error = answerIn( datagram ) ) {
         broken_ = false;
         return *error;
      }
   }
}

std::optional< int > LinkSocket::answerIn( std::span< std::byte const > datagram ) const {
   Rtnetlink::Parser parser( datagram );
   Rtnetlink::Message message;
   while ( parser.next( message ) ) {
      if ( message.sequence == sequence_ && message.kind == Rtnetlink::Message::Kind::error ) {
         return message.error;
      }
   }
   return std::nullopt;
}

void LinkSocket::await( LinkId const & link, Clock::time_point deadline ) {
   auto const left = std::chrono::ceil< std::chrono::milliseconds >( deadline - Clock::now() );
   pollfd fd{ socket_.fd(), POLLIN, 0 };
   if ( left.count() <= 0 || ::poll( &fd, 1, static_cast< int >( left.count() ) ) == 0 ) {
      throw Quill::ErrnoException( "no answer from the kernel about " + link.text(), ETIMEDOUT );
   }
}

} // namespace Valen::Linux
