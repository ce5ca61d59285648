// The LLDP goodbye beside a running lldpd, and the lldpd of the neighbor, which must drop the port.
#include "tests/goodbye/Lldpd.h"
#include "tests/system/RunningDaemon.h"

#include <gmock/gmock.h>

namespace Valen::Test {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

// The machine's et1 is connected to the neighbor's far1, and an lldpd runs on each end.
class LldpdTest : public RunningDaemonTest {
 protected:
   void SetUp() override {
      RunningDaemonTest::SetUp();
      if ( IsSkipped() ) {
         return;
      }
      ASSERT_NO_FATAL_FAILURE( findLldpd() );
      machine_->ip( "link set et1 address " + mac );
   }

   // Starts both, with `configuration` on the machine, and waits until the neighbor knows the machine by
   // these ids.
   void discover( std::vector< std::string > const & configuration, std::string const & ids ) {
      other_.emplace( *neighbors_, *work_ / "other" );
      ASSERT_TRUE( eventually( [ & ] { return other_->knows( "far1" ); } ) ) << other_->err();
      own_.emplace( *machine_, *work_ / "own" );
      ASSERT_TRUE( eventually( [ & ] { return own_->knows( "et1" ); } ) ) << own_->err();
      own_->configure( "lldp tx-interval 3600" ); // so that it does not announce the port again
      for ( auto const & text : configuration ) {
         own_->configure( text );
      }
      ASSERT_TRUE( eventually( [ & ] { return other_->neighbor( "far1" ) == ids; } ) )
         << other_->neighbor( "far1" ) << other_->err();
   }

   Result frame( std::vector< std::string > more ) const {
      more.insert( more.begin(), { "frame", "lldp", "--device", "et1", "--netns", name() } );
      return ctl( more );
   }
   std::string const & name() const { return machine_->text(); }

   // Queues the frame that `valenctl frame lldp` builds with these arguments, and shuts Ethernet1 down. Its
   // link stays up for longer than the test takes.
   void shutDownWith( std::vector< std::string > arguments ) {
      start( "shutdown-delay-ms: 60000\ninterfaces: [{name: Ethernet1, device: et1}]\n" );
      arguments.insert( arguments.end(), { "--queue", "Ethernet1" } );
      auto const queued = frame( arguments );
      ASSERT_EQ( queued.status, 0 ) << queued.err;
      ASSERT_TRUE( becomesReady( "Ethernet1" ) );
      ASSERT_EQ( ctl( { "shutdown", "Ethernet1" } ).status, 0 );
   }
   // That the neighbor drops the port, while the link is up and long before its time to live ends.
   void expectDropped() const {
      EXPECT_TRUE( eventually( [ & ] { return other_->neighbor( "far1" ).empty(); },
                               std::chrono::seconds( 5 ) ) )
         << other_->neighbor( "far1" );
      EXPECT_TRUE( linkUp( *machine_, "et1" ) );
   }

