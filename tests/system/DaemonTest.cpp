// valend and valenctl on the real kernel: valend in a namespace that acts as the machine, VRF red in
// another, the neighbors in a third. Nothing here depends on how fast the machine is: tests wait for
// what must happen, and delays are long where something must happen during one.
#include "tests/support/NotifySocket.h"
#include "tests/system/RunningDaemon.h"

#include <gmock/gmock.h>
#include <pwd.h>

namespace Valen::Test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

class DaemonTest : public RunningDaemonTest {};

// --- The main job --------------------------------------------------------------------------------

TEST_F( DaemonTest, FramesLeaveByteForByteAndThenTheLinkGoesDown ) {
   start( config( 300 ) );
   ASSERT_TRUE( becomesReady( "Ethernet1" ) );
   ASSERT_TRUE( becomesReady( "Ethernet2" ) );
   Capture far1( *neighbors_, "far1" );
   Capture far2( *neighbors_, "far2" );

   auto const first = ctl( { "shutdown", "Ethernet1", "--wait" } );
   EXPECT_EQ( first.status, 0 );
   EXPECT_EQ( first.out, "" );
   EXPECT_THAT( first.err, HasSubstr( "Ethernet1: 2 frames sent\nEthernet1: held for 300 ms\n"
                                      "Ethernet1: link down after " ) );
   EXPECT_FALSE( linkUp( *machine_, "et1" ) );
   EXPECT_TRUE( linkUp( *red_, "et2" ) );
   EXPECT_THAT( far1.frames( 3, seconds( 1 ) ), ElementsAre( frame( "one" ), frame( "two" ) ) );

   EXPECT_EQ( ctl( { "shutdown", "Ethernet2", "--wait" } ).status, 0 );
   EXPECT_FALSE( linkUp( *red_, "et2" ) );
   EXPECT_THAT( far2.frames( 2, seconds( 1 ) ), ElementsAre( frame( "red" ) ) );
   EXPECT_EQ( interface( "Ethernet1" )[ "sent" ], 2 );
   EXPECT_GE( lastRecord( "Ethernet1" )[ "heldMs" ], 300 );
}

TEST_F( DaemonTest, TheLinkStaysUpForTheWholeDelay ) {
   start( config( 3000 ) );
   ASSERT_TRUE( becomesReady( "Ethernet1" ) );
   auto const asked = std::chrono::steady_clock::now();
   auto const result = ctl( { "shutdown", "Ethernet1" } );
   EXPECT_EQ( result.status, 0 );
   EXPECT_EQ( result.err, "Ethernet1: held for 3000 ms\n" );
   ASSERT_TRUE( eventually( [ this ] { return !linkUp( *machine_, "et1" ); } ) );
   EXPECT_GE( std::chrono::steady_clock::now() - asked, milliseconds( 3000 ) );
}

TEST_F( DaemonTest, EnablingWithinTheDelayLeavesTheLinkUp ) {
   start( config( 3000 ) );
   ASSERT_TRUE( becomesReady( "Ethernet1" ) );
   ASSERT_TRUE( becomesReady( "Ethernet2" ) );
   Capture far2( *neighbors_, "far2" );
   ASSERT_EQ( ctl( { "shutdown", "Ethernet2" } ).status, 0 );
   EXPECT_EQ( interface( "Ethernet2" )[ "delayed" ], true );
   auto const result = ctl( { "enable", "Ethernet2" } );
   EXPECT_EQ( result.status, 0 );
   EXPECT_EQ( result.err, "Ethernet2: shutdown aborted; link stays up\n" );
   // A later shutdown has the same delay, so it ends after the aborted one would have.
   ASSERT_EQ( ctl( { "shutdown", "Ethernet1", "--wait" } ).status, 0 );
   EXPECT_TRUE( linkUp( *red_, "et2" ) ) << "nothing goes down later";
   EXPECT_EQ( interface( "Ethernet2" )[ "aborts" ], 1 );
   EXPECT_THAT( far2.frames( 2, milliseconds( 200 ) ), ElementsAre( frame( "red" ) ) );
}

