#include "settings/ConfigReader.h"

#include "platform/trace/Trace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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
goodbyes: learned
vrfs:
  - {name: red, namespace: ns-red}
interfaces:
  - name: Ethernet1
  - {name: Ethernet3/1, device: et31, vrf: red, shutdown-delay: false}
  - {name: Ethernet2, vrf: default, goodbyes: [vrrp, lldp]}
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
netns-directory: /tmp/ns
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
   EXPECT_EQ( config.interfaces.at( "Ethernet2" ),
              ( InterfaceConfig{ "Ethernet2", "Ethernet2", "default", true,
                                 Goodbyes::of( { "lldp", "vrrp" } ) } ) );
   EXPECT_EQ( config.goodbyes, Goodbyes::learned() );
   ASSERT_EQ( config.agents.size(), 2u );
   auto const & lldp = config.agents.at( "lldp" );
   ASSERT_EQ( lldp.at( "Ethernet1" ).size(), 2u );
   EXPECT_EQ( lldp.at( "Ethernet1" )[ 1 ].size(), 15u );
   EXPECT_EQ( lldp.at( "Ethernet3/1" )[ 0 ].size(), 14u );
   EXPECT_TRUE( config.agents.at( "idle" ).empty() );
   EXPECT_EQ( config.process.given( "socket" ), "/tmp/s" );
   EXPECT_EQ( config.process.given( "netns-directory" ), "/tmp/ns" );
   EXPECT_EQ( config.process.given( "state-directory" ), "/tmp/state" );
   EXPECT_EQ( config.process.given( "metrics-file" ), "/tmp/valen.prom" );
   EXPECT_EQ( config.process.given( "trace.levels" ), "ConfigSm/0" );
   EXPECT_EQ( config.process.given( "trace.file" ), "/tmp/f" );
   EXPECT_EQ( config.process.given( "trace.ring" ), "/tmp/r" );
   EXPECT_TRUE( config.hasFrames( "Ethernet1" ) );
   EXPECT_FALSE( config.hasFrames( "Ethernet2" ) );
   EXPECT_EQ( config.netNsOf( "red" ), "ns-red" );
   EXPECT_EQ( config.netNsOf( "default" ), "default" );
}

TEST( ConfigReaderTest, AnEmptyFileIsValidAndDisablesTheDelay ) {
   for ( auto const * text : { "", "# nothing\n", "---\n", "{}" } ) {
      auto const result = parseConfig( text, "f" );
      EXPECT_TRUE( result.errors.empty() ) << text;
      EXPECT_EQ( result.config, Config() ) << text;
   }
}

TEST( ConfigReaderTest, AllErrorsAreListedInOrderOfPlace ) {
   EXPECT_THAT(
      errorsOf( R"(agents:
  - name: lldp
    messages:
      Ethernet9: [0180c200000e02000000000188cc]
      Ethernet1: [0180, zz]
interfaces:
  - {name: Ethernet1, vrf: blue}
shutdown-delay-ms: 65536
color: blue
)" ),
      ElementsAre(
         "f:4:7: unknown interface \"Ethernet9\"; expected one of \"interfaces\"",
         "f:5:19: frame of 2 bytes; expected at least 14, an Ethernet header",
         "f:5:25: \"z\" at character 1 of the frame; expected hexadecimal digits",
         "f:7:28: unknown VRF \"blue\"; expected \"default\" or one of \"vrfs\"",
         "f:8:20: shutdown-delay-ms is \"65536\"; expected milliseconds from 0 to 65535",
         "f:9:1: unknown key \"color\" in the configuration; expected "
         "\"shutdown-delay-ms\", \"goodbyes\", \"vrfs\", \"interfaces\", \"agents\", \"socket\", "
         "\"netns-directory\", \"state-directory\", \"max-shutdown-delay-ms\", "
         "\"metrics-file\", \"trace\" or \"database\"" ) );
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
                ElementsAre( "f:1:20: shutdown-delay-ms must be a single value" ) );
}

