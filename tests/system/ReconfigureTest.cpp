// Every change of the configuration that takes effect while valend runs, on the real kernel. Each one
// must lead to the same state as a restart would; the frames at the far end show it.
#include "tests/support/NotifySocket.h"
#include "tests/system/RunningDaemon.h"

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <gmock/gmock.h>

namespace Valen::Test {
namespace {

using std::chrono::milliseconds;
using ::testing::AnyOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class ReconfigureTest : public RunningDaemonTest {
 protected:
   // The parts of a configuration. A test sets those that differ from the first configuration.
   struct Parts {
      std::string delay = "500";
      std::string netNs;
      std::string interfaces = "[{name: Ethernet1, device: et1}, "
                               "{name: Ethernet2, device: et2, vrf: red}]";
      std::string lldp = "{Ethernet1: [" + hex( "one" ) + "], Ethernet2: [" + hex( "red" ) + "]}";
   };

   static std::string hex( std::string const & payload ) {
      return Settings::toHex( frame( payload ) );
   }
   std::string text( Parts const & parts ) const {
      return ( parts.delay.empty() ? "" : "shutdown-delay-ms: " + parts.delay + "\n" ) +
             "vrfs: [{name: red, namespace: " +
             ( parts.netNs.empty() ? red_->text() : parts.netNs ) +
             "}]\ninterfaces: " + parts.interfaces +
             "\nagents: [{name: lldp, messages: " + parts.lldp + "}]\n";
   }
   void startWith( Parts const & parts ) {
      start( text( parts ) );
      ASSERT_TRUE( becomesReady( "Ethernet1" ) );
      ASSERT_TRUE( becomesReady( "Ethernet2" ) );
   }
   // Reloads with `parts` and returns the output of the command, whether or not readiness was lost.
   std::string reload( Parts const & parts ) {
      std::ofstream( *work_ / "valen.yaml" ) << text( parts );
      auto const result = ctl( { "reload" } );
      EXPECT_THAT( result.status, AnyOf( 0, 5 ) ) << result.err;
      return result.out;
   }
   // Shuts the interface down and returns the frames that its far end receives.
   std::vector< std::string > goodbyes( std::string const & interface,
                                        std::string const & far ) const {
      Capture capture( *neighbors_, far );
      EXPECT_EQ( ctl( { "shutdown", interface, "--wait" } ).status, 0 );
      return capture.frames( 5, milliseconds( 300 ) );
   }
   void enable( std::string const & interface ) {
      ASSERT_EQ( ctl( { "enable", interface } ).status, 0 );
   }
};

// --- Each change, and its reversal ---------------------------------------------------------------

TEST_F( ReconfigureTest, FramesCanBeRemovedAndAddedAgain ) {
   startWith( {} );
   Parts without;
   without.lldp = "{Ethernet2: [" + hex( "red" ) + "]}";
   EXPECT_EQ( reload( without ), "interface Ethernet1: messages of lldp removed\n" );
   ASSERT_TRUE( becomesUnready( "Ethernet1", "no frames" ) );
   EXPECT_THAT( goodbyes( "Ethernet1", "far1" ), IsEmpty() );
   EXPECT_FALSE( linkUp( *machine_, "et1" ) ) << "it goes down without frames";
   enable( "Ethernet1" );

   EXPECT_EQ( reload( {} ), "interface Ethernet1: messages of lldp added, 1 frame\n" );
   ASSERT_TRUE( becomesReady( "Ethernet1" ) );
   EXPECT_THAT( goodbyes( "Ethernet1", "far1" ), ElementsAre( frame( "one" ) ) );
   EXPECT_FALSE( linkUp( *machine_, "et1" ) );
   EXPECT_TRUE( linkUp( *red_, "et2" ) );
}

TEST_F( ReconfigureTest, ADropInAddsItsFrames ) {
   startWith( {} );
   std::filesystem::create_directory( *work_ / "conf.d" );
   std::ofstream( *work_ / "conf.d/radv.yaml" )
      << "agents: [{name: radv, messages: {Ethernet1: [" + hex( "radv" ) + "]}}]";
   EXPECT_EQ( ctl( { "reload" } ).out, "interface Ethernet1: messages of radv added, 1 frame\n" );
   EXPECT_THAT( goodbyes( "Ethernet1", "far1" ),
                ::testing::UnorderedElementsAre( frame( "one" ), frame( "radv" ) ) );
   enable( "Ethernet1" );
   std::filesystem::remove( *work_ / "conf.d/radv.yaml" );
   EXPECT_EQ( ctl( { "reload" } ).out, "interface Ethernet1: messages of radv removed\n" );
   ASSERT_TRUE( becomesReady( "Ethernet1" ) );
   EXPECT_THAT( goodbyes( "Ethernet1", "far1" ), ElementsAre( frame( "one" ) ) );
}

TEST_F( ReconfigureTest, AnInterfaceAndItsDeviceCanMoveToAnotherVrf ) {
   startWith( {} );
   machine_->ip( "link set et1 netns " + red_->text() );
   red_->ip( "link set et1 up" );
   Parts moved;
   moved.interfaces = "[{name: Ethernet1, device: et1, vrf: red}, "
                      "{name: Ethernet2, device: et2, vrf: red}]";
   EXPECT_EQ( reload( moved ), "interface Ethernet1: VRF red, was default\n" );
   ASSERT_TRUE( becomesReady( "Ethernet1" ) );
   EXPECT_THAT( goodbyes( "Ethernet1", "far1" ), ElementsAre( frame( "one" ) ) );
   EXPECT_FALSE( linkUp( *red_, "et1" ) );
   EXPECT_TRUE( linkUp( *red_, "et2" ) );

   red_->ip( "link set et1 netns " + machine_->text() );
   machine_->ip( "link set et1 up" );
   EXPECT_EQ( reload( {} ), "interface Ethernet1: VRF default, was red\n" );
   ASSERT_TRUE( becomesReady( "Ethernet1" ) );
   EXPECT_THAT( goodbyes( "Ethernet1", "far1" ), ElementsAre( frame( "one" ) ) );
   EXPECT_FALSE( linkUp( *machine_, "et1" ) );
}

TEST_F( ReconfigureTest, TheNamespaceOfAVrfCanChange ) {
   TestNetNs const blue;
   blue.veth( "et2", *neighbors_, "far3" );
   startWith( {} );
   Parts other;
   other.netNs = blue.text();
   EXPECT_EQ( reload( other ),
              "VRF red: namespace " + blue.text() + ", was " + red_->text() + "\n" );
   ASSERT_TRUE( becomesReady( "Ethernet2" ) );
   Capture old( *neighbors_, "far2" );
   EXPECT_THAT( goodbyes( "Ethernet2", "far3" ), ElementsAre( frame( "red" ) ) );
   EXPECT_THAT( old.frames( 1, milliseconds( 100 ) ), IsEmpty() );
   EXPECT_FALSE( linkUp( blue, "et2" ) );
   EXPECT_TRUE( linkUp( *red_, "et2" ) );

   reload( {} );
   ASSERT_TRUE( becomesReady( "Ethernet2" ) );
   EXPECT_THAT( goodbyes( "Ethernet2", "far2" ), ElementsAre( frame( "red" ) ) );
   EXPECT_FALSE( linkUp( *red_, "et2" ) );
}

TEST_F( ReconfigureTest, TheDelayOfOneInterfaceCanBeDisabledAndEnabled ) {
   startWith( {} );
   Parts off;
   off.interfaces = "[{name: Ethernet1, device: et1, shutdown-delay: false}, "
                    "{name: Ethernet2, device: et2, vrf: red}]";
   EXPECT_EQ( reload( off ), "interface Ethernet1: shutdown delay no longer supported\n" );
   ASSERT_TRUE( becomesUnready( "Ethernet1", "delay disabled for this interface" ) );
   EXPECT_THAT( goodbyes( "Ethernet1", "far1" ), IsEmpty() );
   EXPECT_FALSE( linkUp( *machine_, "et1" ) );
   enable( "Ethernet1" );

   EXPECT_EQ( reload( {} ), "interface Ethernet1: shutdown delay supported\n" );
   ASSERT_TRUE( becomesReady( "Ethernet1" ) );
   EXPECT_THAT( goodbyes( "Ethernet1", "far1" ), ElementsAre( frame( "one" ) ) );
}

TEST_F( ReconfigureTest, TheDelayCanBeDisabledAndEnabled ) {
   startWith( {} );
   Parts off;
   off.delay = "";
   EXPECT_EQ( reload( off ), "shutdown delay off, was 500 ms\n" );
   ASSERT_TRUE( becomesUnready( "Ethernet1", "delay disabled" ) );
   ASSERT_TRUE( becomesUnready( "Ethernet2", "delay disabled" ) );
   EXPECT_THAT( goodbyes( "Ethernet2", "far2" ), IsEmpty() );
   EXPECT_FALSE( linkUp( *red_, "et2" ) );
   enable( "Ethernet2" );

   EXPECT_EQ( reload( {} ), "shutdown delay 500 ms, was off\n" );
   ASSERT_TRUE( becomesReady( "Ethernet1" ) );
   ASSERT_TRUE( becomesReady( "Ethernet2" ) );
   EXPECT_THAT( goodbyes( "Ethernet2", "far2" ), ElementsAre( frame( "red" ) ) );
   EXPECT_THAT( goodbyes( "Ethernet1", "far1" ), ElementsAre( frame( "one" ) ) );
}

TEST_F( ReconfigureTest, ADeviceCanBeRenamed ) {
   startWith( {} );
   machine_->ip( "link set et1 down" );
   machine_->ip( "link set et1 name et9" );
   machine_->ip( "link set et9 up" );
   ASSERT_TRUE( becomesUnready( "Ethernet1", "no device" ) );
   Parts renamed;
   renamed.interfaces =
      "[{name: Ethernet1, device: et9}, {name: Ethernet2, device: et2, vrf: red}]";
   EXPECT_EQ( reload( renamed ), "interface Ethernet1: device et9, was et1\n" );
   ASSERT_TRUE( becomesReady( "Ethernet1" ) );
   EXPECT_THAT( goodbyes( "Ethernet1", "far1" ), ElementsAre( frame( "one" ) ) );
   EXPECT_FALSE( linkUp( *machine_, "et9" ) );
}

TEST_F( ReconfigureTest, ADelayInProgressIsNotAffectedByOtherChanges ) {
   Parts parts;
   parts.delay = "5000";
   startWith( parts );
   machine_->veth( "et3", *neighbors_, "far3" );
   Capture far2( *neighbors_, "far2" );
   Process waiting( { VALENCTL, "--socket", socket(), "shutdown", "Ethernet2", "--wait" },
                    *work_ / "waiting" );
   ASSERT_TRUE(
      eventually( [ & ] { return interface( "Ethernet2" ).value( "delayed", false ); } ) );

   auto others = parts;
   others.interfaces = "[{name: Ethernet1, device: et1, shutdown-delay: false}, {name: Ethernet2, "
                       "device: et2, vrf: red}, {name: Ethernet3, device: et3}]";
   others.lldp = "{Ethernet3: [" + hex( "three" ) + "], Ethernet2: [" + hex( "red" ) + "]}";
   EXPECT_EQ( reload( others ), "interface Ethernet1: shutdown delay no longer supported\n"
                                "interface Ethernet3: added, device et3, VRF default\n"
                                "interface Ethernet1: messages of lldp removed\n"
                                "interface Ethernet3: messages of lldp added, 1 frame\n" );
   EXPECT_EQ( interface( "Ethernet2" )[ "delayed" ], true );
   ASSERT_TRUE( becomesReady( "Ethernet3" ) );
   reload( parts );
   EXPECT_EQ( interface( "Ethernet2" )[ "delayed" ], true );

   EXPECT_EQ( waiting.wait(), 0 ) << waiting.err();
   EXPECT_FALSE( linkUp( *red_, "et2" ) );
   EXPECT_GE( lastRecord( "Ethernet2" )[ "heldMs" ], 5000 );
   EXPECT_THAT( far2.frames( 2, milliseconds( 200 ) ), ElementsAre( frame( "red" ) ) );
   EXPECT_TRUE( linkUp( *machine_, "et1" ) );
}

// --- What the operator sees ----------------------------------------------------------------------

TEST_F( ReconfigureTest, ARejectedReloadListsAllErrorsAndChangesNothing ) {
   startWith( {} );
   auto const before = ctl( { "config", "show", "--json" } ).out;
   std::filesystem::create_directory( *work_ / "conf.d" );
   std::ofstream( *work_ / "valen.yaml" ) << text( {} ) << "colour: blue\nsocket: []\n";
   std::ofstream( *work_ / "conf.d/a.yaml" )
      << "agents: [{name: lldp, messages: {Ethernet9: [00]}}]";
   auto const first = *work_ / "valen.yaml";
   std::vector< std::string > const errors{
      first + ":5:1: unknown key \"colour\" in the configuration; expected \"shutdown-delay-ms\"",
      first + ":6:9: socket must be a single value\n",
      *work_ / "conf.d/a.yaml:1:34: unknown interface \"Ethernet9\"; expected one of "
               "\"interfaces\"\n",
      *work_ / "conf.d/a.yaml:1:46: frame of 1 byte; expected at least 14, an Ethernet header\n" };
   auto const result = ctl( { "reload" } );
   EXPECT_EQ( result.status, 1 );
   EXPECT_EQ( result.out, "" );
   auto const check = ctl( { "config", "check", first } );
   EXPECT_EQ( check.status, 1 );
   for ( auto const & error : errors ) {
      EXPECT_THAT( result.err, HasSubstr( error ) );
      EXPECT_THAT( check.err, HasSubstr( error ) );
      EXPECT_TRUE( logged( error ) ) << "in the log as well";
   }
   EXPECT_EQ( std::count( check.err.begin(), check.err.end(), '\n' ), 4 );
   EXPECT_THAT( result.err,
                ::testing::EndsWith( "valenctl: configuration rejected; keeping the previous "
                                     "one\n" ) );
   EXPECT_EQ( ctl( { "config", "show", "--json" } ).out, before );
   EXPECT_THAT( goodbyes( "Ethernet1", "far1" ), ElementsAre( frame( "one" ) ) );
}

TEST_F( ReconfigureTest, TheActiveConfigurationIsShownWithFileAndLine ) {
   startWith( {} );
   auto const file = *work_ / "valen.yaml";
   auto const shown = ctl( { "config", "show" } ).out;
   auto const line = [ & ]( std::string const & item, std::string const & value,
                            std::string const & from ) {
      return ::testing::ContainsRegex( item + " +" + value + " +" + from + "\n" );
   };
   EXPECT_THAT( shown, line( "\nshutdown-delay-ms", "500", file + ":1" ) );
   EXPECT_THAT( shown, line( "\nsocket", socket(), "command line" ) );
   EXPECT_THAT( shown, line( "\ntrace.levels", "\\*/0-1", "default" ) );
   EXPECT_THAT( shown, line( "\nVRF red", "namespace " + red_->text(), file + ":2" ) );
   EXPECT_THAT( shown, line( "\ninterface Ethernet1", "device et1, VRF default", file + ":3" ) );
   EXPECT_THAT( shown,
                line( "\ninterface Ethernet2, agent lldp", "1 frame, 273 bytes", file + ":4" ) );
   auto const json = Json::parse( ctl( { "config", "show", "--json" } ).out );
   EXPECT_EQ( json[ "messages" ][ 0 ][ "frames" ], Json::array( { hex( "one" ) } ) );

   EXPECT_EQ( ctl( { "config", "check", file } ).out,
              file + ": OK, 2 interfaces, 2 VRFs, 1 agent\n" );
   EXPECT_EQ( ctl( { "reload" } ).err, "reloaded: 0 changes\n" );
}

TEST_F( ReconfigureTest, TheReloadListsSettingsThatTakeEffectAtTheNextStart ) {
   startWith( {} );
   std::ofstream( *work_ / "valen.yaml" )
      << text( {} ) << "socket: /else\nnetns-directory: /run/other\ntrace: {levels: IntfSm/0}\n";
   EXPECT_EQ( ctl( { "reload" } ).out,
              "trace.levels IntfSm/0, was */0-1\n"
              "netns-directory /run/other: takes effect at the next start\n" )
      << "the socket comes from the command line";
   EXPECT_EQ( ctl( { "trace", "levels" } ).out, "IntfSm/0\n" );
}

TEST_F( ReconfigureTest, TheServiceManagerIsNotifiedOfEachReload ) {
   NotifySocket manager( *work_ / "notify" );
   ::setenv( "NOTIFY_SOCKET", manager.path().c_str(), 1 );
   startWith( {} );
   ::unsetenv( "NOTIFY_SOCKET" );
   EXPECT_THAT( manager.received(), ::testing::StartsWith( "READY=1" ) );
   std::ofstream( *work_ / "valen.yaml" ) << "colour: blue\n";
   daemon_->signal( SIGHUP );
   EXPECT_THAT( manager.received(),
                ::testing::MatchesRegex( "RELOADING=1\nMONOTONIC_USEC=[0-9]+" ) );
   EXPECT_EQ( manager.received(), "READY=1\nSTATUS=Configuration rejected (1 error); keeping the "
                                  "previous one" );
   Parts parts;
   parts.delay = "100";
   reload( parts );
   EXPECT_THAT( manager.received(), ::testing::StartsWith( "RELOADING=1" ) );
   EXPECT_EQ( manager.received(), "READY=1\nSTATUS=Configuration reloaded: 1 change" );
}

// --- A large configuration -----------------------------------------------------------------------

TEST_F( ReconfigureTest, WhileALargeConfigurationIsReadAndAppliedNothingWaits ) {
   startWith( {} );
   Parts large;
   auto const bytes = hex( std::string( 8000, 'x' ) );
   large.lldp = "{Ethernet1: [" + hex( "new" );
   for ( int i = 0; i < 100; ++i ) {
      large.lldp += ", " + bytes;
   }
   large.lldp += "], Ethernet2: [" + hex( "red" ) + "]}";
   large.interfaces.pop_back();
   for ( int i = 0; i < 500; ++i ) {
      large.interfaces += ", {name: port" + std::to_string( i ) + "}";
   }
   large.interfaces += "]";
   std::ofstream( *work_ / "valen.yaml" ) << text( large );
   Process reload( { VALENCTL, "--socket", socket(), "reload" }, *work_ / "reload" );
   std::atomic< bool > ended = false;
   std::thread waiting( [ & ] {
      EXPECT_THAT( reload.wait(), AnyOf( 0, 5 ) );
      ended = true;
   } );
   int answers = 0; // meanwhile
   while ( !ended ) {
      EXPECT_EQ( ctl( { "status", "Ethernet2" } ).status, 0 );
      answers += !ended;
   }
   waiting.join();
   EXPECT_GT( answers, 5 ) << "the daemon answers calls while it reloads";
   EXPECT_EQ( interface( "Ethernet1" )[ "frames" ][ 0 ][ "count" ], 101 );
   EXPECT_EQ( interface( "port499" )[ "device" ], "port499" );
}

} // namespace
} // namespace Valen::Test
