#include "valend/base/Watchdog.h"

#include "linux/Fd.h"
#include "tests/support/SteppedClock.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace Valend {
namespace {

using namespace std::chrono_literals;

class WatchdogTest : public ::testing::Test {
 protected:
   // Replaces the service manager, at an abstract name.
   WatchdogTest() : manager( ::socket( AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0 ) ) {
      auto const name = "@valen-watchdog-" + std::to_string( ::getpid() );
      sockaddr_un address{};
      address.sun_family = AF_UNIX;
      std::memcpy( address.sun_path + 1, name.data() + 1, name.size() - 1 );
      auto const size = static_cast< socklen_t >( offsetof( sockaddr_un, sun_path ) + name.size() );
      EXPECT_EQ( ::bind( manager.get(), reinterpret_cast< sockaddr * >( &address ), size ), 0 );
      ::setenv( "NOTIFY_SOCKET", name.c_str(), 1 );
   }
   ~WatchdogTest() override {
      for ( auto const * variable : { "NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID" } ) {
         ::unsetenv( variable );
      }
   }

   // What the manager has received since the last call.
   std::string received() const {
      char buffer[ 256 ];
      std::string all;
      for ( ssize_t size = 0; ( size = ::recv( manager.get(), buffer, sizeof buffer, 0 ) ) > 0; ) {
         all.append( buffer, static_cast< std::size_t >( size ) ).append( ";" );
      }
      return all;
   }

   Valen::Test::SteppedClock clock;
   Valen::Linux::Fd const manager;
};

TEST_F( WatchdogTest, TellsTwiceInTheTimeThatTheManagerWaits ) {
   ::setenv( "WATCHDOG_USEC", "10000000", 1 );
   Watchdog const watchdog( clock.scheduler() );
   EXPECT_EQ( watchdog.period(), 5s );
   clock.advance( 4999ms );
   EXPECT_EQ( received(), "" );
   clock.advance( 1ms );
   EXPECT_EQ( received(), "WATCHDOG=1;" );
   clock.advance( 10s );
   EXPECT_EQ( received(), "WATCHDOG=1;WATCHDOG=1;" );
}

TEST_F( WatchdogTest, IsSilentWhenNobodyListens ) {
   Watchdog const watchdog( clock.scheduler() );
   EXPECT_EQ( watchdog.period(), std::nullopt );
   clock.advance( 1h );
   EXPECT_EQ( received(), "" );
}

TEST_F( WatchdogTest, IsSilentWhenAnotherProcessIsMeant ) {
   ::setenv( "WATCHDOG_USEC", "10000000", 1 );
   ::setenv( "WATCHDOG_PID", "1", 1 );
   EXPECT_EQ( Watchdog( clock.scheduler() ).period(), std::nullopt );
   ::setenv( "WATCHDOG_PID", std::to_string( ::getpid() ).c_str(), 1 );
   EXPECT_EQ( Watchdog( clock.scheduler() ).period(), 5s );
}

TEST_F( WatchdogTest, IsSilentWhenTheTimeMakesNoSense ) {
   for ( auto const * text : { "", "0", "-5", "soon", "5s" } ) {
      ::setenv( "WATCHDOG_USEC", text, 1 );
      EXPECT_EQ( Watchdog( clock.scheduler() ).period(), std::nullopt ) << text;
   }
}

} // namespace
} // namespace Valend