std::string const noGoodbyes = "; expected learned, off or a list of protocols, such as [lldp, ra]";

TEST( ConfigReaderTest, GoodbyesAreAllNoneOrAListOfProtocols ) {
   auto const goodbyes = []( std::string const & text ) {
      auto const result = parseConfig( "goodbyes: " + text, "f" );
      EXPECT_TRUE( result.errors.empty() ) << text;
      return result.config.goodbyes;
   };
   EXPECT_EQ( goodbyes( "learned" ), Goodbyes::learned() );
   EXPECT_EQ( goodbyes( "off" ), Goodbyes() );
   EXPECT_EQ( goodbyes( "[ra, lldp]" ), Goodbyes::of( { "lldp", "ra" } ) );
   std::string all;
   for ( auto const protocol : goodbyeProtocols ) {
      all += ( all.empty() ? "" : ", " ) + std::string( protocol );
   }
   auto const every = goodbyes( "[" + all + "]" );
   for ( auto const protocol : goodbyeProtocols ) {
      EXPECT_TRUE( every.has( std::string( protocol ) ) ) << protocol;
      EXPECT_TRUE( Goodbyes::learned().has( std::string( protocol ) ) ) << protocol;
      EXPECT_FALSE( Goodbyes().has( std::string( protocol ) ) ) << protocol;
   }
   EXPECT_TRUE( goodbyes( "[lldp]" ).any() && Goodbyes::learned().any() && !Goodbyes().any() );
   EXPECT_FALSE( goodbyes( "[lldp]" ).has( "ra" ) );
}

TEST( ConfigReaderTest, TheGoodbyesOfAnInterfaceOverrideThoseOfAll ) {
   auto const config = parseConfig( "interfaces: [{name: a}, {name: b, goodbyes: off}, "
                                    "{name: c, goodbyes: [lldp]}]\ngoodbyes: learned",
                                    "f" )
                          .config;
   EXPECT_EQ( config.goodbyesOf( "a" ), Goodbyes::learned() );
   EXPECT_EQ( config.goodbyesOf( "b" ), Goodbyes() );
   EXPECT_EQ( config.goodbyesOf( "c" ), Goodbyes::of( { "lldp" } ) );
   EXPECT_EQ( config.goodbyesOf( "d" ), Goodbyes() ) << "it is not configured";
   EXPECT_EQ( config.interfaces.at( "a" ).goodbyes, std::nullopt );
}

TEST( ConfigReaderTest, GoodbyesOfAnotherShapeAreErrors ) {
   for ( std::string const bad : { "lldp", "on", "true", "Learned", "OFF", "\"\"" } ) {
      auto const shown = bad == "\"\"" ? "" : bad;
      EXPECT_THAT( errorsOf( "goodbyes: " + bad ),
                   ElementsAre( "f:1:11: goodbyes is \"" + shown + "\"" + noGoodbyes ) );
   }
   EXPECT_THAT( errorsOf( "goodbyes: false" ),
                ElementsAre( "f:1:11: goodbyes is \"false\"; write off instead" ) );
   EXPECT_THAT( errorsOf( "goodbyes: ~" ), ElementsAre( "f:1:11: goodbyes is \"\"" + noGoodbyes ) );
   EXPECT_THAT( errorsOf( "goodbyes: {lldp: learned}" ),
                ElementsAre( "f:1:11: goodbyes is a mapping" + noGoodbyes ) );
   EXPECT_THAT( errorsOf( "interfaces: [{name: a, goodbyes: [lldp, ra}" ).size(), 1u );
   EXPECT_THAT( errorsOf( "interfaces: [{name: a, goodbyes: no}]" ),
                ElementsAre( "f:1:34: goodbyes is \"no\"" + noGoodbyes ) );
}

