// Links that do not go down as planned: the kernel is busy, or something else happens to them meanwhile. IPv6
// is on.
#include "tests/linux/BusyKernel.h"
#include "tests/system/RunningDaemon.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>

namespace Valen::Test {
namespace {

using ::testing::HasSubstr;

class LinkTest : public RunningDaemonTest {
 protected:
   void SetUp() override {
      RunningDaemonTest::SetUp();
      if ( IsSkipped() ) {
         return;
      }
      for ( auto const * netNs : { &*machine_, &*red_, &*neighbors_ } ) {
         run( "ip netns exec " + netNs->text() +
              " sysctl -q -w net.ipv6.conf.all.disable_ipv6=0 "
              "net.ipv6.conf.default.disable_ipv6=0" );
      }
   }
   bool inProgress( std::string const & name ) const {
      return interface( name ).value( "shuttingDown", false );
   }
   // Whether the thread that changes links waits for the kernel.
   bool isChangingLink() const {
      auto const tasks = "/proc/" + std::to_string( daemon_->pid() ) + "/task";
      for ( auto const & task : std::filesystem::directory_iterator( tasks ) ) {
         std::ifstream file( task.path() / "stat" ); // "123 (valen-links) D ..."
         std::string number, name, state;
         if ( file >> number >> name >> state && name == "(valen-links)" && state == "D" ) {
            return true;
         }
      }
      return false;
   }
   // Starts valend, and something happens to et1 while it is held: its link is down for a moment, and up
   // again. valend has not changed it before, so it cannot take the report for one of its own change.
   void expectHeldToTheEnd( std::function< void() > const & happens ) {
      start( config( 1200 ) );
      ASSERT_TRUE( becomesReady( "Ethernet1" ) );
      ASSERT_EQ( ctl( { "shutdown", "Ethernet1" } ).status, 0 );
      happens();
      ASSERT_TRUE( linkUp( *machine_, "et1" ) );
      ASSERT_TRUE( inProgress( "Ethernet1" ) ) << "the test is too slow, or the hold is lost";
      ASSERT_TRUE( eventually( [ & ] { return !inProgress( "Ethernet1" ); } ) );
      EXPECT_FALSE( linkUp( *machine_, "et1" ) );
      auto const record = lastRecord( "Ethernet1" );
      EXPECT_EQ( record[ "ending" ], "down" );
      EXPECT_GE( record[ "heldMs" ], 1200 );
      EXPECT_EQ( record[ "sent" ], 2 );
      EXPECT_THAT( record[ "why" ].get< std::string >(), HasSubstr( "and came up again" ) );
   }
};

// Setting a link down takes as long as it takes others to let go of the kernel's lock.
TEST_F( LinkTest, WhileTheKernelIsBusyOthersAreHeldAndAborted ) {
   machine_->veth( "et3", *neighbors_, "far3" );
   auto text = config( 300 );
   text.insert( text.find( "- {name: Ethernet2" ), "- {name: Ethernet3, device: et3}\n" );
   start( text );
   ASSERT_TRUE( becomesReady( "Ethernet1" ) );
   ASSERT_TRUE( becomesReady( "Ethernet2" ) );
   BusyKernel kernel( 500 );
   kernel.beBusy();
   // It has no frames, so its link goes down at once.
   Process third( { VALENCTL, "--socket", socket(), "shutdown", "Ethernet3" }, *work_ / "third" );
   ASSERT_TRUE( eventually( [ & ] { return inProgress( "Ethernet3" ); } ) );
   ASSERT_EQ( ctl( { "shutdown", "Ethernet1", "Ethernet2" } ).status, 0 );
   EXPECT_EQ( ctl( { "enable", "Ethernet1" } ).err,
              "Ethernet1: shutdown aborted; link stays up\n" );
   EXPECT_TRUE( eventually(
      [ & ] { return interface( "Ethernet2" ).value( "remainingMs", Json( 1 ) ).is_null(); } ) );
   EXPECT_TRUE( third.running() )
      << "the hold of Ethernet2 ended before the link of Ethernet3 was down";
   EXPECT_TRUE( kernel.busy() ) << "all of this took longer than what keeps the kernel busy";
   EXPECT_EQ( third.wait(), 0 );
   EXPECT_FALSE( linkUp( *machine_, "et3" ) );
   EXPECT_TRUE( eventually( [ & ] { return !linkUp( *red_, "et2" ); } ) );
   EXPECT_TRUE( linkUp( *machine_, "et1" ) );
}

// The operator changes his mind while the kernel is at it: the link is down for a moment.
TEST_F( LinkTest, EnablingALinkThatIsBeingSetDownIsAnsweredWhenItIsUpAgain ) {
   machine_->veth( "et3", *neighbors_, "far3" );
   auto text = config( 300 );
   text.insert( text.find( "- {name: Ethernet2" ), "- {name: Ethernet3, device: et3}\n" );
   start( text );
   ASSERT_TRUE(
      eventually( [ & ] { return interface( "Ethernet3" ).value( "link", "" ) == "up"; } ) );
   BusyKernel kernel( 250 );
   kernel.beBusy();
   Process third( { VALENCTL, "--socket", socket(), "shutdown", "Ethernet3" }, *work_ / "third" );
   ASSERT_TRUE( eventually( [ & ] { return inProgress( "Ethernet3" ) && isChangingLink(); } ) );
   auto const enabled = ctl( { "enable", "Ethernet3" } );
   EXPECT_TRUE( linkUp( *machine_, "et3" ) );
   EXPECT_EQ( enabled.err, "Ethernet3: link up\n" );
   EXPECT_EQ( third.wait(), 1 );
   EXPECT_THAT( third.err(), HasSubstr( "link was down, and set up again" ) );
   EXPECT_EQ( lastRecord( "Ethernet3" )[ "ending" ], "aborted" );
}

TEST_F( LinkTest, ADeviceThatIsRecreatedWhileItIsHeldIsSetDownAtTheEnd ) {
   expectHeldToTheEnd( [ this ] {
      machine_->ip( "link del et1" );
      machine_->veth( "et1", *neighbors_, "far1" );
   } );
}

TEST_F( LinkTest, ADeviceThatIsMovedAwayAndBackWhileItIsHeldIsSetDownAtTheEnd ) {
   expectHeldToTheEnd( [ this ] {
      machine_->ip( "link set et1 netns " + red_->text() );
      red_->ip( "link set et1 netns " + machine_->text() );
      machine_->ip( "link set et1 up" );
   } );
}

TEST_F( LinkTest, ALinkThatAnotherProgramBouncesWhileItIsHeldIsSetDownAtTheEnd ) {
   expectHeldToTheEnd( [ this ] {
      machine_->ip( "link set et1 down" );
      machine_->ip( "link set et1 mtu 1400" );
      machine_->ip( "link set et1 up" );
   } );
}

TEST_F( LinkTest, ADeviceThatDoesNotComeBackEndsTheShutdownAfterItsDelay ) {
   start( config( 300 ) );
   ASSERT_TRUE( becomesReady( "Ethernet1" ) );
   ASSERT_EQ( ctl( { "shutdown", "Ethernet1" } ).status, 0 );
   machine_->ip( "link del et1" );
   ASSERT_TRUE( eventually( [ & ] { return !inProgress( "Ethernet1" ); } ) );
   EXPECT_EQ( lastRecord( "Ethernet1" )[ "ending" ], "no-device" );
   EXPECT_GE( lastRecord( "Ethernet1" )[ "heldMs" ], 300 );
}

} // namespace
} // namespace Valen::Test
