// The main file and the drop-ins beside it, read as one configuration.
#include "settings/ConfigReader.h"
#include "tests/settings/CaptureFile.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

namespace Settings::Test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::string const hex = "0180c200000e02000000000188cc";

class DropInsTest : public ::testing::Test {
 protected:
   ConfigResult read() const { return readConfig( folder.path() + "valen.yaml" ); }
   // All that is said, without the folder.
   std::vector< std::string > errors() const {
      std::vector< std::string > messages;
      for ( auto const & error : read().errors ) {
         auto message = error.message();
         for ( auto at = message.find( folder.path() ); at != message.npos;
               at = message.find( folder.path() ) ) {
            message.erase( at, folder.path().size() );
         }
         messages.push_back( message );
      }
      return messages;
   }
   std::string place( Place const & place ) const {
      return place.text().substr( folder.path().size() );
   }

   Folder folder;
};

TEST_F( DropInsTest, AllFilesAreOneConfigurationInOrderOfTheirNames ) {
   folder.write( "valen.yaml", "shutdown-delay-ms: 500\ninterfaces:\n- name: et1\n- name: et2\n" );
   folder.write( "conf.d/20-radv.yaml", "agents:\n- name: radv\n  messages:\n    et2: [" + hex +
                                           "]\n- name: lldp\n  messages:\n    et2: [" + hex +
                                           "]\n" );
   folder.write( "conf.d/10-lldp.yaml", "agents:\n- name: lldp\n  messages: {et1: [" + hex +
                                           "]}\ninterfaces: [{name: et3, vrf: red}]\n" );
   folder.write( "conf.d/vrfs.yaml", "vrfs: [{name: red, namespace: n}]" );
   folder.write( "conf.d/.hidden.yaml", "colour: blue" );
   folder.write( "conf.d/notes.txt", "colour: blue" );
   auto const result = read();
   EXPECT_THAT( errors(), IsEmpty() );
   EXPECT_EQ( result.config.shutdownDelayMs, 500 );
   EXPECT_EQ( result.config.interfaces.size(), 3u );
   EXPECT_EQ( result.config.interfaces.at( "et3" ).vrf, "red" );
   EXPECT_EQ( result.config.agents.at( "lldp" ).size(), 2u ) << "one agent's may be spread";
   EXPECT_EQ( result.config.agents.at( "radv" ).size(), 1u );

   std::vector< std::string > files;
   for ( auto const & file : result.sources.files ) {
      files.push_back( file.substr( folder.path().size() ) );
   }
   EXPECT_THAT( files, ElementsAre( "valen.yaml", "conf.d/10-lldp.yaml", "conf.d/20-radv.yaml",
                                    "conf.d/vrfs.yaml" ) );
}

TEST_F( DropInsTest, EachThingIsKnownByItsPlace ) {
   folder.write( "valen.yaml", "shutdown-delay-ms: 500\ninterfaces:\n- name: et1\n" );
   folder.write( "conf.d/a.yaml",
                 "trace:\n  levels: A/0\nvrfs: [{name: red, namespace: n}]\nagents:"
                 "\n- name: lldp\n  messages:\n    et1: [" +
                    hex + "]\n" );
   auto const sources = read().sources;
   EXPECT_EQ( place( sources.settings.at( "shutdown-delay-ms" ) ), "valen.yaml:1:20" );
   EXPECT_EQ( place( sources.settings.at( "trace.levels" ) ), "conf.d/a.yaml:2:11" );
   EXPECT_EQ( place( sources.vrfs.at( "red" ) ), "conf.d/a.yaml:3:15" );
   EXPECT_EQ( place( sources.interfaces.at( "et1" ) ), "valen.yaml:3:9" );
   EXPECT_EQ( place( sources.agents.at( "lldp" ) ), "conf.d/a.yaml:5:9" );
   EXPECT_EQ( place( sources.messages.at( "lldp" ).at( "et1" ) ), "conf.d/a.yaml:7:5" );
}

TEST_F( DropInsTest, WhatTwoFilesSayIsAnErrorThatNamesBothPlaces ) {
   folder.write( "valen.yaml", "shutdown-delay-ms: 5\ntrace: {levels: A/0}\n"
                               "vrfs: [{name: red, namespace: n}]\ninterfaces: [{name: et1}]\n"
                               "agents: [{name: lldp, messages: {et1: [" +
                                  hex + "]}}]\n" );
   folder.write( "conf.d/a.yaml",
                 "agents: [{name: lldp, messages: {et1: [" + hex +
                    "]}}, {name: lldp}]\n"
                    "interfaces: [{name: et1, device: x}, {name: et2, device: et1}]\n"
                    "vrfs: [{name: red, namespace: m}, {name: blue, namespace: n}]\n"
                    "trace: {levels: B/0, file: f}\nshutdown-delay-ms: 5\n" );
   EXPECT_THAT(
      errors(),
      ElementsAre(
         "conf.d/a.yaml:1:34: interface \"et1\" of agent \"lldp\" again, after "
         "valen.yaml:5:34; expected it once",
         "conf.d/a.yaml:1:80: agent \"lldp\" again, after conf.d/a.yaml:1:17; expected "
         "it once",
         "conf.d/a.yaml:2:21: interface \"et1\" again, after valen.yaml:4:21; expected it "
         "once",
         "conf.d/a.yaml:2:58: device \"et1\" in VRF \"default\" is interface \"et1\"'s "
         "already, at valen.yaml:4:21; expected one of its own for each interface",
         "conf.d/a.yaml:3:15: VRF \"red\" again, after valen.yaml:3:15; expected it once",
         "conf.d/a.yaml:3:59: namespace \"n\" is VRF \"red\"'s already, at "
         "valen.yaml:3:15; expected one of its own for each VRF",
         "conf.d/a.yaml:4:17: trace.levels again, after valen.yaml:2:17; expected it "
         "once",
         "conf.d/a.yaml:5:20: shutdown-delay-ms again, after valen.yaml:1:20; expected "
         "it once" ) );
}