TEST_F( DaemonTest, AClientThatWaitsIsNotifiedOfTheAbort ) {
   start( config( 20000 ) );
   ASSERT_TRUE( becomesReady( "Ethernet1" ) );
   Process waiting( { VALENCTL, "--socket", socket(), "shutdown", "Ethernet1", "--wait" },
                    *work_ / "waiting" );
   ASSERT_TRUE(
      eventually( [ & ] { return interface( "Ethernet1" ).value( "delayed", false ); } ) );
   ASSERT_EQ( ctl( { "enable", "Ethernet1" } ).status, 0 );
   EXPECT_EQ( waiting.wait(), 1 );
   EXPECT_THAT( waiting.err(),
                HasSubstr( "Ethernet1: shutdown aborted; link stays up (enabled " ) );
}

TEST_F( DaemonTest, ShutdownAndEnableCanBeRepeated ) {
   start( config( 0 ) );
   ASSERT_TRUE( becomesReady( "Ethernet1" ) );
   for ( int i = 0; i < 3; ++i ) {
      Capture far1( *neighbors_, "far1" );
      EXPECT_EQ( ctl( { "shutdown", "Ethernet1", "--wait" } ).status, 0 );
      EXPECT_FALSE( linkUp( *machine_, "et1" ) );
      EXPECT_EQ( far1.frames( 3, milliseconds( 300 ) ).size(), 2u );
      auto const again = ctl( { "shutdown", "Ethernet1", "--wait" } );
      EXPECT_EQ( again.status, 0 );
      EXPECT_EQ( again.err, "Ethernet1: already down; no frames sent\n" );
      auto const up = ctl( { "enable", "Ethernet1" } );
      EXPECT_EQ( up.err, "Ethernet1: link up\n" );
      EXPECT_TRUE( linkUp( *machine_, "et1" ) );
      EXPECT_EQ( ctl( { "enable", "Ethernet1" } ).err, "Ethernet1: already up\n" );
   }
}

TEST_F( DaemonTest, AnInterfaceWithoutTheDelayGoesDownAtOnce ) {
   start( "interfaces: [{name: Ethernet1, device: et1}]" );
   auto const result = ctl( { "shutdown", "Ethernet1", "--wait" } );
   EXPECT_EQ( result.status, 0 );
   EXPECT_EQ( result.err, "Ethernet1: link down without delay\n" );
   EXPECT_FALSE( linkUp( *machine_, "et1" ) );
}

// --- Devices and namespaces that come and go -----------------------------------------------------

TEST_F( DaemonTest, ARecreatedDeviceIsUsedUnderItsNewIndex ) {
   start( config( 100 ) );
   ASSERT_TRUE( becomesReady( "Ethernet1" ) );
   auto const old = machine_->index( "et1" );
   machine_->ip( "link del et1" );
   ASSERT_TRUE( becomesUnready( "Ethernet1", "no device" ) );
   auto const refused = ctl( { "shutdown", "Ethernet1", "--wait" } );
   EXPECT_EQ( refused.status, 1 );
   EXPECT_THAT( refused.err, HasSubstr( "no device \"et1\" in namespace \"default\"" ) );
   EXPECT_EQ( ctl( { "enable", "Ethernet1" } ).status, 1 );

   machine_->veth( "et1", *neighbors_, "far1" );
   ASSERT_NE( machine_->index( "et1" ), old );
   ASSERT_TRUE( becomesReady( "Ethernet1" ) );
   Capture far1( *neighbors_, "far1" );
   EXPECT_EQ( ctl( { "shutdown", "Ethernet1", "--wait" } ).status, 0 );
   EXPECT_THAT( far1.frames( 3, milliseconds( 500 ) ),
                ElementsAre( frame( "one" ), frame( "two" ) ) );
   EXPECT_FALSE( linkUp( *machine_, "et1" ) );
}

