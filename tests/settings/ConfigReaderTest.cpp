#include "settings/ConfigReader.h"

#include "platform/trace/Trace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>

namespace Settings {
namespace {

using ::testing::ElementsAre;

std::string const frame = "0180c200000e02000000000188cc";

std::vector< std::string > errorsOf( std::string const & text ) {
   std::vector< std::string > messages;
   for ( auto const & error : parseConfig( text, "f" ).errors ) {
      messages.push_back( error.message() );
   }
   return messages;
}

TEST( ConfigReaderTest, AWholeConfigurationIsRead ) {
   auto const result = parseConfig( R"(
shutdown-delay-ms: 1500
vrfs:
  - {name: red, namespace: ns-red}
interfaces:
  - name: Ethernet1
  - {name: Ethernet3/1, device: et31, vrf: red, shutdown-delay: false}
  - {name: Ethernet2, vrf: default}
agents:
  - name: lldp
    messages:
      Ethernet1: [ 0180c200000e02000000000188cc, "01:80:c2:00:00:0e 020000000001 88cc 01" ]
      Ethernet3/1:
        - |
          0180c200000e
          020000000001 88cc
  - name: idle
socket: /tmp/s
netns-folder: /tmp/ns
state-directory: /tmp/state
metrics-file: /tmp/valen.prom
trace: {levels: ConfigSm/0, file: /tmp/f, ring: /tmp/r}
)",
                                    "f" );
   EXPECT_THAT( result.errors, ElementsAre() );
   auto const & config = result.config;
   EXPECT_EQ( config.shutdownDelayMs, 1500 );
   EXPECT_EQ( config.vrfs, ( std::map< std::string, std::string >{ { "red", "ns-red" } } ) );
   ASSERT_EQ( config.interfaces.size(), 3u );
   EXPECT_EQ( config.interfaces.at( "Ethernet1" ),
              ( InterfaceConfig{ "Ethernet1", "Ethernet1", "default", true } ) );
   EXPECT_EQ( config.interfaces.at( "Ethernet3/1" ),
              ( InterfaceConfig{ "Ethernet3/1", "et31", "red", false } ) );
   ASSERT_EQ( config.agents.size(), 2u );
   auto const & lldp = config.agents.at( "lldp" );
   ASSERT_EQ( lldp.at( "Ethernet1" ).size(), 2u );
   EXPECT_EQ( lldp.at( "Ethernet1" )[ 1 ].size(), 15u );
   EXPECT_EQ( lldp.at( "Ethernet3/1" )[ 0 ].size(), 14u );
   EXPECT_TRUE( config.agents.at( "idle" ).empty() );
   EXPECT_EQ( config.process, ( ProcessConfig{ "/tmp/s", "/tmp/ns", "ConfigSm/0", "/tmp/f",
                                               "/tmp/r", "/tmp/state", "/tmp/valen.prom" } ) );
   EXPECT_TRUE( config.hasFrames( "Ethernet1" ) );
   EXPECT_FALSE( config.hasFrames( "Ethernet2" ) );
   EXPECT_EQ( config.netNsOf( "red" ), "ns-red" );
   EXPECT_EQ( config.netNsOf( "default" ), "default" );
}

TEST( ConfigReaderTest, AnEmptyFileIsInOrderAndSwitchesTheFeatureOff ) {
   for ( auto const * text : { "", "# nothing\n", "---\n", "{}" } ) {
      auto const result = parseConfig( text, "f" );
      EXPECT_TRUE( result.errors.empty() ) << text;
      EXPECT_EQ( result.config, Config() ) << text;
   }
}

TEST( ConfigReaderTest, EverythingThatIsWrongIsListedAtOnceInOrderOfPlace ) {
   EXPECT_THAT(
      errorsOf( R"(agents:
  - name: lldp
    messages:
      Ethernet9: [0180c200000e02000000000188cc]
      Ethernet1: [0180, zz]
interfaces:
  - {name: Ethernet1, vrf: blue}
shutdown-delay-ms: 65536
colour: blue
)" ),
      ElementsAre( "f:4:7: unknown interface \"Ethernet9\"; expected one of \"interfaces\"",
                   "f:5:19: frame of 2 bytes; expected at least 14, an Ethernet header",
                   "f:5:25: \"z\" at character 1 of the frame; expected hexadecimal digits",
                   "f:7:28: unknown VRF \"blue\"; expected \"default\" or one of \"vrfs\"",
                   "f:8:20: shutdown-delay-ms is \"65536\"; expected milliseconds from 0 to 65535",
                   "f:9:1: unknown key \"colour\" in the configuration; expected "
                   "\"shutdown-delay-ms\", \"vrfs\", \"interfaces\", \"agents\", \"socket\", "
                   "\"netns-folder\", \"state-directory\", \"metrics-file\" or \"trace\"" ) );
}

TEST( ConfigReaderTest, TheDelayIsMillisecondsInSixteenBits ) {
   EXPECT_EQ( parseConfig( "shutdown-delay-ms: 0", "f" ).config.shutdownDelayMs, 0 );
   EXPECT_EQ( parseConfig( "shutdown-delay-ms: 65535", "f" ).config.shutdownDelayMs, 65535 );
   for ( std::string const bad : { "-1", "1.5", "x", "5s", "99999999999", "\"\"" } ) {
      auto const shown = bad == "\"\"" ? "" : bad;
      EXPECT_THAT( errorsOf( "shutdown-delay-ms: " + bad ),
                   ElementsAre( "f:1:20: shutdown-delay-ms is \"" + shown +
                                "\"; expected milliseconds from 0 to 65535" ) );
   }
   EXPECT_THAT( errorsOf( "shutdown-delay-ms: [1]" ),
                ElementsAre( "f:1:20: shutdown-delay-ms is no single value; expected one" ) );
}

TEST( ConfigReaderTest, UnknownKeysAreErrorsInEveryMapping ) {
   EXPECT_THAT( errorsOf( "vrfs: [{name: a, namespace: b, x: 1}]" ),
                ElementsAre( "f:1:32: unknown key \"x\" in a VRF; expected \"name\" or "
                             "\"namespace\"" ) );
   EXPECT_THAT( errorsOf( "interfaces: [{name: a, x: 1}]" ),
                ElementsAre( "f:1:24: unknown key \"x\" in an interface; expected \"name\", "
                             "\"device\", \"vrf\" or \"shutdown-delay\"" ) );
   EXPECT_THAT( errorsOf( "agents: [{name: a, x: 1}]" ),
                ElementsAre( "f:1:20: unknown key \"x\" in an agent; expected \"name\" or "
                             "\"messages\"" ) );
   EXPECT_THAT( errorsOf( "trace: {x: 1}" ),
                ElementsAre( "f:1:9: unknown key \"x\" in trace; expected \"levels\", \"file\" or "
                             "\"ring\"" ) );
}

TEST( ConfigReaderTest, NamesThatStandTwiceAreErrors ) {
   EXPECT_THAT( errorsOf( "shutdown-delay-ms: 1\nshutdown-delay-ms: 2" ),
                ElementsAre( "f:2:1: key \"shutdown-delay-ms\" again in the configuration; "
                             "expected each key once" ) );
   EXPECT_THAT( errorsOf( "vrfs: [{name: a, namespace: b}, {name: a, namespace: c}]" ),
                ElementsAre( "f:1:40: VRF \"a\" again, after f:1:15; expected it once" ) );
   EXPECT_THAT( errorsOf( "interfaces: [{name: a}, {name: a, device: b}]" ),
                ElementsAre( "f:1:32: interface \"a\" again, after f:1:21; expected it once" ) );
   EXPECT_THAT( errorsOf( "agents: [{name: a}, {name: a}]" ),
                ElementsAre( "f:1:28: agent \"a\" again, after f:1:17; expected it once" ) );
   EXPECT_THAT( errorsOf( "interfaces: [{name: a}]\nagents: [{name: b, messages: {a: [" + frame +
                          "], a: [" + frame + "]}}]" ),
                ElementsAre( "f:2:66: key \"a\" again in messages; expected each key once" ) );
}

TEST( ConfigReaderTest, TwoVrfsNeverShareANamespace ) {
   EXPECT_THAT( errorsOf( "vrfs: [{name: a, namespace: n}, {name: b, namespace: n}]" ),
                ElementsAre( "f:1:54: namespace \"n\" is VRF \"a\"'s already, at f:1:15; "
                             "expected one of its own for each VRF" ) );
   EXPECT_THAT( errorsOf( "vrfs: [{name: a, namespace: default}]" ),
                ElementsAre( "f:1:29: namespace \"default\" stands for the agent's own, which is "
                             "VRF \"default\"; expected another" ) );
   EXPECT_THAT( errorsOf( "vrfs: [{name: default, namespace: n}]" ),
                ElementsAre( "f:1:15: VRF \"default\" is the agent's own namespace and has no "
                             "entry; expected another name" ) );
   EXPECT_THAT( errorsOf( "vrfs: [{name: a, namespace: ../b}]" ),
                ElementsAre( "f:1:29: namespace \"../b\"; expected a name as in \"ip netns add "
                             "NAME\"" ) );
}

TEST( ConfigReaderTest, ADeviceCarriesOneInterface ) {
   EXPECT_THAT( errorsOf( "interfaces: [{name: a, device: et1}, {name: b, device: et1}]" ),
                ElementsAre( "f:1:56: device \"et1\" in VRF \"default\" is interface \"a\"'s "
                             "already, at f:1:21; expected one of its own for each interface" ) );
   EXPECT_THAT( errorsOf( "interfaces: [{name: et1}, {name: b, device: et1}]" ),
                ElementsAre( "f:1:45: device \"et1\" in VRF \"default\" is interface \"et1\"'s "
                             "already, at f:1:21; expected one of its own for each interface" ) );
   EXPECT_THAT(
      errorsOf( "vrfs: [{name: red, namespace: n}]\n"
                "interfaces: [{name: a, device: et1}, {name: b, device: et1, vrf: red}]" ),
      ElementsAre() )
      << "the same name in two namespaces is two devices";
}

TEST( ConfigReaderTest, NamesAreHeldToTheirLengths ) {
   auto const text = []( std::size_t length ) { return std::string( length, 'x' ); };
   auto const vrf = [ & ]( std::size_t name, std::size_t netNs ) {
      return errorsOf( "vrfs: [{name: " + text( name ) + ", namespace: " + text( netNs ) + "}]" );
   };
   EXPECT_THAT( vrf( 100, 150 ), ElementsAre() );
   EXPECT_THAT( vrf( 101, 1 ), ElementsAre( "f:1:15: VRF name of 101 bytes; expected 1 to 100" ) );
   EXPECT_THAT( vrf( 1, 151 ),
                ElementsAre( "f:1:29: namespace name of 151 bytes; expected 1 to 150" ) );
   EXPECT_THAT( errorsOf( "interfaces: [{name: a, device: " + text( 15 ) + "}]" ), ElementsAre() );
   EXPECT_THAT( errorsOf( "interfaces: [{name: a, device: " + text( 16 ) + "}]" ),
                ElementsAre( "f:1:32: device \"xxxxxxxxxxxxxxxx\" of interface \"a\"; expected a "
                             "device name of 1 to 15 bytes without blanks, \"/\" and \":\"" ) );
   EXPECT_THAT( errorsOf( "interfaces: [{name: Ethernet3/1}]" ),
                ElementsAre( "f:1:21: device \"Ethernet3/1\" of interface \"Ethernet3/1\"; "
                             "expected a device name of 1 to 15 bytes without blanks, \"/\" and "
                             "\":\"" ) );
   EXPECT_THAT( errorsOf( "interfaces: [{name: " + text( 256 ) + ", device: a}]" ),
                ElementsAre( "f:1:21: interface name of 256 bytes; expected 1 to 255" ) );
   EXPECT_THAT( errorsOf( "agents: [{name: " + text( 256 ) + "}]" ),
                ElementsAre( "f:1:17: agent name of 256 bytes; expected 1 to 255" ) );
   EXPECT_THAT( errorsOf( "agents: [{name: \"\"}]" ),
                ElementsAre( "f:1:17: agent name of 0 bytes; expected 1 to 255" ) );
   EXPECT_THAT( errorsOf( "agents: [{name: \"a\\tb\"}]" ),
                ElementsAre( "f:1:17: agent name with a control character; expected printable "
                             "text" ) );
}

TEST( ConfigReaderTest, WhatMustBeThereIsAskedFor ) {
   EXPECT_THAT( errorsOf( "vrfs: [{name: a}]" ),
                ElementsAre( "f:1:8: namespace without a name; expected one" ) );
   EXPECT_THAT( errorsOf( "vrfs: [{namespace: a}]" ),
                ElementsAre( "f:1:8: VRF without a name; expected one" ) );
   EXPECT_THAT( errorsOf( "interfaces: [{device: a}]" ),
                ElementsAre( "f:1:14: interface without a name; expected one" ) );
   EXPECT_THAT( errorsOf( "agents: [{messages: {}}]" ),
                ElementsAre( "f:1:10: agent without a name; expected one" ) );
}

TEST( ConfigReaderTest, AListOfFramesIsNeverEmpty ) {
   auto const prefix = std::string( "interfaces: [{name: a}]\nagents: [{name: b, messages: " );
   EXPECT_THAT( errorsOf( prefix + "{a: []}}]" ),
                ElementsAre( "f:2:34: no frames for interface \"a\"; expected a list of one or "
                             "more" ) );
   EXPECT_THAT( errorsOf( prefix + "{a: }}]" ),
                ElementsAre( "f:2:31: no frames for interface \"a\"; expected a list of one or "
                             "more" ) );
   EXPECT_THAT( errorsOf( prefix + "{a: " + frame + "}}]" ),
                ElementsAre( "f:2:34: no frames for interface \"a\"; expected a list of one or "
                             "more" ) );
   EXPECT_THAT( errorsOf( prefix + "{a: [[1]]}}]" ),
                ElementsAre( "f:2:35: a frame that is no text; expected hexadecimal digits, "
                             "\"base64:\", \"pcap:\" or \"pcapng:\"" ) );
   EXPECT_THAT( errorsOf( prefix + "[a]}]" ),
                ElementsAre( "f:2:30: messages is no mapping; expected \"key: value\" lines" ) );
}

TEST( ConfigReaderTest, ShapesThatAreWrongAreSaidSo ) {
   EXPECT_THAT( errorsOf( "hello" ), ElementsAre( "f:1:1: the configuration is no mapping; "
                                                  "expected \"key: value\" lines" ) );
   EXPECT_THAT( errorsOf( "vrfs: 5" ),
                ElementsAre( "f:1:7: vrfs is no list; expected \"- \" lines" ) );
   EXPECT_THAT( errorsOf( "vrfs: [5]" ),
                ElementsAre( "f:1:8: a VRF is no mapping; expected \"key: value\" lines" ) );
   EXPECT_THAT( errorsOf( "[a]: 5" ),
                ElementsAre( "f:1:1: a key in the configuration that is no text; expected a "
                             "name" ) );
   EXPECT_THAT( errorsOf( "interfaces: [{name: a, shutdown-delay: yes}]" ),
                ElementsAre( "f:1:40: shutdown-delay is \"yes\"; expected true or false" ) );
   EXPECT_THAT( errorsOf( "interfaces: [{name: a, shutdown-delay: []}, {name: {}}]" ),
                ElementsAre( "f:1:40: shutdown-delay is no single value; expected one",
                             "f:1:52: interface is no single value; expected one" ) );
   EXPECT_THAT( errorsOf( "trace: {file: [], ring: ~}" ),
                ElementsAre( "f:1:15: trace.file is no single value; expected one" ) );
   EXPECT_THAT( errorsOf( "{}\n---\n{}" ),
                ElementsAre( "f:3:1: a second document; expected one" ) );
}

TEST( ConfigReaderTest, ATextThatTheParserStandsStillAtComesToAnEnd ) {
   EXPECT_THAT( errorsOf( "," ), ElementsAre( "f:1:1: not YAML: nothing begins like this" ) );
   EXPECT_THAT( errorsOf( "# no key\n  ,a\n" ),
                ElementsAre( "f:2:3: not YAML: nothing begins like this" ) );
   EXPECT_THAT( errorsOf( "{},\n" ), ElementsAre( "f:1:3: a second document; expected one" ) );
}

TEST( ConfigReaderTest, WhatIsNoYamlIsPlaced ) {
   EXPECT_THAT( errorsOf( "vrfs:\n  - {name: a\n" ),
                ElementsAre( ::testing::MatchesRegex( "f:3:1: not YAML: .+" ) ) );
}

TEST( ConfigReaderTest, ProcessSettingsAreChecked ) {
   EXPECT_THAT( errorsOf( "socket: " + std::string( 108, 's' ) ),
                ElementsAre( "f:1:9: socket of 108 bytes; expected a path of 1 to 107 bytes" ) );
   EXPECT_THAT( errorsOf( "netns-folder: here" ),
                ElementsAre( "f:1:15: netns-folder is \"here\"; expected an absolute path" ) );
   auto const inForce = Quill::traceLevels();
   EXPECT_THAT( errorsOf( "trace: {levels: ConfigSm}" ),
                ElementsAre( "f:1:17: trace pattern \"ConfigSm\" is not NAME/LEVEL or "
                             "NAME/FIRST-LAST with levels 0 to 9" ) );
   EXPECT_THAT( errorsOf( "trace: {levels: ConfigSm/0}" ), ElementsAre() );
   EXPECT_EQ( Quill::traceLevels(), inForce ) << "checking levels must not set them";
}

TEST( ConfigReaderTest, MessagesStayOnOneLine ) {
   EXPECT_THAT( errorsOf( "interfaces: [{name: a, vrf: \"b\\nc\"}]" ),
                ElementsAre( "f:1:29: unknown VRF \"b c\"; expected \"default\" or one of "
                             "\"vrfs\"" ) );
}

TEST( ConfigReaderTest, AFileThatCannotBeReadIsRefused ) {
   auto const missing = readConfig( "/does/not/exist.yaml" );
   ASSERT_EQ( missing.errors.size(), 1u );
   EXPECT_EQ( missing.errors.front().message(),
              "/does/not/exist.yaml: cannot be opened; expected a readable file" );
   auto const folder = readConfig( "/" );
   ASSERT_EQ( folder.errors.size(), 1u );
   EXPECT_EQ( folder.errors.front().message(), "/: cannot be read; expected a readable file" );
}

TEST( ConfigReaderTest, AFileIsReadAsItsText ) {
   auto const path = ::testing::TempDir() + "valen-config-test.yaml";
   std::ofstream( path ) << "shutdown-delay-ms: 7\n";
   auto const result = readConfig( path );
   std::remove( path.c_str() );
   EXPECT_TRUE( result.errors.empty() );
   EXPECT_EQ( result.config.shutdownDelayMs, 7 );
}

} // namespace
} // namespace Settings
