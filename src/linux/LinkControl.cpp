#include "linux/LinkControl.h"

#include "platform/quill/Printable.h"

#include "linux/Rtnetlink.h"
#include "linux/RtnetlinkSocket.h"

#include <cerrno>
#include <net/if.h>
#include <poll.h>
#include <vector>

namespace Valen::Linux {

namespace {

using Clock = std::chrono::steady_clock;

// The kernel's answer to one request.
struct Answer {
   int error = 0;
   std::string deviceName;
   U32 flags = 0;
};

// An exchange of requests and answers with the kernel about one device.
class Conversation {
 public:
   Conversation( NetNs const & netNs, U32 ifIndex, Quill::Name const & deviceName,
                 std::chrono::milliseconds timeout )
       : object_( deviceName.stdString() + " (index " + std::to_string( ifIndex ) +
                  ") in network namespace \"" + netNs.name.stdString() + "\"" ),
         ifIndex_( ifIndex ), deviceName_( deviceName ), deadline_( Clock::now() + timeout ),
         socket_( netNs, std::nullopt ), buffer_( RtnetlinkSocket::datagramBytes ) {}

   // The state of the device, after verifying that the index belongs to the name.
   LinkState state() {
      auto const answer = ask( Rtnetlink::linkRequest( ++sequence_, ifIndex_ ) );
      if ( answer.error ) {
         throwErrno( "cannot query " + object_, answer.error );
      }
      if ( answer.deviceName != deviceName_.view() ) {
         throw Quill::ErrnoException( object_ + " is now " + Quill::printable( answer.deviceName ),
                                      ENODEV );
      }
      return answer.flags & IFF_UP ? LinkState::up : LinkState::down;
   }

   void stateIs( LinkState state ) {
      bool const up = state == LinkState::up;
      ++sequence_;
      auto const answer = ask( up ? Rtnetlink::upRequest( sequence_, ifIndex_ )
                                  : Rtnetlink::downRequest( sequence_, ifIndex_ ) );
      if ( answer.error ) {
         throwErrno( ( up ? "cannot set up " : "cannot set down " ) + object_, answer.error );
      }
   }

 private:
   Answer ask( std::vector< std::byte > const & request ) {
      socket_.send( request );
      for ( ;; ) {
         std::span< std::byte const > datagram;
         auto const received = socket_.receive( buffer_, datagram );
         if ( received == RtnetlinkSocket::Received::nothing ) {
            await();
         } else if ( auto const answer = answerIn( datagram ) ) {
            return *answer;
         }
      }
   }

   std::optional< Answer > answerIn( std::span< std::byte const > datagram ) const {
      Rtnetlink::Parser parser( datagram );
      Rtnetlink::Message message;
      while ( parser.next( message ) ) {
         using Kind = Rtnetlink::Message::Kind;
         if ( message.sequence == sequence_ &&
              ( message.kind == Kind::link || message.kind == Kind::error ) ) {
            return Answer{ message.error, std::string( message.deviceName ), message.flags };
         }
      }
      return std::nullopt;
   }

   void await() {
      auto const left =
         std::chrono::ceil< std::chrono::milliseconds >( deadline_ - Clock::now() ).count();
      pollfd fd{ socket_.fd(), POLLIN, 0 };
      if ( left <= 0 || ::poll( &fd, 1, static_cast< int >( left ) ) == 0 ) {
         throw Quill::ErrnoException( "no answer from the kernel about " + object_, ETIMEDOUT );
      }
   }

   std::string const object_;
   U32 const ifIndex_;
   Quill::Name const deviceName_;
   Clock::time_point const deadline_;
   RtnetlinkSocket socket_;
   std::vector< std::byte > buffer_;
   U32 sequence_ = 0;
};

void requireIndex( U32 ifIndex, Quill::Name const & deviceName ) {
   if ( ifIndex == 0 ) { // the kernel would look the device up by its name
      throw Quill::ErrnoException( "device " + deviceName.stdString() + " has no index", ENODEV );
   }
}

} // namespace

LinkControl::LinkControl( NetNsDirectories directories, std::chrono::milliseconds timeout )
    : directories_( std::move( directories ) ), timeout_( timeout ) {}

void LinkControl::stateIs( Corvid::NamespaceName const & netNs, U32 ifIndex,
                           Quill::Name const & deviceName, LinkState state ) {
   requireIndex( ifIndex, deviceName );
   Conversation conversation( directories_.open( netNs ), ifIndex, deviceName, timeout_ );
   if ( conversation.state() != state ) {
      conversation.stateIs( state );
   }
}

LinkState LinkControl::state( Corvid::NamespaceName const & netNs, U32 ifIndex,
                              Quill::Name const & deviceName ) {
   requireIndex( ifIndex, deviceName );
   return Conversation( directories_.open( netNs ), ifIndex, deviceName, timeout_ ).state();
}

} // namespace Valen::Linux