TEST( ConfigReaderTest, EachProtocolOfAListOfGoodbyesIsChecked ) {
   std::string const expected =
      "; expected \"lldp\", \"ra\", \"vrrp\", \"ospf\", \"ospfv3\", \"bfd\", \"pim\", \"lacp\", "
      "\"rip\", \"ripng\", \"isis\", \"eigrp\", \"mdns\", \"igmp\", \"mld\", \"cdp\", \"hsrp\" or "
      "\"oam\"";
   EXPECT_THAT( errorsOf( "goodbyes: [lldp, LLDP, [ra], off, ra, lldp, ~]" ),
                ElementsAre( "f:1:18: unknown protocol \"LLDP\"" + expected,
                             "f:1:24: a protocol of goodbyes must be a single value",
                             "f:1:30: unknown protocol \"off\"" + expected,
                             "f:1:39: duplicate protocol \"lldp\" (first defined at f:1:12)",
                             "f:1:45: unknown protocol \"\"" + expected ) );
   EXPECT_THAT( errorsOf( "goodbyes: []" ),
                ElementsAre( "f:1:11: goodbyes has 0 protocols; expected 1 to 18, or off" ) );
   EXPECT_THAT(
      errorsOf( "interfaces:\n- name: a\n  goodbyes: [a, a, a, a, a, a, a, a, a, a, a, a, "
                "a, a, a, a, a, a, a]" ),
      ElementsAre( "f:3:13: goodbyes has 19 protocols; expected 1 to 18, or off" ) );
}

TEST( ConfigReaderTest, NamesOfAgentsThatBeginAsThoseOfLearnedGoodbyesAreReserved ) {
   EXPECT_THAT(
      errorsOf( "agents: [{name: learned-lldp}, {name: learned}, {name: unlearned-x}]" ),
      ElementsAre( "f:1:17: agent \"learned-lldp\": names that begin with \"learned-\" are "
                   "reserved for what valend learns; use another name" ) );
}

TEST( ConfigReaderTest, UnknownKeysAreErrorsInEveryMapping ) {
   EXPECT_THAT( errorsOf( "vrfs: [{name: a, namespace: b, x: 1}]" ),
                ElementsAre( "f:1:32: unknown key \"x\" in a VRF; expected \"name\" or "
                             "\"namespace\"" ) );
   EXPECT_THAT( errorsOf( "interfaces: [{name: a, x: 1}]" ),
                ElementsAre( "f:1:24: unknown key \"x\" in an interface; expected \"name\", "
                             "\"device\", \"vrf\", \"shutdown-delay\" or \"goodbyes\"" ) );
   EXPECT_THAT( errorsOf( "agents: [{name: a, x: 1}]" ),
                ElementsAre( "f:1:20: unknown key \"x\" in an agent; expected \"name\" or "
                             "\"messages\"" ) );
   EXPECT_THAT( errorsOf( "trace: {x: 1}" ),
                ElementsAre( "f:1:9: unknown key \"x\" in trace; expected \"levels\", \"file\" or "
                             "\"ring\"" ) );
}

TEST( ConfigReaderTest, DuplicateNamesAreErrors ) {
   EXPECT_THAT( errorsOf( "shutdown-delay-ms: 1\nshutdown-delay-ms: 2" ),
                ElementsAre( "f:2:1: duplicate key \"shutdown-delay-ms\" in the configuration "
                             "(first defined at f:1:1)" ) );
   EXPECT_THAT( errorsOf( "vrfs: [{name: a, namespace: b}, {name: a, namespace: c}]" ),
                ElementsAre( "f:1:40: duplicate VRF \"a\" (first defined at f:1:15)" ) );
   EXPECT_THAT( errorsOf( "interfaces: [{name: a}, {name: a, device: b}]" ),
                ElementsAre( "f:1:32: duplicate interface \"a\" (first defined at f:1:21)" ) );
   EXPECT_THAT( errorsOf( "agents: [{name: a}, {name: a}]" ),
                ElementsAre( "f:1:28: duplicate agent \"a\" (first defined at f:1:17)" ) );
   EXPECT_THAT(
      errorsOf( "interfaces: [{name: a}]\nagents: [{name: b, messages: {a: [" + frame + "], a: [" +
                frame + "]}}]" ),
      ElementsAre( "f:2:66: duplicate key \"a\" in messages (first defined at f:2:31)" ) );
}