TEST_F( DaemonTest, ANamespaceThatAppearsLaterIsUsed ) {
   red_->destroy();
   start( config( 100 ) );
   ASSERT_TRUE( becomesUnready( "Ethernet2", "namespace missing" ) );
   EXPECT_EQ( ctl( { "shutdown", "Ethernet2", "--wait" } ).status, 1 );
   red_->create();
   red_->veth( "et2", *neighbors_, "far9" ); // the kernel takes its time to remove the old far2
   ASSERT_TRUE( becomesReady( "Ethernet2" ) );
   Capture far9( *neighbors_, "far9" );
   EXPECT_EQ( ctl( { "shutdown", "Ethernet2", "--wait" } ).status, 0 );
   EXPECT_THAT( far9.frames( 2, milliseconds( 500 ) ), ElementsAre( frame( "red" ) ) );
   EXPECT_FALSE( linkUp( *red_, "et2" ) );
}

TEST_F( DaemonTest, ANamespaceRecreatedUnderItsNameIsUsed ) {
   start( config( 100 ) );
   ASSERT_TRUE( becomesReady( "Ethernet2" ) );
   red_->destroy();
   ASSERT_TRUE( becomesUnready( "Ethernet2", "namespace missing" ) );
   red_->create();
   ASSERT_TRUE( becomesUnready( "Ethernet2", "no device" ) );
   red_->veth( "et2", *neighbors_, "far9" ); // the kernel takes its time to remove the old far2
   ASSERT_TRUE( becomesReady( "Ethernet2" ) );
   Capture far9( *neighbors_, "far9" );
   EXPECT_EQ( ctl( { "shutdown", "Ethernet2", "--wait" } ).status, 0 );
   EXPECT_THAT( far9.frames( 2, milliseconds( 500 ) ), ElementsAre( frame( "red" ) ) );
}

TEST_F( DaemonTest, ANamespaceRemovedDuringTheDelayEndsTheShutdown ) {
   start( config( 2000 ) );
   ASSERT_TRUE( becomesReady( "Ethernet2" ) );
   Process waiting( { VALENCTL, "--socket", socket(), "shutdown", "Ethernet2", "--wait" },
                    *work_ / "waiting" );
   ASSERT_TRUE(
      eventually( [ & ] { return interface( "Ethernet2" ).value( "delayed", false ); } ) );
   red_->destroy();
   EXPECT_EQ( waiting.wait(), 1 );
   EXPECT_THAT( waiting.err(), HasSubstr( "Ethernet2: device not present: readiness " ) );
   red_->create();
}

// --- Frames that cannot be sent -------------------------------------------------------------------

TEST_F( DaemonTest, AFrameThatIsTooLongIsReportedAndDoesNotStopTheShutdown ) {
   start( "shutdown-delay-ms: 100\n"
          "interfaces: [{name: Ethernet1, device: et1}]\n"
          "agents:\n"
          "- name: bulk\n"
          "  messages: {Ethernet1: [" +
          Settings::toHex( testFrame( std::string( 1600, 'x' ) ) ) + ", " +
          Settings::toHex( frame( "fits" ) ) + "]}\n" );
   ASSERT_TRUE( becomesReady( "Ethernet1" ) );
   EXPECT_THAT(
      ctl( { "status" } ).out,
      HasSubstr( "Ethernet1: frame 1 of bulk (1614 bytes) exceeds the limit of et1 (1514) "
                 "and will not be sent\n" ) );
   Capture far1( *neighbors_, "far1" );
   auto const result = ctl( { "shutdown", "Ethernet1", "--wait" } );
   EXPECT_EQ( result.status, 0 );
   EXPECT_THAT( result.err, HasSubstr( "Ethernet1: 1 frame sent, 1 failed (Message too long)\n" ) );
   EXPECT_THAT( far1.frames( 2, milliseconds( 500 ) ), ElementsAre( frame( "fits" ) ) );
   EXPECT_EQ( interface( "Ethernet1" )[ "failed" ], 1 );
   EXPECT_THAT( ctl( { "status" } ).out, HasSubstr( "1 (Message too long)" ) );
}

// --- Starting, stopping and reloading -------------------------------------------------------------

