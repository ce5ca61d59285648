// Clients that press: those that come while valend is stopped, and those that are too many.
#include "tests/system/RawClient.h"
#include "tests/system/RunningDaemon.h"

#include <deque>
#include <gmock/gmock.h>
#include <sys/syscall.h>

namespace Valen::Test {
namespace {

using namespace std::chrono_literals;
using ::testing::HasSubstr;

class PressureTest : public RunningDaemonTest {
 protected:
   // How often the carrier of et1 went down.
   int carrierDowns() const {
      auto const file = *work_ / "carrier";
      run( "sh -c 'ip netns exec " + machine_->text() +
           " cat /sys/class/net/et1/carrier_down_count > " + file + "'" );
      return std::stoi( contentOf( file ) );
   }

   // Opens connections as another user, for as long as the test lasts. Returns whether it can.
   bool connectAs( uid_t uid, int count ) {
      bool connected = false;
      std::thread( [ & ] { // the system call changes the user of this thread only
         connected = ::syscall( SYS_setresuid, -1, uid, -1 ) == 0;
         for ( int i = 0; connected && i < count; ++i ) {
            clients_.emplace_back( socket() );
         }
      } )
         .join();
      return connected;
   }

   std::deque< RawClient > clients_;
};

TEST_F( PressureTest, AnEnableThatCameInTimeCountsThoughTheDaemonWasStopped ) {
   start( config( 400 ) );
   ASSERT_TRUE( becomesReady( "Ethernet1" ) );
   auto const before = carrierDowns();
   for ( int i = 0; i < 4; ++i ) {
      RawClient first( socket() );
      first.call( "Shutdown", { { "interface", "Ethernet1" } } );
      ASSERT_EQ( first.answer()[ "parameters" ][ "step" ], "delayed" );
      daemon_->signal( SIGSTOP );
      RawClient second( socket() );
      second.call( "Enable", { { "interface", "Ethernet1" } } );
      std::this_thread::sleep_for( 450ms );
      daemon_->signal( SIGCONT );
      EXPECT_EQ( second.answer()[ "parameters" ][ "result" ], "aborted" ) << "round " << i;
      EXPECT_EQ( lastRecord( "Ethernet1" )[ "ending" ], "aborted" );
   }
   EXPECT_EQ( carrierDowns(), before );
}

TEST_F( PressureTest, ADelayThatEndedWhileTheDaemonWasStoppedEndsAtOnce ) {
   start( config( 300 ) );
   ASSERT_TRUE( becomesReady( "Ethernet1" ) );
   RawClient client( socket() );
   client.call( "Shutdown", { { "interface", "Ethernet1" } } );
   ASSERT_EQ( client.answer()[ "parameters" ][ "step" ], "delayed" );
   daemon_->signal( SIGSTOP );
   std::this_thread::sleep_for( 350ms );
   EXPECT_TRUE( linkUp( *machine_, "et1" ) );
   daemon_->signal( SIGCONT );
   EXPECT_TRUE( eventually( [ & ] { return !linkUp( *machine_, "et1" ); } ) );
   EXPECT_TRUE( eventually( [ & ] { return lastRecord( "Ethernet1" )[ "ending" ] == "down"; } ) );
}

TEST_F( PressureTest, StrangersDoNotKeepRootOut ) {
   start( config( 100 ) );
   ASSERT_TRUE( becomesReady( "Ethernet1" ) );
   for ( uid_t stranger = 3000; stranger < 3004; ++stranger ) {
      if ( !connectAs( stranger, 64 ) ) {
         GTEST_SKIP() << "the test may not act as another user";
      }
   }
   auto const down = ctl( { "shutdown", "Ethernet1", "--wait" } );
   EXPECT_EQ( down.status, 0 ) << down.err;
   for ( int i = 0; i < 5; ++i ) {
      auto const status = ctl( { "status" } );
      EXPECT_EQ( status.status, 0 ) << status.err;
   }
   auto const metrics = ctl( { "metrics" } ).out;
   EXPECT_THAT( metrics, HasSubstr( "\nvalen_api_connections 17\n" ) )
      << "16 strangers, and this one";
}

TEST_F( PressureTest, ForgottenWatchesDoNotKeepTheirUserOut ) {
   start( config( 100 ) );
   ASSERT_TRUE( becomesReady( "Ethernet1" ) );
   int watches = 0;
   for ( int i = 0; i < 250; ++i ) {
      auto & client = clients_.emplace_back( socket() );
      client.call( "WatchStatus", { { "interface", "Ethernet2" } }, true );
      auto const answer = client.answer();
      watches += answer.contains( "continues" );
      if ( answer.contains( "error" ) ) {
         EXPECT_EQ( answer[ "error" ], "org.valen.daemon.TooManyClients" );
      }
   }
   EXPECT_EQ( watches, 224 );
   for ( int i = 0; i < 20; ++i ) {
      auto const enabled = ctl( { "enable", "Ethernet1" } );
      EXPECT_EQ( enabled.status, 0 ) << enabled.err;
   }
   EXPECT_EQ( ctl( { "shutdown", "Ethernet2", "--wait" } ).status, 0 );
   EXPECT_FALSE( clients_.front().answer().is_null() ) << "a watch that is served stays";
}

} // namespace
} // namespace Valen::Test