TEST( ConfigReaderTest, TwoVrfsNeverShareANamespace ) {
   EXPECT_THAT( errorsOf( "vrfs: [{name: a, namespace: n}, {name: b, namespace: n}]" ),
                ElementsAre( "f:1:54: namespace \"n\" is already used by VRF \"a\" (f:1:15); "
                             "each VRF needs its own" ) );
   EXPECT_THAT( errorsOf( "vrfs: [{name: a, namespace: default}]" ),
                ElementsAre( "f:1:29: namespace \"default\" is reserved for VRF \"default\", the "
                             "network namespace of valend; use another name" ) );
   EXPECT_THAT( errorsOf( "vrfs: [{name: default, namespace: n}]" ),
                ElementsAre( "f:1:15: VRF \"default\" always exists, as the network namespace of "
                             "valend; use another name" ) );
   EXPECT_THAT( errorsOf( "vrfs: [{name: a, namespace: ../b}]" ),
                ElementsAre( "f:1:29: namespace \"../b\" is not a valid name; expected a name as "
                             "in \"ip netns add NAME\"" ) );
}

TEST( ConfigReaderTest, ADeviceCarriesOneInterface ) {
   EXPECT_THAT(
      errorsOf( "interfaces: [{name: a, device: et1}, {name: b, device: et1}]" ),
      ElementsAre( "f:1:56: device \"et1\" in VRF \"default\" is already used by interface "
                   "\"a\" (f:1:21); each interface needs its own" ) );
   EXPECT_THAT(
      errorsOf( "interfaces: [{name: et1}, {name: b, device: et1}]" ),
      ElementsAre( "f:1:45: device \"et1\" in VRF \"default\" is already used by interface "
                   "\"et1\" (f:1:21); each interface needs its own" ) );
   EXPECT_THAT(
      errorsOf( "vrfs: [{name: red, namespace: n}]\n"
                "interfaces: [{name: a, device: et1}, {name: b, device: et1, vrf: red}]" ),
      ElementsAre() )
      << "the same name in two namespaces is two devices";
}

TEST( ConfigReaderTest, NamesHaveALimitedLength ) {
   auto const text = []( std::size_t length ) { return std::string( length, 'x' ); };
   auto const vrf = [ & ]( std::size_t name, std::size_t netNs ) {
      return errorsOf( "vrfs: [{name: " + text( name ) + ", namespace: " + text( netNs ) + "}]" );
   };
   EXPECT_THAT( vrf( 100, 150 ), ElementsAre() );
   EXPECT_THAT( vrf( 101, 1 ), ElementsAre( "f:1:15: VRF name has 101 bytes; expected 1 to 100" ) );
   EXPECT_THAT( vrf( 1, 151 ),
                ElementsAre( "f:1:29: VRF namespace has 151 bytes; expected 1 to 150" ) );
   EXPECT_THAT( errorsOf( "interfaces: [{name: a, device: " + text( 15 ) + "}]" ), ElementsAre() );
   EXPECT_THAT(
      errorsOf( "interfaces: [{name: a, device: " + text( 16 ) + "}]" ),
      ElementsAre( "f:1:32: device \"xxxxxxxxxxxxxxxx\" of interface \"a\" is not a valid "
                   "name; expected 1 to 15 bytes without whitespace, \"/\" or \":\"" ) );
   EXPECT_THAT( errorsOf( "interfaces: [{name: Ethernet3/1}]" ),
                ElementsAre( "f:1:21: device \"Ethernet3/1\" of interface \"Ethernet3/1\" is not a "
                             "valid name; expected 1 to 15 bytes without whitespace, \"/\" or "
                             "\":\"" ) );
   EXPECT_THAT( errorsOf( "interfaces: [{name: " + text( 256 ) + ", device: a}]" ),
                ElementsAre( "f:1:21: interface name has 256 bytes; expected 1 to 255" ) );
   EXPECT_THAT( errorsOf( "agents: [{name: " + text( 256 ) + "}]" ),
                ElementsAre( "f:1:17: agent name has 256 bytes; expected 1 to 255" ) );
   EXPECT_THAT( errorsOf( "agents: [{name: \"\"}]" ),
                ElementsAre( "f:1:17: agent name has 0 bytes; expected 1 to 255" ) );
   EXPECT_THAT( errorsOf( "agents: [{name: \"a\\tb\"}]" ),
                ElementsAre( "f:1:17: agent name is not printable text: character 2 is U+0009" ) );
   EXPECT_THAT( errorsOf( "agents: [{name: \"a\\x85b\"}]" ),
                ElementsAre( "f:1:17: agent name is not printable text: character 2 is U+0085" ) );
   EXPECT_THAT(
      errorsOf( "interfaces: [{name: \"a\\e[1m\", device: a}]" ),
      ElementsAre( "f:1:21: interface name is not printable text: character 2 is U+001B" ) );
   EXPECT_THAT( errorsOf( "vrfs: [{name: \"a\\u202e\", namespace: \"b\\u2028\"}]" ),
                ElementsAre( "f:1:15: VRF name is not printable text: character 2 is U+202E",
                             "f:1:37: VRF namespace is not printable text: character 2 is "
                             "U+2028" ) );
   EXPECT_THAT( errorsOf( "interfaces: [{name: a, device: \"e\\x9b1\"}]" ),
                ElementsAre( "f:1:32: device of interface \"a\" is not printable text: character 2 "
                             "is U+009B" ) );
}