TEST_F( DaemonTest, WhenStoppedItSendsNothingAndLeavesTheLinks ) {
   start( config( 20000 ) );
   ASSERT_TRUE( becomesReady( "Ethernet1" ) );
   ASSERT_EQ( ctl( { "shutdown", "Ethernet1" } ).status, 0 );
   Capture far2( *neighbors_, "far2" );
   daemon_->signal( SIGTERM );
   EXPECT_EQ( daemon_->wait(), 0 ) << daemon_->err();
   EXPECT_TRUE( logged( "received SIGTERM, exiting; links left unchanged" ) ) << daemon_->err();
   EXPECT_TRUE( linkUp( *machine_, "et1" ) );
   EXPECT_TRUE( linkUp( *red_, "et2" ) );
   EXPECT_THAT( far2.frames( 1, milliseconds( 200 ) ), IsEmpty() );
   EXPECT_NE( ::access( socket().c_str(), F_OK ), 0 ) << "the socket is removed";
}

TEST_F( DaemonTest, WhenKilledItLeavesTheLinksAndResumesAfterARestart ) {
   start( config( 1000 ), { "--trace-ring", *work_ / "ring" } );
   ASSERT_TRUE( becomesReady( "Ethernet1" ) );
   ASSERT_EQ( ctl( { "shutdown", "Ethernet1" } ).status, 0 );
   kill();
   // No process is left that could set it down, so there is nothing to wait for.
   EXPECT_TRUE( linkUp( *machine_, "et1" ) );
   EXPECT_EQ( ctl( { "status" } ).status, 3 );
   auto const dump = ctl( { "trace", "dump", "--file", *work_ / "ring" } );
   EXPECT_EQ( dump.status, 0 );
   EXPECT_THAT( dump.out, HasSubstr( "2 messages -> shutdown after delay" ) )
      << "the ring outlives valend";

   start( config( 100 ) );
   ASSERT_TRUE( eventually( [ this ] { return !linkUp( *machine_, "et1" ); } ) );
   EXPECT_TRUE( logged( "resuming 1 shutdown from the previous run\n" ) ) << daemon_->err();
   ASSERT_EQ( ctl( { "enable", "Ethernet1" } ).status, 0 );
   ASSERT_TRUE( becomesReady( "Ethernet1" ) );
   EXPECT_EQ( ctl( { "shutdown", "Ethernet1", "--wait" } ).status, 0 );
   EXPECT_FALSE( linkUp( *machine_, "et1" ) );
}

TEST_F( DaemonTest, ASecondOneAtTheSameSocketDoesNotStart ) {
   start( config( 100 ) );
   Process second( { VALEND, "--config", *work_ / "valen.yaml", "--socket", socket() },
                   *work_ / "second", &*machine_ );
   EXPECT_EQ( second.wait(), 1 );
   EXPECT_THAT( second.err(),
                HasSubstr( "valend: cannot start: another process is listening at " + socket() +
                           " (stop it, or set another socket): Address already in use\n" ) );
   EXPECT_EQ( ctl( { "status" } ).status, 0 );
}

TEST_F( DaemonTest, AnInvalidConfigurationIsRejectedWithAllItsErrors ) {
   std::ofstream( *work_ / "bad.yaml" ) << "shutdown-delay-ms: 70000\nvrfs: [{name: a}]\n";
   for ( std::string const check : { "--check", "--socket=unused" } ) {
      Process checking( { VALEND, "--config", *work_ / "bad.yaml", check }, *work_ / "bad",
                        &*machine_ );
      EXPECT_EQ( checking.wait(), 78 );
      EXPECT_EQ( checking.err(),
                 *work_ / "bad.yaml:1:20: shutdown-delay-ms is \"70000\"; expected milliseconds "
                          "from 0 to 65535\n" +
                    *work_ / "bad.yaml:2:8: VRF has no \"namespace\"\n" );
   }
}

TEST_F( DaemonTest, TheServiceManagerIsNotifiedOfReadinessAndStopping ) {
   NotifySocket const manager( *work_ / "notify" );
   ::setenv( "NOTIFY_SOCKET", manager.path().c_str(), 1 );
   start( config( 100 ) );
   ::unsetenv( "NOTIFY_SOCKET" );
   EXPECT_EQ( manager.received(), "READY=1" );
   daemon_->signal( SIGINT );
   EXPECT_EQ( manager.received(), "STOPPING=1" );
   EXPECT_EQ( daemon_->wait(), 0 );
}

