#include "valend/base/Log.h"

#include "linux/Fd.h"
#include "tests/support/WorkDirectory.h"
#include "valend/shutdown/ShutdownLog.h"

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace Valend {
namespace {

using namespace std::chrono_literals;
using ::testing::Contains;
using ::testing::Not;
using ::testing::Pair;
using Ending = ShutdownRecord::Ending;

ShutdownRecord shutdown() {
   ShutdownRecord record;
   record.interface = "Ethernet1";
   record.by = "root";
   record.withDelay = true;
   record.sent = 3;
   record.sending = 249us;
   record.held = 500ms;
   record.total = 501ms;
   record.ending = Ending::down;
   return record;
}

// --- The line of a shutdown ----------------------------------------------------------------------

TEST( ShutdownLogTest, AShutdownIsOneLine ) {
   EXPECT_EQ( shutdown().summary(), "Ethernet1: shutdown by root: 3 frames in 0.2 ms, held 500 ms, "
                                    "link down, total 501 ms" );
   EXPECT_EQ( levelOf( shutdown() ), LogLevel::info );
}

TEST( ShutdownLogTest, AnAbortedShutdownIsOneLine ) {
   auto record = shutdown();
   record.interface = "Ethernet2";
   record.ending = Ending::aborted;
   record.why = "enabled 120 ms into the delay";
   EXPECT_EQ( record.summary(), "Ethernet2: will not go down: enabled 120 ms into the delay" );
}

TEST( ShutdownLogTest, EachEndingHasItsWords ) {
   auto record = shutdown();
   record.withDelay = false;
   record.why = "so";
   std::map< Ending, std::string > const lines{
      { Ending::running, "Ethernet1: shutdown by root: under way, total 501 ms (so)" },
      { Ending::down, "Ethernet1: shutdown by root: link down, total 501 ms (so)" },
      { Ending::aborted, "Ethernet1: will not go down: so" },
      { Ending::alreadyDown, "Ethernet1: shutdown by root: link was down already, total 501 ms "
                             "(so)" },
      { Ending::noDevice, "Ethernet1: shutdown by root: no link to set down, total 501 ms (so)" },
      { Ending::failed, "Ethernet1: shutdown by root: link could not be set down, total 501 ms "
                        "(so)" },
      { Ending::wentDown, "Ethernet1: went down without goodbye: so" },
      { Ending::rebooted, "Ethernet1: shutdown by root: the machine was started anew, total 501 ms "
                          "(so)" } };
   for ( auto const & [ ending, line ] : lines ) {
      record.ending = ending;
      EXPECT_EQ( record.summary(), line );
      EXPECT_EQ( endingOf( record.endingText() ), ending );
      EXPECT_EQ( levelOf( record ) == LogLevel::warning,
                 ending == Ending::failed || ending == Ending::wentDown );
   }
   EXPECT_EQ( endingOf( "colour" ), Ending::running );
}

TEST( ShutdownLogTest, FramesThatDidNotGetOutMakeItAWarning ) {
   auto record = shutdown();
   record.sent = 1;
   record.failed = 2;
   record.failReason = "Network is down";
   record.unflushedBytes = 60;
   EXPECT_EQ( record.summary(), "Ethernet1: shutdown by root: 1 frame in 0.2 ms, 2 not sent "
                                "(Network is down), held 500 ms, 60 bytes unflushed, link down, "
                                "total 501 ms" );
   EXPECT_EQ( levelOf( record ), LogLevel::warning );
   EXPECT_THAT( fieldsOf( record ), Contains( Pair( "VALEN_FAIL_REASON", "Network is down" ) ) );
}

TEST( ShutdownLogTest, TheJournalGetsFields ) {
   using Fields = LogFields;
   EXPECT_EQ( fieldsOf( shutdown() ), ( Fields{ { "INTERFACE", "Ethernet1" },
                                                { "VALEN_ENDING", "down" },
                                                { "VALEN_BY", "root" },
                                                { "VALEN_SENT", "3" },
                                                { "VALEN_FAILED", "0" },
                                                { "VALEN_HELD_MS", "500" },
                                                { "VALEN_TOTAL_MS", "501" },
                                                { "VALEN_UNFLUSHED_BYTES", "0" },
                                                { "VALEN_RESUMED", "0" } } ) );
   auto record = shutdown();
   record.why = "so";
   record.resumed = true;
   EXPECT_THAT( fieldsOf( record ), Contains( Pair( "VALEN_WHY", "so" ) ) );
   EXPECT_THAT( fieldsOf( record ), Contains( Pair( "VALEN_RESUMED", "1" ) ) );
}

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
   Valend::Test::WorkDirectory const work;
   auto const path = work / "socket";
   sockaddr_un address{};
   address.sun_family = AF_UNIX;
   path.copy( address.sun_path, sizeof address.sun_path - 1 );
   Valen::Linux::Fd const listener( ::socket( AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0 ) );
   ASSERT_EQ( ::bind( listener.get(), reinterpret_cast< sockaddr * >( &address ), sizeof address ),
              0 );
   EXPECT_TRUE( sendToJournal( "MESSAGE=x\n", path ) );
   char text[ 100 ];
   auto const got = ::recv( listener.get(), text, sizeof text, MSG_DONTWAIT );
   EXPECT_EQ( std::string( text, got > 0 ? static_cast< std::size_t >( got ) : 0 ), "MESSAGE=x\n" );
}

TEST( LogTest, AJournalThatIsNotThereIsSaidSo ) {
   EXPECT_FALSE( sendToJournal( "MESSAGE=x\n", "/nowhere" ) );
   EXPECT_FALSE( sendToJournal( "MESSAGE=x\n", std::string( 200, 'x' ) ) );
}

} // namespace
} // namespace Valend