// As they are in the file, not as escapes.
TEST( ConfigReaderTest, BytesThatAreNotTextAreErrorsWithTheirPlace ) {
   auto const error = []( std::string const & bytes ) {
      return errorsOf( "# one\ninterfaces:\n- {name: \"a" + bytes + "b\", device: a}" );
   };
   auto const place =
      std::string( "f:3:10: interface name is not printable text: character 2 is " );
   EXPECT_THAT( error( "\x1b" ), ElementsAre( place + "U+001B" ) );
   EXPECT_THAT( error( "\x7f" ), ElementsAre( place + "U+007F" ) );
   EXPECT_THAT( error( "\xff" ), ElementsAre( place + "the byte 0xff, which is not UTF-8" ) );
   EXPECT_THAT( error( "\xc3" ), ElementsAre( place + "the byte 0xc3, which is not UTF-8" ) );
   EXPECT_THAT( error( std::string( 1, '\0' ) ), ElementsAre( place + "U+0000" ) );
   EXPECT_THAT( error( "\x04" ), ElementsAre( place + "U+0004" ) );
}

TEST( ConfigReaderTest, MissingNamesAreErrors ) {
   EXPECT_THAT( errorsOf( "vrfs: [{name: a}]" ), ElementsAre( "f:1:8: VRF has no \"namespace\"" ) );
   EXPECT_THAT( errorsOf( "vrfs: [{namespace: a}]" ), ElementsAre( "f:1:8: VRF has no \"name\"" ) );
   EXPECT_THAT( errorsOf( "interfaces: [{device: a}]" ),
                ElementsAre( "f:1:14: interface has no \"name\"" ) );
   EXPECT_THAT( errorsOf( "agents: [{messages: {}}]" ),
                ElementsAre( "f:1:10: agent has no \"name\"" ) );
}

TEST( ConfigReaderTest, AnEmptyListOfFramesIsAnError ) {
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
                ElementsAre( "f:2:35: a frame must be text: hexadecimal digits, \"base64:...\", "
                             "\"pcap:...\" or \"pcapng:...\"" ) );
   EXPECT_THAT( errorsOf( prefix + "[a]}]" ),
                ElementsAre( "f:2:30: messages must be a mapping (\"key: value\" lines)" ) );
}