TEST_F( DaemonTest, AReloadAppliesChangesAndDisturbsNothingElse ) {
   start( config( 6000 ) );
   ASSERT_TRUE( becomesReady( "Ethernet2" ) );
   Capture far2( *neighbors_, "far2" );
   ASSERT_EQ( ctl( { "shutdown", "Ethernet2" } ).status, 0 );
   auto changed = config( 100 );
   changed.replace( changed.find( Settings::toHex( frame( "one" ) ) ),
                    Settings::toHex( frame( "one" ) ).size(), Settings::toHex( frame( "new" ) ) );
   std::ofstream( *work_ / "valen.yaml" ) << changed;
   daemon_->signal( SIGHUP );
   ASSERT_TRUE( eventually( [ this ] {
      return ctl( { "show", "config/valen/globalConfig/shutdownDelayMs" } ).out == "100\n";
   } ) );
   Capture far1( *neighbors_, "far1" );
   EXPECT_EQ( ctl( { "shutdown", "Ethernet1", "--wait" } ).status, 0 );
   EXPECT_THAT( far1.frames( 3, milliseconds( 500 ) ),
                ElementsAre( frame( "new" ), frame( "two" ) ) );
   ASSERT_TRUE( eventually( [ this ] { return !linkUp( *red_, "et2" ); } ) );
   EXPECT_GE( lastRecord( "Ethernet2" )[ "heldMs" ], 6000 );
   EXPECT_THAT( far2.frames( 2, milliseconds( 200 ) ), ElementsAre( frame( "red" ) ) );
}

TEST_F( DaemonTest, AReloadThatIsRejectedChangesNothing ) {
   start( config( 100 ) );
   ASSERT_TRUE( becomesReady( "Ethernet1" ) );
   std::ofstream( *work_ / "valen.yaml" ) << "colour: blue\n";
   daemon_->signal( SIGHUP );
   ASSERT_TRUE( logged( "keeping the previous one" ) );
   EXPECT_TRUE( logged( "valen.yaml:1:1: unknown key \"colour\"" ) ) << daemon_->err();
   EXPECT_EQ( ctl( { "shutdown", "Ethernet1", "--wait" } ).status, 0 );
   EXPECT_TRUE( logged( "Ethernet1: shutdown by root: 2 frames in " ) ) << daemon_->err();
}

// --- What the operator sees ----------------------------------------------------------------------

TEST_F( DaemonTest, EachOutcomeOfACommandHasItsExitStatus ) {
   start( config( 100 ) );
   auto const unknown = ctl( { "shutdown", "Ethernet9" } );
   EXPECT_EQ( unknown.status, 1 );
   EXPECT_EQ( unknown.err, "valenctl: interface \"Ethernet9\" is not configured\n" );
   EXPECT_EQ( ctl( { "status", "Ethernet9" } ).status, 1 );
   EXPECT_EQ( ctl( { "show", "nowhere" } ).err, "valenctl: no such path: \"nowhere\"\n" );
   EXPECT_EQ( ctl( { "trace", "levels", "x" } ).status, 1 );
   EXPECT_EQ( ctl( { "shutdown" } ).status, 2 );
   EXPECT_EQ( ctl( { "juggle" } ).status, 2 );
   EXPECT_EQ( ctl( {} ).status, 2 );
   EXPECT_EQ( ctl( { "--help" } ).status, 0 );
   auto const unreachable = ctl( { "status", "--socket", *work_ / "none" } );
   EXPECT_EQ( unreachable.status, 3 );
   EXPECT_EQ( unreachable.err, "valenctl: cannot connect to valend at " + *work_ / "none" +
                                  ": No such file or directory (is it running?)\n" );
   EXPECT_EQ( unreachable.out, "" );
}

TEST_F( DaemonTest, ADaemonThatDoesNotAnswerTimesOut ) {
   start( config( 100 ) );
   daemon_->signal( SIGSTOP );
   auto const result = ctl( { "--timeout", "0.2", "status" } );
   daemon_->signal( SIGCONT );
   EXPECT_EQ( result.status, 4 );
   EXPECT_EQ( result.err, "valenctl: valend did not answer within 200 ms\n" );
}

