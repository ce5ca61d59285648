#include "valend/base/Log.h"

#include "linux/Fd.h"
#include "linux/StandardError.h"
#include "tests/support/NotifySocket.h"
#include "tests/support/WorkDirectory.h"

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace Valend {
namespace {

using Valen::Linux::JournalSent;
using Valen::Linux::JournalWait;
using Valen::Linux::sendToJournal;

// --- The journal's socket ------------------------------------------------------------------------

TEST( LogTest, AMessageIsFieldsInLines ) {
   EXPECT_EQ( journalMessage( LogLevel::warning, "text", { { "INTERFACE", "Ethernet1" } } ),
              "MESSAGE=text\nPRIORITY=4\nSYSLOG_IDENTIFIER=valend\nINTERFACE=Ethernet1\n" );
}

TEST( LogTest, AValueOfSeveralLinesComesAfterItsLength ) {
   using namespace std::string_literals;
   EXPECT_EQ( journalMessage( LogLevel::info, "a\nb", {} ),
              "MESSAGE\n\x03\0\0\0\0\0\0\0"s + "a\nb\nPRIORITY=6\nSYSLOG_IDENTIFIER=valend\n" );
}

TEST( LogTest, AMessageArrivesAsOneDatagram ) {
   Valen::Test::WorkDirectory const work;
   auto const path = work / "socket";
   sockaddr_un address{};
   address.sun_family = AF_UNIX;
   path.copy( address.sun_path, sizeof address.sun_path - 1 );
   Valen::Linux::Fd const listener( ::socket( AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0 ) );
   ASSERT_EQ( ::bind( listener.get(), reinterpret_cast< sockaddr * >( &address ), sizeof address ),
              0 );
   EXPECT_EQ( sendToJournal( "MESSAGE=x\n", JournalWait::none, path ), JournalSent::sent );
   char text[ 100 ];
   auto const got = ::recv( listener.get(), text, sizeof text, MSG_DONTWAIT );
   EXPECT_EQ( std::string( text, got > 0 ? static_cast< std::size_t >( got ) : 0 ), "MESSAGE=x\n" );
}

TEST( LogTest, AJournalThatIsNotThereIsSaidSo ) {
   for ( auto const & socket : { std::string( "/nowhere" ), std::string( 200, 'x' ) } ) {
      EXPECT_EQ( sendToJournal( "MESSAGE=x\n", JournalWait::none, socket ), JournalSent::failed );
   }
}

TEST( LogTest, AJournalThatDoesNotReadIsNotWaitedFor ) {
   Valen::Test::WorkDirectory const work;
   Valen::Test::NotifySocket const journal( work / "socket" ); // receives nothing before received()
   auto sent = JournalSent::sent;
   for ( int i = 0; i < 100'000 && sent == JournalSent::sent; ++i ) {
      sent = sendToJournal( "MESSAGE=x\n", JournalWait::none, journal.path() );
   }
   EXPECT_EQ( sent, JournalSent::full );
}

} // namespace
} // namespace Valend
