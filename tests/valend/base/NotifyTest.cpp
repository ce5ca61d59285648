#include "valend/base/Notify.h"

#include "tests/linux/Privileges.h"
#include "tests/support/NotifySocket.h"
#include "tests/support/SteppedClock.h"
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

// --- A service manager that does not read --------------------------------------------------------

class StoppedManagerTest : public NotifyTest {
 protected:
   StoppedManagerTest() {
      ::setenv( "NOTIFY_SOCKET", manager.path().c_str(), 1 );
      while ( notifyManager( "WATCHDOG=1" ) ) { // until its queue is full
         ++queued;
      }
   }
   // Reads what was in the queue.
   void managerReads() const {
      for ( int i = 0; i < queued; ++i ) {
         EXPECT_EQ( manager.received(), "WATCHDOG=1" );
      }
   }

   Valen::Test::NotifySocket const manager{ work / "notify" };
   Valen::Test::SteppedClock clock;
   UnsentNotifications unsent{ clock.scheduler() };
   int queued = 0;
};

TEST_F( StoppedManagerTest, IsNotWaitedFor ) {
   EXPECT_GT( queued, 0 );
   EXPECT_FALSE( notifyManager( "READY=1" ) );
}

TEST_F( StoppedManagerTest, GetsTheNewestOfEachKindInOrderWhenItReads ) {
   for ( auto const * state :
         { "READY=1", "RELOADING=1\nMONOTONIC_USEC=1", "STATUS=one", "READY=1\nSTATUS=two",
           "WATCHDOG=1", "RELOADING=1\nMONOTONIC_USEC=2", "READY=1\nSTATUS=three" } ) {
      EXPECT_FALSE( notifyManager( state ) );
   }
   clock.advance( std::chrono::seconds( 10 ) );
   EXPECT_EQ( unsent.states().size(), 3u );
   managerReads();
   clock.advance( std::chrono::seconds( 1 ) );
   EXPECT_EQ( manager.received(), "STATUS=one" );
   EXPECT_EQ( manager.received(), "RELOADING=1\nMONOTONIC_USEC=2" );
   EXPECT_EQ( manager.received(), "READY=1\nSTATUS=three" );
   EXPECT_TRUE( unsent.states().empty() );
   EXPECT_TRUE( notifyManager( "STATUS=four" ) );
   EXPECT_EQ( manager.received(), "STATUS=four" );
}

TEST_F( StoppedManagerTest, GetsWhatWaitsBeforeWhatIsNew ) {
   EXPECT_FALSE( notifyManager( "READY=1" ) );
   managerReads();
   EXPECT_FALSE( notifyManager( "STOPPING=1" ) );
   clock.advance( std::chrono::seconds( 1 ) );
   EXPECT_EQ( manager.received(), "READY=1" );
   EXPECT_EQ( manager.received(), "STOPPING=1" );
}

TEST_F( NotifyTest, WhatWaitsIsTriedOnceMoreAtTheEnd ) {
   Valen::Test::NotifySocket const manager( work / "notify" );
   Valen::Test::SteppedClock clock;
   {
      UnsentNotifications const unsent( clock.scheduler() );
      int queued = 0;
      while ( notifyAt( manager.path(), "WATCHDOG=1" ) ) {
         ++queued;
      }
      notifyManager( "STOPPING=1" );
      for ( int i = 0; i < queued; ++i ) {
         manager.received();
      }
   }
   EXPECT_EQ( manager.received(), "STOPPING=1" );
}

TEST_F( NotifyTest, WhatCannotBeSentAtAllIsNotKept ) {
   Valen::Test::SteppedClock clock;
   UnsentNotifications const unsent( clock.scheduler() );
   EXPECT_FALSE( notifyAt( work / "none" ) );
   EXPECT_TRUE( unsent.states().empty() );
}

TEST_F( NotifyTest, NoDescriptorIsNeeded ) {
   Valen::Test::NotifySocket const manager( work / "notify" );
   Valen::Test::SteppedClock clock;
   UnsentNotifications const unsent( clock.scheduler() );
   {
      Valen::Test::DescriptorLimit const none( 0 );
      EXPECT_TRUE( notifyAt( manager.path(), "WATCHDOG=1" ) );
   }
   EXPECT_EQ( manager.received(), "WATCHDOG=1" );
}

// WatchdogTest covers an abstract name.

} // namespace
} // namespace Valend
