#include "linux/LinkControl.h"

#include "linux/Rtnetlink.h"
#include "linux/RtnetlinkSocket.h"

#include <cerrno>
#include <net/if.h>
#include <poll.h>
#include <vector>

namespace Valen::Linux {

namespace {

using Clock = std::chrono::steady_clock;

// What the kernel said to one request.
struct Answer {
   int error = 0;
   std::string deviceName;
   U32 flags = 0;
};

// One conversation with the kernel about one device.
class Conversation {
 public:
   Conversation( NetNs const & netNs, U32 ifIndex, Quill::Name const & deviceName,
                 std::chrono::milliseconds patience )
       : object_( deviceName.stdString() + " (index " + std::to_string( ifIndex ) +
                  ") in network namespace \"" + netNs.name.stdString() + "\"" ),
         ifIndex_( ifIndex ), deviceName_( deviceName ), deadline_( Clock::now() + patience ),
         socket_( netNs, std::nullopt ), buffer_( RtnetlinkSocket::datagramBytes ) {}

   // The device's flags, once it is known that the index bears the name.
   U32 flags() {
      auto const answer = ask( Rtnetlink::linkRequest( ++sequence_, ifIndex_ ) );
      if ( answer.error ) {
         throwErrno( "query of " + object_, answer.error );
      }
      if ( answer.deviceName != deviceName_.view() ) {
         throw Quill::ErrnoException( object_ + " is now " + answer.deviceName, ENODEV );
      }
      return answer.flags;
   }

   void upIs( bool up ) {
      auto const answer = ask( Rtnetlink::upRequest( ++sequence_, ifIndex_, up ) );
      if ( answer.error ) {
         throwErrno( ( up ? "setting up " : "setting down " ) + object_, answer.error );
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
   if ( ifIndex == 0 ) { // the kernel takes it for "by name"
      throw Quill::ErrnoException( "device " + deviceName.stdString() + " has no index", ENODEV );
   }
}

} // namespace

LinkControl::LinkControl( NetNsFolders folders, std::chrono::milliseconds patience )
    : folders_( std::move( folders ) ), patience_( patience ) {}

void LinkControl::upIs( Corvid::NamespaceName const & netNs, U32 ifIndex,
                        Quill::Name const & deviceName, bool up ) {
   requireIndex( ifIndex, deviceName );
   Conversation conversation( folders_.open( netNs ), ifIndex, deviceName, patience_ );
   bool const isUp = conversation.flags() & IFF_UP;
   if ( isUp != up ) {
      conversation.upIs( up );
   }
}

bool LinkControl::up( Corvid::NamespaceName const & netNs, U32 ifIndex,
                      Quill::Name const & deviceName ) {
   requireIndex( ifIndex, deviceName );
   return Conversation( folders_.open( netNs ), ifIndex, deviceName, patience_ ).flags() & IFF_UP;
}

} // namespace Valen::Linux
