#include "linux/LinkSocket.h"

#include "linux/Rtnetlink.h"
#include "platform/quill/Printable.h"

#include <algorithm>
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
   LinkSetting const setting{ link, state };
   auto const result = statesAre( { &setting, 1 } ).front();
   if ( result.error ) {
      throw Quill::ErrnoException( result.why, result.error );
   }
   return result.changed;
}

std::vector< LinkResult > LinkSocket::statesAre( std::span< LinkSetting const > settings ) {
   std::vector< LinkResult > results( settings.size() );
   std::vector< Asked > asked;
   for ( std::size_t i = 0; i < settings.size(); ++i ) {
      if ( isToAsk( settings[ i ], results[ i ] ) ) {
         asked.push_back( { settings[ i ], results[ i ] } );
      }
   }
   if ( !asked.empty() ) {
      ask( asked );
   }
   return results;
}

// Whether the link exists, and is in the other state.
bool LinkSocket::isToAsk( LinkSetting const & setting, LinkResult & result ) const {
   Quill::Expect const expected( Quill::ExceptionId::errnoFailure );
   try {
      return state( setting.link ) != setting.state;
   } catch ( Quill::ErrnoException const & e ) {
      result = { e.number(), e.text(), false };
      return false;
   }
}

void LinkSocket::ask( std::vector< Asked > & asked ) {
   auto const first = sequence_ + 1;
   std::vector< std::byte > requests;
   for ( auto const & [ setting, result, answered ] : asked ) {
      auto const request = setting.state == LinkState::up
                              ? Rtnetlink::upRequest( ++sequence_, setting.link.ifIndex )
                              : Rtnetlink::downRequest( ++sequence_, setting.link.ifIndex );
      requests.insert( requests.end(), request.begin(), request.end() );
   }
   broken_ = true; // until it has answered
   Quill::Expect const expected( Quill::ExceptionId::errnoFailure );
   try {
      socket_.send( requests );
      awaitAnswers( asked, first );
   } catch ( Quill::ErrnoException const & e ) {
      for ( auto & [ setting, result, answered ] : asked ) {
         result = answered ? result : LinkResult{ e.number(), e.text(), false };
      }
   }
}

void LinkSocket::awaitAnswers( std::vector< Asked > & asked, U32 first ) {
   auto left = asked.size();
   auto deadline = Clock::now() + timeout_;
   while ( left > 0 ) {
      std::span< std::byte const > datagram;
      if ( socket_.receive( buffer_, datagram ) != RtnetlinkSocket::Received::nothing ) {
         auto const answers = takeAnswers( datagram, asked, first );
         left -= answers;
         deadline = answers ? Clock::now() + timeout_ : deadline;
      } else if ( !await( deadline ) ) {
         auto const silent = std::find_if( asked.begin(), asked.end(),
                                           []( auto const & each ) { return !each.answered; } );
         throw Quill::ErrnoException(
            "no answer from the kernel about " + silent->setting.link.text(), ETIMEDOUT );
      }
   }
   broken_ = false;
}

// Returns how many there were.
std::size_t LinkSocket::takeAnswers( std::span< std::byte const > datagram,
                                     std::vector< Asked > & asked, U32 first ) const {
   std::size_t count = 0;
   Rtnetlink::Parser parser( datagram );
   Rtnetlink::Message message;
   while ( parser.next( message ) ) {
      auto const number = message.sequence - first; // wraps around for those of others
      if ( message.kind != Rtnetlink::Message::Kind::error || number >= asked.size() ||
           asked[ number ].answered ) {
         continue;
      }
      auto & [ setting, result, answered ] = asked[ number ];
      answered = true;
      ++count;
      result.changed = message.error == 0;
      if ( ( result.error = message.error ) != 0 ) {
         auto const * const what =
            setting.state == LinkState::up ? "cannot set up " : "cannot set down ";
         result.why = what + setting.link.text() + ": " + errorText( message.error );
      }
   }
   return count;
}

// Whether there is something to receive before the deadline.
bool LinkSocket::await( Clock::time_point deadline ) const {
   auto const left = std::chrono::ceil< std::chrono::milliseconds >( deadline - Clock::now() );
   pollfd fd{ socket_.fd(), POLLIN, 0 };
   return left.count() > 0 && ::poll( &fd, 1, static_cast< int >( left.count() ) ) != 0;
}

} // namespace Valen::Linux
