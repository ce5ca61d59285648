#include "valend/base/Notify.h"

#include "tests/support/NotifySocket.h"
#include "tests/support/WorkDirectory.h"

#include <cstdlib>

namespace Valend {
namespace {

class NotifyTest : public ::testing::Test {
 protected:
   ~NotifyTest() override { ::unsetenv( "NOTIFY_SOCKET" ); }

   static bool notifyAt( std::string const & socket, std::string const & state = "READY=1" ) {
      ::setenv( "NOTIFY_SOCKET", socket.c_str(), 1 );
      return notifyManager( state );
   }

   Valen::Test::WorkDirectory const work;
};

TEST_F( NotifyTest, TheStateArrivesAsOneDatagram ) {
   Valen::Test::NotifySocket const manager( work / "notify" );
   EXPECT_TRUE( notifyAt( manager.path(), "READY=1\nSTATUS=2 interfaces" ) );
   EXPECT_EQ( manager.received(), "READY=1\nSTATUS=2 interfaces" );
}

TEST_F( NotifyTest, WithoutAServiceManagerNothingIsSent ) {
   ::unsetenv( "NOTIFY_SOCKET" );
   EXPECT_FALSE( notifyManager( "READY=1" ) );
   EXPECT_FALSE( notifyAt( "" ) );
}

TEST_F( NotifyTest, ASocketThatCannotBeReachedIsNotAnError ) {
   EXPECT_FALSE( notifyAt( work / "none" ) );
   EXPECT_FALSE( notifyAt( "relative/path" ) );
   EXPECT_FALSE( notifyAt( "/" + std::string( 200, 'x' ) ) ) << "longer than an address can be";
}

// WatchdogTest covers an abstract name.

} // namespace
} // namespace Valend
