// Configurations that are valid but not what the operator wants, or not valid at all: links stay protected,
// and the operator notices.
#include "tests/system/RunningDaemon.h"

#include <filesystem>
#include <gmock/gmock.h>

namespace Valen::Test {
namespace {

using ::testing::HasSubstr;

class BadConfigurationTest : public RunningDaemonTest {
 protected:
   // The conditions that are raised, as "NAME: TEXT" lines.
   std::string conditions() const {
      std::string text;
      auto const status = Json::parse( ctl( { "status", "--json" } ).out );
      for ( auto const & each : status[ "conditions" ] ) {
         text += each.value( "name", "" ) + ": " + each.value( "text", "" ) + "\n";
      }
      return text;
   }
   void stop() {
      daemon_->signal( SIGTERM );
      EXPECT_EQ( daemon_->wait(), 0 );
   }
   std::string kept() const { return *work_ / "state/configuration.yaml"; }
   std::string dropIn() const { return *work_ / "conf.d/50-bad.yaml"; }
};

TEST_F( BadConfigurationTest, ABadDropInAtTheStartLeavesTheLastValidConfigurationActive ) {
   work_->directory( "state" );
   work_->write( "conf.d/50-bad.yaml", "interfaces: []" );
   start( config( 100 ) );
   ASSERT_TRUE( eventually( [ & ] { return std::filesystem::exists( kept() ); } ) );
   stop();

   work_->write( "conf.d/50-bad.yaml", "color: blue" );
   launch();
   ASSERT_TRUE( eventually( [ & ] { return ctl( { "status" } ).status == 0; } ) ) << daemon_->err();
   ASSERT_TRUE( becomesReady( "Ethernet1" ) );
   ASSERT_TRUE( becomesReady( "Ethernet2" ) );
   EXPECT_THAT( conditions(), HasSubstr( "configuration: rejected: " + dropIn() + ":1:1: " ) );
   EXPECT_TRUE( logged( dropIn() + ":1:1: unknown key \"color\"" ) ) << daemon_->err();
   EXPECT_THAT( ctl( { "config", "show" } ).out, HasSubstr( kept() + ":" ) );
   EXPECT_EQ( ctl( { "shutdown", "Ethernet1", "--wait" } ).status, 0 );
   EXPECT_EQ( lastRecord( "Ethernet1" )[ "sent" ], 2 );

   EXPECT_EQ( ctl( { "reload" } ).status, 1 ) << "it has errors still";
   EXPECT_THAT( conditions(), HasSubstr( "configuration: " ) );
   work_->write( "conf.d/50-bad.yaml", "" );
   EXPECT_EQ( ctl( { "reload" } ).status, 0 );
   EXPECT_EQ( conditions(), "" );
   EXPECT_THAT( ctl( { "config", "show" } ).out, HasSubstr( *work_ / "valen.yaml" + ":" ) );
   stop();
}

TEST_F( BadConfigurationTest, TheCheckAndAStartWithoutAValidConfigurationFail ) {
   work_->directory( "state" );
   configure( "color: blue" );
   launch();
   EXPECT_EQ( daemon_->wait(), 78 );
   EXPECT_FALSE( std::filesystem::exists( kept() ) );

   work_->write( "state/configuration.yaml", "shutdown-delay-ms: 5" );
   launch( { "--check" } );
   EXPECT_EQ( daemon_->wait(), 78 );
   work_->write( "state/configuration.yaml", "damaged: true" );
   launch();
   EXPECT_EQ( daemon_->wait(), 78 );
   EXPECT_TRUE( logged( kept() + ":1:1: unknown key \"damaged\"" ) ) << daemon_->err();
   EXPECT_TRUE( logged( "unknown key \"color\"" ) ) << daemon_->err();
}

TEST_F( BadConfigurationTest, AReloadThatTakesReadinessAwaySaysSo ) {
   start( config( 100 ) );
   ASSERT_TRUE( becomesReady( "Ethernet1" ) );
   ASSERT_TRUE( becomesReady( "Ethernet2" ) );
   configure( "vrfs: [{name: red, namespace: " + red_->text() +
              "}]\n"
              "shutdown-delay-ms: 100\n"
              "interfaces: [{name: Ethernet1, device: et1}, "
              "{name: Ethernet2, device: et2, vrf: red}]\n"
              "agents: [{name: lldp, messages: {Ethernet1: [" +
              Settings::toHex( frame( "one" ) ) + "]}}]\n" );
   auto const result = ctl( { "reload" } );
   EXPECT_EQ( result.status, 5 );
   EXPECT_THAT( result.err, HasSubstr( "Ethernet2: no longer ready: no frames\n" ) );
   EXPECT_THAT( result.err, HasSubstr( "reloaded: 2 changes; no longer ready: 1 interface\n" ) );
   EXPECT_TRUE( logged( "valend: Ethernet2: no longer ready after the reload: no frames\n" ) )
      << daemon_->err();
   EXPECT_EQ( ctl( { "reload" } ).status, 0 ) << "it was not ready before";
}

// The device of an interface is exchanged for another that exists: it is ready again after a moment.
TEST_F( BadConfigurationTest, AReloadAfterWhichAllIsReadyAgainEndsWithSuccess ) {
   red_->veth( "et3", *neighbors_, "far3" );
   start( config( 100 ) );
   ASSERT_TRUE( becomesReady( "Ethernet2" ) );
   auto text = config( 100 );
   text.replace( text.find( "device: et2" ), 11, "device: et3" );
   configure( text );
   auto const result = ctl( { "reload" } );
   EXPECT_EQ( result.status, 0 ) << result.err;
   EXPECT_EQ( interface( "Ethernet2" )[ "ready" ], true );
}

TEST_F( BadConfigurationTest, ADeviceThatDoesNotCarryEthernetFramesIsNotReady ) {
   for ( std::string const mode : { "tun", "tap" } ) {
      machine_->ip( "tuntap add dev " + mode + "0 mode " + mode );
      machine_->ip( "link set " + mode + "0 up" );
   }
   start( "shutdown-delay-ms: 60000\n"
          "interfaces: [{name: Tunnel1, device: tun0}, {name: Tap1, device: tap0}]\n"
          "agents: [{name: lldp, messages: {Tunnel1: [" +
          Settings::toHex( frame( "one" ) ) + "], Tap1: [" + Settings::toHex( frame( "one" ) ) +
          "]}}]\n" );
   ASSERT_TRUE( becomesReady( "Tap1" ) );
   EXPECT_EQ( interface( "Tunnel1" )[ "notReady" ], "not an Ethernet device (link/none)" );
   EXPECT_THAT( ctl( { "explain", "Tunnel1" } ).out,
                HasSubstr( "Ethernet device: tun0 is link/none, which does not carry Ethernet "
                           "frames\n" ) );
   EXPECT_EQ( ctl( { "shutdown", "Tunnel1", "--wait" } ).status, 0 ) << "at once";
   EXPECT_EQ( lastRecord( "Tunnel1" )[ "ending" ], "down" );
   EXPECT_EQ( lastRecord( "Tunnel1" )[ "sent" ], 0 );
   EXPECT_FALSE( linkUp( *machine_, "tun0" ) );
}

} // namespace
} // namespace Valen::Test