TEST( ConfigReaderTest, ValuesOfTheWrongShapeAreErrors ) {
   EXPECT_THAT( errorsOf( "hello" ), ElementsAre( "f:1:1: the configuration must be a mapping "
                                                  "(\"key: value\" lines)" ) );
   EXPECT_THAT( errorsOf( "vrfs: 5" ), ElementsAre( "f:1:7: vrfs must be a list" ) );
   EXPECT_THAT( errorsOf( "vrfs: [5]" ),
                ElementsAre( "f:1:8: a VRF must be a mapping (\"key: value\" lines)" ) );
   EXPECT_THAT( errorsOf( "[a]: 5" ),
                ElementsAre( "f:1:1: a key in the configuration is not text; expected a name" ) );
   EXPECT_THAT( errorsOf( "interfaces: [{name: a, shutdown-delay: yes}]" ),
                ElementsAre( "f:1:40: shutdown-delay is \"yes\"; expected true or false" ) );
   EXPECT_THAT( errorsOf( "interfaces: [{name: a, shutdown-delay: []}, {name: {}}]" ),
                ElementsAre( "f:1:40: shutdown-delay must be a single value",
                             "f:1:52: interface name must be a single value" ) );
   EXPECT_THAT(
      errorsOf( "trace: {file: [], ring: ~}" ),
      ElementsAre( "f:1:15: trace.file must be a single value",
                   "f:1:25: trace.ring has 0 bytes; expected a path of 1 to 4095 bytes" ) );
   EXPECT_THAT( errorsOf( "{}\n---\n{}" ),
                ElementsAre( "f:3:1: second YAML document; expected only one" ) );
}

TEST( ConfigReaderTest, ATextThatTheParserDoesNotAdvanceInIsRejected ) {
   EXPECT_THAT( errorsOf( "," ), ElementsAre( "f:1:1: not valid YAML here" ) );
   EXPECT_THAT( errorsOf( "# no key\n  ,a\n" ), ElementsAre( "f:2:3: not valid YAML here" ) );
   EXPECT_THAT( errorsOf( "{},\n" ),
                ElementsAre( "f:1:3: second YAML document; expected only one" ) );
}

TEST( ConfigReaderTest, InvalidYamlIsReportedWithItsPlace ) {
   EXPECT_THAT( errorsOf( "vrfs:\n  - {name: a\n" ),
                ElementsAre( ::testing::MatchesRegex( "f:3:1: not valid YAML: .+" ) ) );
}

TEST( ConfigReaderTest, ProcessSettingsAreChecked ) {
   EXPECT_THAT( errorsOf( "socket: " + std::string( 108, 's' ) ),
                ElementsAre( "f:1:9: socket has 108 bytes; expected a path of 1 to 107 bytes" ) );
   EXPECT_THAT( errorsOf( "netns-directory: here" ),
                ElementsAre( "f:1:18: netns-directory is \"here\"; expected an absolute path" ) );
   auto const active = Quill::traceLevels();
   EXPECT_THAT( errorsOf( "trace: {levels: ConfigSm}" ),
                ElementsAre( "f:1:17: trace pattern \"ConfigSm\" is not NAME/LEVEL or "
                             "NAME/FIRST-LAST with levels 0 to 9" ) );
   EXPECT_THAT( errorsOf( "trace: {levels: ConfigSm/0}" ), ElementsAre() );
   EXPECT_EQ( Quill::traceLevels(), active ) << "reading levels must not set them";
}

TEST( ConfigReaderTest, ErrorsAreSingleLines ) {
   EXPECT_THAT( errorsOf( "interfaces: [{name: a, vrf: \"b\\nc\"}]" ),
                ElementsAre( "f:1:29: unknown VRF \"b\\x0ac\"; expected \"default\" or one of "
                             "\"vrfs\"" ) );
   EXPECT_THAT(
      errorsOf( "trace: {\"a\\nb\\e\": 1}" ),
      ElementsAre( "f:1:9: unknown key \"a b \" in trace; expected \"levels\", \"file\" or "
                   "\"ring\"" ) );
}

} // namespace
} // namespace Settings
