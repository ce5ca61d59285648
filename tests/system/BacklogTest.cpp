// A device whose queue is stuck holds up no other one of its VRF, in valend on the real kernel.
#include "tests/system/RunningDaemon.h"

#include <gmock/gmock.h>

namespace Valen::Test {
namespace {

using ::testing::ElementsAre;

class BacklogTest : public RunningDaemonTest {
 protected:
   void SetUp() override {
      RunningDaemonTest::SetUp();
      if ( IsSkipped() ) {
         return;
      }
      // One frame fits in the bucket; it takes hours until the next.
      machine_->ip( "link add stuck mtu 9000 type ifb" );
      machine_->ip( "link set stuck up" );
      run( "tc -n " + machine_->text() +
           " qdisc add dev stuck root tbf rate 8bit burst 10000 limit 1000000" );
      auto const large = Settings::toHex( testFrame( std::string( 8900, 'x' ) ) );
      start( "shutdown-delay-ms: 300\n"
             "interfaces:\n"
             "- {name: Ethernet1, device: et1}\n"
             "- {name: Stuck, device: stuck}\n"
             "agents:\n"
             "- name: lldp\n"
             "  messages:\n"
             "    Ethernet1: [" +
             Settings::toHex( frame( "one" ) ) +
             "]\n"
             "    Stuck: [" +
             large + ", " + large + ", " + large + "]\n" );
      ASSERT_TRUE( becomesReady( "Ethernet1" ) );
      ASSERT_TRUE( becomesReady( "Stuck" ) );
   }
};

TEST_F( BacklogTest, AShutdownDoesNotWaitForTheFramesOfAnotherInterface ) {
   Capture far( *neighbors_, "far1" );
   // Its link going down would empty its queue.
   ASSERT_EQ( ctl( { "shutdown", "Stuck", "--delay", "2000" } ).status, 0 );
   ASSERT_EQ( ctl( { "shutdown", "Ethernet1", "--wait" } ).status, 0 );
   EXPECT_THAT( far.frames( 1 ), ElementsAre( frame( "one" ) ) );
   EXPECT_EQ( lastRecord( "Ethernet1" )[ "unflushedBytes" ], 0 );
   ASSERT_TRUE( linkUp( *machine_, "stuck" ) );
   ASSERT_TRUE( eventually( [ this ] { return lastRecord( "Stuck" ).contains( "ending" ); } ) );
   EXPECT_GT( lastRecord( "Stuck" )[ "unflushedBytes" ], 8900 );
}

// Also when its frames had left before the other one's were queued.
TEST_F( BacklogTest, AShutdownDoesNotWaitForWhatIsSentAfterIt ) {
   Process waiting( { VALENCTL, "--socket", socket(), "shutdown", "Ethernet1", "--wait" },
                    *work_ / "waiting" );
   ASSERT_TRUE(
      eventually( [ this ] { return interface( "Ethernet1" ).value( "delayed", false ); } ) );
   ASSERT_EQ( ctl( { "shutdown", "Stuck" } ).status, 0 );
   EXPECT_EQ( waiting.wait(), 0 );
   EXPECT_EQ( lastRecord( "Ethernet1" )[ "unflushedBytes" ], 0 );
}

} // namespace
} // namespace Valen::Test
