#include "tests/support/WorkDirectory.h"
#include "tests/valenctl/CommandLine.h"

#include <fstream>

namespace Valenctl::Test {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

class ConfigCommandsTest : public CommandLine {
 protected:
   Exit check( std::string const & config, Words const & more = {} ) {
      std::ofstream( file ) << config;
      Words words{ "config", "check", file };
      words.insert( words.end(), more.begin(), more.end() );
      return run( words );
   }

   Valen::Test::WorkDirectory const work;
   std::string const file = work / "valen.yaml";
};

TEST_F( ConfigCommandsTest, AValidConfigurationIsSummarized ) {
   EXPECT_EQ( check( "interfaces: [{name: et1}]" ), Exit::done );
   EXPECT_EQ( out, file + ": OK, 1 interface, 1 VRF, 0 agents\n" );
   EXPECT_EQ( err, "" );
   EXPECT_TRUE( daemon.calls().empty() ) << "valend is not needed";
}

TEST_F( ConfigCommandsTest, EachErrorIsALine ) {
   EXPECT_EQ( check( "interfaces: [{name: et1, vrf: a}, {name: et2, vrf: b}]" ), Exit::failed );
   EXPECT_EQ( out, "" );
   EXPECT_THAT( err, StartsWith( file + ":1:31: " ) );
   EXPECT_THAT( err, HasSubstr( "\n" + file + ":1:52: " ) );
   EXPECT_EQ( std::count( err.begin(), err.end(), '\n' ), 2 );
}

TEST_F( ConfigCommandsTest, ErrorsCanBeJson ) {
   EXPECT_EQ( check( "interfaces: [{name: et1, vrf: a}]", { "--json" } ), Exit::failed );
   EXPECT_EQ( Json::parse( out )[ "valid" ], false );
   EXPECT_EQ( Json::parse( out )[ "errors" ].size(), 1u );
   EXPECT_EQ( err, "" );
   EXPECT_EQ( check( "", { "--json" } ), Exit::done );
   EXPECT_EQ( Json::parse( out )[ "valid" ], true );
}

TEST_F( ConfigCommandsTest, ADropInIsCheckedBesideTheOthers ) {
   work.write( "conf.d/10-a.yaml", "interfaces: [{name: et2}]" );
   work.write( "new/20-b.yaml", "interfaces: [{name: et3}, {name: et2}]" );
   Words const words{ "--drop-in", work / "new/20-b.yaml" };
   EXPECT_EQ( check( "interfaces: [{name: et1}]", words ), Exit::failed );
   EXPECT_EQ( err, ( work / "new/20-b.yaml" ) +
                      ":1:34: duplicate interface \"et2\" (first defined "
                      "at " +
                      ( work / "conf.d/10-a.yaml" ) + ":1:21)\n" );
   work.write( "new/20-b.yaml", "interfaces: [{name: et3}]" );
   EXPECT_EQ( check( "interfaces: [{name: et1}]", words ), Exit::done );
   EXPECT_EQ( out, file + " with " + ( work / "new/20-b.yaml" ) +
                      ": OK, 3 interfaces, 1 VRF, 0 agents\n" );
}

TEST_F( ConfigCommandsTest, AFileThatIsIgnoredIsAWarning ) {
   work.write( "conf.d/a.yml", "" );
   EXPECT_EQ( check( "" ), Exit::done );
   EXPECT_EQ( err, "warning: " + ( work / "conf.d/a.yml" ) +
                      ": ignored; the name of a drop-in must end in \".yaml\" and not begin with "
                      "a dot\n" );
   EXPECT_EQ( check( "", { "--json" } ), Exit::done );
   EXPECT_EQ( Json::parse( out )[ "warnings" ][ 0 ][ "file" ], work / "conf.d/a.yml" );
   EXPECT_EQ( err, "" );
}

TEST_F( ConfigCommandsTest, TheActiveConfigurationIsATable ) {
   daemon.answers( "Config",
                   { { { "settings", { { { "name", "socket" }, { "value", "/s" } } } } } } );
   EXPECT_EQ( run( { "config", "show" } ), Exit::done );
   EXPECT_EQ( onlyCall( "Config" ), Json::object() );
   EXPECT_EQ( out, "ITEM    VALUE  SOURCE\nsocket  /s     default\n" );
}

TEST_F( ConfigCommandsTest, ReloadPrintsEachChange ) {
   daemon.answers( "Reload",
                   { { { "changed", { "VRF red added", "socket: at the next start" } } } } );
   EXPECT_EQ( run( { "reload" } ), Exit::done );
   EXPECT_EQ( out, "VRF red added\nsocket: at the next start\n" );
   EXPECT_EQ( err, "reloaded: 2 changes\n" );
   run( { "reload", "--json" } );
   EXPECT_EQ( Json::parse( out )[ "changed" ].size(), 2u );
   EXPECT_EQ( err, "" );
}

TEST_F( ConfigCommandsTest, AReloadNamesWhatIsNoLongerReady ) {
   Json const answer{
      { "changed", { "interface Ethernet1: messages of lldp removed" } },
      { "warnings", { "conf.d/a.yml: ignored" } },
      { "notReady", { { { "interface", "Ethernet1" }, { "why", "no frames" } } } } };
   daemon.answers( "Reload", { answer } );
   EXPECT_EQ( run( { "reload" } ), Exit::notReady );
   EXPECT_EQ( out, "interface Ethernet1: messages of lldp removed\n" );
   EXPECT_EQ( err, "warning: conf.d/a.yml: ignored\n"
                   "Ethernet1: no longer ready: no frames\n"
                   "reloaded: 1 change; no longer ready: 1 interface\n" );
   EXPECT_EQ( run( { "reload", "--json" } ), Exit::notReady );
   EXPECT_EQ( Json::parse( out ), answer );
   EXPECT_EQ( err, "" );
   EXPECT_EQ( run( { "reload", "--allow-not-ready" } ), Exit::done );
   EXPECT_THAT( err, HasSubstr( "Ethernet1: no longer ready: no frames\n" ) );
}

TEST_F( ConfigCommandsTest, AReloadThatIsRejectedPrintsAllErrors ) {
   Json const parameters{ { "message", "configuration rejected" },
                          { "errors", { "f:1:1: a", "f:2:1: b" } } };
   daemon.rejects( "Reload", "ConfigRefused", parameters );
   EXPECT_EQ( run( { "reload" } ), Exit::failed );
   EXPECT_EQ( out, "" );
   EXPECT_EQ( err, "f:1:1: a\nf:2:1: b\nvalenctl: configuration rejected\n" );
   EXPECT_EQ( run( { "reload", "--json" } ), Exit::failed );
   EXPECT_EQ( Json::parse( out ), ( Json{ { "error", "org.valen.daemon.ConfigRefused" },
                                          { "parameters", parameters } } ) );
   EXPECT_EQ( err, "valenctl: configuration rejected\n" );
}

TEST_F( ConfigCommandsTest, AReloadThatIsNotPermittedHasNoErrorsToPrint ) {
   daemon.rejects( "Reload", "PermissionDenied", { { "message", "permission denied" } } );
   EXPECT_EQ( run( { "reload" } ), Exit::failed );
   EXPECT_EQ( out, "" );
   EXPECT_EQ( err, "valenctl: permission denied\n" );
}

TEST_F( ConfigCommandsTest, AFrameThatIsProbablyWrongIsAWarning ) {
   EXPECT_EQ(
      check( "interfaces: [{name: et1}]\n"
             "agents: [{name: lldp, messages: {et1: "
             "[0180c200000e02000000000188cc02070402000000000104050565746831060200780000]}}]\n" ),
      Exit::done );
   EXPECT_THAT( err, HasSubstr( "valen.yaml:2:40: the frame is probably wrong: lldp, chassis "
                                "02:00:00:00:00:01, port eth1: says ttl 120; not a goodbye\n" ) );
   EXPECT_THAT( out, HasSubstr( ": OK, 1 interface" ) );
}

} // namespace
} // namespace Valenctl::Test