   static inline std::string const mac = "02:00:00:00:00:11";
   std::optional< Lldpd > own_;
   std::optional< Lldpd > other_;
};

TEST_F( LldpdTest, TheNeighborDropsThePortThatLldpdAnnouncedByItsMacAddress ) {
   ASSERT_NO_FATAL_FAILURE( discover( {}, "mac:" + mac + " mac:" + mac ) );
   auto const built = frame( { "--lldpd-socket", own_->socket() } );
   EXPECT_EQ( built.err, "" );
   shutDownWith( { "--lldpd-socket", own_->socket() } );
   expectDropped();
}

TEST_F( LldpdTest, TheNeighborDropsThePortThatLldpdAnnouncedByItsName ) {
   ASSERT_NO_FATAL_FAILURE(
      discover( { "lldp portidsubtype ifname" }, "mac:" + mac + " ifname:et1" ) );
   shutDownWith( { "--lldpd-socket", own_->socket() } );
   expectDropped();
}

TEST_F( LldpdTest, TheNeighborDropsThePortThatLldpdAnnouncedByConfiguredIds ) {
   ASSERT_NO_FATAL_FAILURE( discover(
      { "system chassisid core", "lldp portidsubtype local uplink" }, "local:core local:uplink" ) );
   shutDownWith( { "--lldpd-socket", own_->socket() } );
   expectDropped();
}

// Why the ids are taken from lldpd.
TEST_F( LldpdTest, TheNeighborKeepsThePortWhenTheFrameHasOtherIds ) {
   ASSERT_NO_FATAL_FAILURE( discover( {}, "mac:" + mac + " mac:" + mac ) );
   auto const before = other_->received( "far1" );
   shutDownWith( { "--port-id", "name:et1" } );
   EXPECT_TRUE( eventually( [ & ] { return other_->received( "far1" ) > before; } ) );
   EXPECT_EQ( other_->neighbor( "far1" ), "mac:" + mac + " mac:" + mac );
}

TEST_F( LldpdTest, TheUsualSocketIsAskedForADeviceOfTheOwnNamespace ) {
   std::string const usual = "/run/lldpd.socket";
   ASSERT_NE( ::access( usual.c_str(), F_OK ), 0 ) << "lldpd runs; run the test in scripts/sandbox";
   own_.emplace( *machine_, usual );
   ASSERT_TRUE( eventually( [ & ] { return own_->knows( "et1" ); } ) ) << own_->err();
   own_->configure( "lldp portidsubtype local uplink" );
   Process command( { VALENCTL, "frame", "lldp", "--device", "et1" }, *work_ / "frame",
                    &*machine_ );
   EXPECT_EQ( command.wait(), 0 );
   EXPECT_EQ( command.err(), "" );
   EXPECT_THAT( command.out(), HasSubstr( "020704020000000011"
                                          "040707"
                                          "75706c696e6b" ) );
}

TEST_F( LldpdTest, WithoutLldpdTheIdsAreTheDevicesAndThisIsSaid ) {
   Process command( { VALENCTL, "frame", "lldp", "--device", "et1" }, *work_ / "frame",
                    &*machine_ );
   EXPECT_EQ( command.wait(), 0 );
   EXPECT_THAT( command.out(), HasSubstr( "020704020000000011"
                                          "040405"
                                          "657431" ) );
   EXPECT_EQ(
      command.err(),
      "valenctl: lldpd does not answer: unable to connect to socket /run/lldpd.socket: No "
      "such file or directory; using the sender's MAC address as chassis ID and the device's "
      "name as port ID. The neighbor forgets the port only if these are what the LLDP agent "
      "sends: see --chassis-id and --port-id\n" );
}

TEST_F( LldpdTest, OnlyTheIdThatIsNotGivenIsSaidToBeTheDevices ) {
   EXPECT_THAT( frame( { "--port-id", "name:x" } ).err,
                StartsWith( "valenctl: an lldpd in network namespace " + name() +
                            " is asked only with --lldpd-socket; using the sender's MAC address as "
                            "chassis ID. The neighbor" ) );
   EXPECT_THAT( frame( { "--chassis-id", "local:x" } ).err,
                HasSubstr( "; using the device's name as port ID. The neighbor" ) );
   EXPECT_EQ( frame( { "--chassis-id", "local:x", "--port-id", "name:x" } ).err, "" );
}

TEST_F( LldpdTest, AnLldpdThatIsNamedMustAnswerForTheDevice ) {
   auto const none = frame( { "--lldpd-socket", *work_ / "none" } );
   EXPECT_EQ( none.status, 1 );
   EXPECT_EQ( none.out, "" );
   EXPECT_EQ( none.err, "valenctl: lldpd does not answer: unable to connect to socket " +
                           *work_ / "none" + ": No such file or directory\n" );
   other_.emplace( *neighbors_, *work_ / "other" );
   ASSERT_TRUE( eventually( [ & ] { return other_->knows( "far1" ); } ) ) << other_->err();
   auto const unknown = frame( { "--lldpd-socket", other_->socket() } );
   EXPECT_EQ( unknown.status, 1 );
   EXPECT_EQ( unknown.err, "valenctl: lldpd does not know et1\n" );
   own_.emplace( *machine_, *work_ / "own" );
   ASSERT_TRUE( eventually( [ & ] { return own_->knows( "et1" ); } ) ) << own_->err();
   own_->configure( "ports et1 lldp status rx-only" );
   auto const silent = frame( { "--lldpd-socket", own_->socket() } );
   EXPECT_EQ( silent.status, 1 );
   EXPECT_EQ( silent.err, "valenctl: lldpd does not send on et1 (RX only)\n" );
}

} // namespace
} // namespace Valen::Test