TEST_F( DropInsTest, AllErrorsOfAllFilesAreListedFileByFile ) {
   folder.write( "valen.yaml", "colour: blue\nshutdown-delay-ms: x\n" );
   folder.write( "conf.d/b.yaml", "interfaces: [{name: et1, vrf: nowhere}]" );
   folder.write( "conf.d/a.yaml", "agents: [{name: a, messages: {et9: [00]}}]" );
   EXPECT_THAT(
      errors(),
      ElementsAre( "valen.yaml:1:1: unknown key \"colour\" in the configuration; expected "
                   "\"shutdown-delay-ms\", \"vrfs\", \"interfaces\", \"agents\", \"socket\", "
                   "\"netns-folder\", \"state-directory\", \"metrics-file\" or \"trace\"",
                   "valen.yaml:2:20: shutdown-delay-ms is \"x\"; expected milliseconds from 0 to "
                   "65535",
                   "conf.d/a.yaml:1:31: unknown interface \"et9\"; expected one of \"interfaces\"",
                   "conf.d/a.yaml:1:37: frame of 1 bytes; expected at least 14, an Ethernet header",
                   "conf.d/b.yaml:1:31: unknown VRF \"nowhere\"; expected \"default\" or one of "
                   "\"vrfs\"" ) );
}

TEST_F( DropInsTest, WhatAnUnreadableFileMayHoldIsNotMissedElsewhere ) {
   folder.write( "conf.d/a.yaml", "agents: [{name: a, messages: {et1: [zz]}}]" );
   EXPECT_THAT( errors(),
                ElementsAre( "valen.yaml: cannot be opened; expected a readable file",
                             "conf.d/a.yaml:1:37: \"z\" at character 1 of the frame; expected "
                             "hexadecimal digits" ) );
   folder.write( "valen.yaml", "interfaces: [{name: et1, vrf: red}]" );
   folder.write( "conf.d/b.yaml", "vrfs: [" );
   ASSERT_EQ( ::mkfifo( ( folder.path() + "conf.d/c.yaml" ).c_str(), 0600 ), 0 );
   EXPECT_THAT( errors(),
                ElementsAre( "conf.d/a.yaml:1:37: \"z\" at character 1 of the frame; expected "
                             "hexadecimal digits",
                             ::testing::MatchesRegex( "conf.d/b.yaml:1:1: not YAML: .+" ),
                             "conf.d/c.yaml: cannot be read; expected a readable file" ) );
}

TEST_F( DropInsTest, ADropInFolderThatIsNoneIsAnError ) {
   folder.write( "valen.yaml", "" );
   EXPECT_THAT( errors(), IsEmpty() );
   folder.write( "conf.d", "" );
   EXPECT_THAT( errors(), ElementsAre( "conf.d: cannot be read: Not a directory; expected a folder "
                                       "of drop-ins" ) );
}

TEST_F( DropInsTest, ACaptureFileIsLookedForBesideTheFileThatNamesIt ) {
   folder.write( "valen.yaml", "interfaces: [{name: et1}, {name: et2}]\n"
                               "agents: [{name: a, messages: {et1: [\"pcap:a.pcap#1\"]}}]" );
   folder.write( "a.pcap", pcapFile( { std::string( 20, 'm' ) } ) );
   folder.write( "conf.d/b.yaml",
                 "agents: [{name: b, messages: {et2: [\"pcap:a.pcap#2,1\", " + hex + "]}}]" );
   folder.write( "conf.d/a.pcap", pcapFile( { std::string( 20, '1' ), std::string( 20, '2' ) } ) );
   auto const config = read().config;
   EXPECT_THAT( errors(), IsEmpty() );
   EXPECT_THAT( config.agents.at( "a" ).at( "et1" ), ElementsAre( std::string( 20, 'm' ) ) );
   EXPECT_THAT( config.agents.at( "b" ).at( "et2" ),
                ElementsAre( std::string( 20, '2' ), std::string( 20, '1' ), ::testing::_ ) );
   folder.write( "a.pcap", "" );
   EXPECT_THAT( errors(), ElementsAre( ::testing::StartsWith( "valen.yaml:2:37: a.pcap: " ) ) );
}

} // namespace
} // namespace Settings::Test