TEST_F( DaemonTest, PermissionsDependOnTheCallersGroups ) {
   start( config( 100 ), { "--read-group", "4001", "--admin-group", "4002" } );
   ASSERT_TRUE( becomesReady( "Ethernet1" ) );
   run( "cp " VALENCTL " " + *work_ / "valenctl" );
   auto const asUser = [ & ]( std::string const & groups, std::vector< std::string > arguments ) {
      arguments.insert( arguments.begin(), { "/usr/bin/setpriv", "--reuid=65534", "--regid=65534",
                                             groups, *work_ / "valenctl", "--socket", socket() } );
      Process command( arguments, *work_ / "user" );
      auto const status = command.wait();
      return Result{ status, command.out(), command.err() };
   };
   auto const you = " (you are " + std::string( ::getpwuid( 65534 )->pw_name ) + ")\n";
   auto const stranger = asUser( "--clear-groups", { "status" } );
   EXPECT_EQ( stranger.status, 1 );
   // A coverage build adds a line about a file that it cannot write.
   EXPECT_THAT(
      stranger.err,
      StartsWith( "valenctl: permission denied: Status requires root or group 4001 or 4002" +
                  you ) );
   EXPECT_EQ( asUser( "--groups=4001", { "status" } ).status, 0 );
   auto const reader = asUser( "--groups=4001", { "shutdown", "Ethernet1" } );
   EXPECT_EQ( reader.status, 1 );
   EXPECT_THAT( reader.err,
                HasSubstr( "permission denied: ShutdownMany requires root or group 4002" + you ) );
   EXPECT_EQ( asUser( "--groups=4001", { "trace", "levels", "*/0" } ).status, 1 );
   EXPECT_TRUE( linkUp( *machine_, "et1" ) );
   EXPECT_EQ( asUser( "--groups=4001,4002", { "shutdown", "Ethernet1", "--wait" } ).status, 0 );
   EXPECT_FALSE( linkUp( *machine_, "et1" ) );
}

TEST_F( DaemonTest, TheTraceAndTheStoreCanBeShown ) {
   start( config( 100 ) );
   ASSERT_TRUE( becomesReady( "Ethernet1" ) );
   EXPECT_EQ( ctl( { "trace", "levels" } ).out, "*/0-1\n" );
   EXPECT_THAT( ctl( { "trace", "--lines", "10000" } ).out,
                HasSubstr( "RunnabilitySm/1 void Valen::RunnabilitySm::handleGlobalConfig(): "
                           "adding configSm\n" ) );
   EXPECT_EQ( ctl( { "trace", "levels", "IntfSm/0" } ).out, "IntfSm/0\n" );
   EXPECT_EQ( ctl( { "show", "status/agentActive" } ).out, "true\n" );
   EXPECT_EQ( Json::parse( ctl( { "show", "status/intfStatus/Ethernet1" } ).out )[ "shouldDelay" ],
              true );
   EXPECT_EQ( ctl( { "show", "config/agents/lldp/messages/message/Ethernet2/message/0" } ).out,
              "\"0x" + Settings::toHex( frame( "red" ) ) + "\"\n" );
   std::string table;
   ASSERT_TRUE( eventually( [ & ] { // a link has its carrier some time after it is up
      table = ctl( { "status" } ).out;
      return table.find( "no carrier" ) == std::string::npos;
   } ) );
   EXPECT_THAT( table, HasSubstr( "shutdown delay: 100 ms\n" ) );
   EXPECT_THAT( table, HasSubstr( "Ethernet1  et1     default  up    yes    -     lldp 2  0     0 "
                                  "      0\n" ) );
}

TEST_F( DaemonTest, TheTraceCanBeFollowed ) {
   start( config( 0 ) );
   ASSERT_TRUE( becomesReady( "Ethernet1" ) );
   Process follower( { VALENCTL, "--socket", socket(), "trace", "follow", "--lines", "1" },
                     *work_ / "follow" );
   ASSERT_TRUE( eventually( [ & ] { return !follower.out().empty(); } ) );
   ASSERT_EQ( ctl( { "shutdown", "Ethernet1", "--wait" } ).status, 0 );
   EXPECT_TRUE( eventually( [ & ] {
      return follower.out().find( "2 messages -> shutdown after delay" ) != std::string::npos;
   } ) );
}

} // namespace
} // namespace Valen::Test
