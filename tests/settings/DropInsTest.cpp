// The main file and its drop-ins, read as one configuration; files that cannot be read.
#include "settings/ConfigFiles.h"
#include "settings/Limits.h"
#include "tests/settings/CaptureFile.h"
#include "tests/support/WorkDirectory.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

namespace Settings::Test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::string const hex = "0180c200000e02000000000188cc";

class DropInsTest : public ::testing::Test {
 protected:
   ConfigResult read() const { return readConfig( directory / "valen.yaml" ); }
   // All errors, without the directory.
   std::vector< std::string > errors() const {
      std::vector< std::string > messages;
      for ( auto const & error : read().errors ) {
         auto message = error.message();
         for ( auto at = message.find( directory / "" ); at != message.npos;
               at = message.find( directory / "" ) ) {
            message.erase( at, ( directory / "" ).size() );
         }
         messages.push_back( message );
      }
      return messages;
   }
   std::string place( Place const & place ) const {
      return place.text().substr( ( directory / "" ).size() );
   }

   Valen::Test::WorkDirectory directory;
};

TEST_F( DropInsTest, AllFilesTogetherAreOneConfiguration ) {
   directory.write( "valen.yaml",
                    "shutdown-delay-ms: 500\ninterfaces:\n- name: et1\n- name: et2\n" );
   directory.write( "conf.d/20-radv.yaml", "agents:\n- name: radv\n  messages:\n    et2: [" + hex +
                                              "]\n- name: lldp\n  messages:\n    et2: [" + hex +
                                              "]\n" );
   directory.write( "conf.d/10-lldp.yaml", "agents:\n- name: lldp\n  messages: {et1: [" + hex +
                                              "]}\ninterfaces: [{name: et3, vrf: red}]\n" );
   directory.write( "conf.d/vrfs.yaml", "vrfs: [{name: red, namespace: n}]" );
   directory.write( "conf.d/.hidden.yaml", "color: blue" );
   directory.write( "conf.d/notes.txt", "color: blue" );
   auto const result = read();
   EXPECT_THAT( errors(), IsEmpty() );
   EXPECT_EQ( result.config.shutdownDelayMs, 500 );
   EXPECT_EQ( result.config.interfaces.size(), 3u );
   EXPECT_EQ( result.config.interfaces.at( "et3" ).vrf, "red" );
   EXPECT_EQ( result.config.agents.at( "lldp" ).size(), 2u )
      << "the messages of an agent may be spread over files";
   EXPECT_EQ( result.config.agents.at( "radv" ).size(), 1u );

   std::vector< std::string > files;
   for ( auto const & file : result.sources.files ) {
      files.push_back( file.substr( ( directory / "" ).size() ) );
   }
   EXPECT_THAT( files, ElementsAre( "valen.yaml", "conf.d/10-lldp.yaml", "conf.d/20-radv.yaml",
                                    "conf.d/vrfs.yaml" ) );
}

TEST_F( DropInsTest, AFileThatLooksLikeADropInIsAWarning ) {
   directory.write( "valen.yaml", "" );
   for ( std::string const name :
         { "a.yaml", "b.yml", "c.YAML", ".d.yml", "notes.txt", "e.yaml.dpkg-old", "f.yaml~" } ) {
      directory.write( "conf.d/" + name, "" );
   }
   std::vector< std::string > warnings;
   for ( auto const & warning : read().warnings ) {
      warnings.push_back( place( warning.place ) + ": " + warning.text );
   }
   std::string const ignored = ": ignored; the name of a drop-in must end in \".yaml\" and not "
                               "begin with a dot";
   EXPECT_THAT( warnings, ElementsAre( "conf.d/b.yml" + ignored, "conf.d/c.YAML" + ignored ) );
   EXPECT_THAT( errors(), IsEmpty() );
}

TEST_F( DropInsTest, AnotherFileIsReadAsIfItWereADropIn ) {
   directory.write( "valen.yaml", "" );
   directory.write( "conf.d/10-a.yaml", "interfaces: [{name: et1}]" );
   directory.write( "conf.d/30-c.yaml", "interfaces: [{name: et3}]" );
   directory.write( "new/20-b.yaml", "interfaces: [{name: et2}]" );
   directory.write( "new/30-c.yaml", "interfaces: [{name: et4}]" );
   auto const with = [ & ]( std::string const & name ) {
      return readConfig( directory / "valen.yaml", directory / name );
   };
   auto const added = with( "new/20-b.yaml" );
   EXPECT_TRUE( added.errors.empty() );
   EXPECT_EQ( added.config.interfaces.size(), 3u );
   EXPECT_THAT( added.sources.files,
                ElementsAre( directory / "valen.yaml", directory / "conf.d/10-a.yaml",
                             directory / "new/20-b.yaml", directory / "conf.d/30-c.yaml" ) );
   auto const replaced = with( "new/30-c.yaml" );
   EXPECT_EQ( replaced.config.interfaces.count( "et4" ), 1u );
   EXPECT_EQ( replaced.config.interfaces.count( "et3" ), 0u );

   directory.write( "new/x.yml", "" );
   ASSERT_EQ( with( "new/x.yml" ).errors.size(), 1u );
   EXPECT_EQ( with( "new/x.yml" ).errors[ 0 ].text,
              "would be ignored in conf.d; the name of a drop-in must end in \".yaml\" and not "
              "begin with a dot" );
   EXPECT_EQ( with( "new/none.yaml" ).errors.at( 0 ).text,
              "cannot open: No such file or directory" );
}

TEST_F( DropInsTest, ThePlaceOfEachItemIsRecorded ) {
   directory.write( "valen.yaml", "shutdown-delay-ms: 500\ninterfaces:\n- name: et1\n" );
   directory.write( "conf.d/a.yaml",
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

TEST_F( DropInsTest, ADuplicateInAnotherFileNamesBothPlaces ) {
   directory.write( "valen.yaml", "shutdown-delay-ms: 5\ntrace: {levels: A/0}\n"
                                  "vrfs: [{name: red, namespace: n}]\ninterfaces: [{name: et1}]\n"
                                  "agents: [{name: lldp, messages: {et1: [" +
                                     hex + "]}}]\n" );
   directory.write( "conf.d/a.yaml",
                    "agents: [{name: lldp, messages: {et1: [" + hex +
                       "]}}, {name: lldp}]\n"
                       "interfaces: [{name: et1, device: x}, {name: et2, device: et1}]\n"
                       "vrfs: [{name: red, namespace: m}, {name: blue, namespace: n}]\n"
                       "trace: {levels: B/0, file: f}\nshutdown-delay-ms: 5\n" );
   EXPECT_THAT(
      errors(),
      ElementsAre(
         "conf.d/a.yaml:1:34: duplicate interface \"et1\" of agent \"lldp\" (first defined at "
         "valen.yaml:5:34)",
         "conf.d/a.yaml:1:80: duplicate agent \"lldp\" (first defined at conf.d/a.yaml:1:17)",
         "conf.d/a.yaml:2:21: duplicate interface \"et1\" (first defined at valen.yaml:4:21)",
         "conf.d/a.yaml:2:58: device \"et1\" in VRF \"default\" is already used by interface "
         "\"et1\" (valen.yaml:4:21); each interface needs its own",
         "conf.d/a.yaml:3:15: duplicate VRF \"red\" (first defined at valen.yaml:3:15)",
         "conf.d/a.yaml:3:59: namespace \"n\" is already used by VRF \"red\" "
         "(valen.yaml:3:15); each VRF needs its own",
         "conf.d/a.yaml:4:17: duplicate trace.levels (first defined at valen.yaml:2:17)",
         "conf.d/a.yaml:5:20: duplicate shutdown-delay-ms (first defined at valen.yaml:1:20)" ) );
}

TEST_F( DropInsTest, GoodbyesForAllInterfacesAreGivenInOneFile ) {
   directory.write( "valen.yaml", "interfaces: [{name: et1}, {name: et2, goodbyes: off}]\n" );
   directory.write( "conf.d/a.yaml", "goodbyes: [lldp]" );
   EXPECT_THAT( errors(), IsEmpty() );
   EXPECT_EQ( read().config.goodbyesOf( "et1" ), Goodbyes::of( { "lldp" } ) );
   EXPECT_EQ( read().config.goodbyesOf( "et2" ), Goodbyes() );
   EXPECT_EQ( place( read().sources.settings.at( "goodbyes" ) ), "conf.d/a.yaml:1:11" );
   directory.write( "conf.d/b.yaml", "goodbyes: off" );
   EXPECT_THAT( errors(), ElementsAre( "conf.d/b.yaml:1:11: duplicate goodbyes (first defined at "
                                       "conf.d/a.yaml:1:11)" ) );
}

TEST_F( DropInsTest, AllErrorsOfAllFilesAreListedFileByFile ) {
   directory.write( "valen.yaml", "color: blue\nshutdown-delay-ms: x\n" );
   directory.write( "conf.d/b.yaml", "interfaces: [{name: et1, vrf: nowhere}]" );
   directory.write( "conf.d/a.yaml", "agents: [{name: a, messages: {et9: [00]}}]" );
   EXPECT_THAT(
      errors(),
      ElementsAre(
         "valen.yaml:1:1: unknown key \"color\" in the configuration; expected "
         "\"shutdown-delay-ms\", \"goodbyes\", \"vrfs\", \"interfaces\", \"agents\", \"socket\", "
         "\"netns-directory\", \"state-directory\", \"max-shutdown-delay-ms\", "
         "\"metrics-file\", \"trace\" or \"database\"",
         "valen.yaml:2:20: shutdown-delay-ms is \"x\"; expected milliseconds from 0 to "
         "65535",
         "conf.d/a.yaml:1:31: unknown interface \"et9\"; expected one of \"interfaces\"",
         "conf.d/a.yaml:1:37: frame of 1 byte; expected at least 14, an Ethernet header",
         "conf.d/b.yaml:1:31: unknown VRF \"nowhere\"; expected \"default\" or one of "
         "\"vrfs\"" ) );
}

TEST_F( DropInsTest, NamesThatAnUnreadableFileMayDefineAreNotReported ) {
   directory.write( "conf.d/a.yaml", "agents: [{name: a, messages: {et1: [zz]}}]" );
   EXPECT_THAT( errors(),
                ElementsAre( "valen.yaml: cannot open: No such file or directory",
                             "conf.d/a.yaml:1:37: \"z\" at character 1 of the frame; expected "
                             "hexadecimal digits" ) );
   directory.write( "valen.yaml", "interfaces: [{name: et1, vrf: red}]" );
   directory.write( "conf.d/b.yaml", "vrfs: [" );
   ASSERT_EQ( ::mkfifo( ( directory / "conf.d/c.yaml" ).c_str(), 0600 ), 0 );
   EXPECT_THAT( errors(),
                ElementsAre( "conf.d/a.yaml:1:37: \"z\" at character 1 of the frame; expected "
                             "hexadecimal digits",
                             ::testing::MatchesRegex( "conf.d/b.yaml:1:1: not valid YAML: .+" ),
                             "conf.d/c.yaml: cannot read: not a regular file" ) );
}

TEST_F( DropInsTest, ADropInDirectoryThatIsNotADirectoryIsAnError ) {
   directory.write( "valen.yaml", "" );
   EXPECT_THAT( errors(), IsEmpty() );
   directory.write( "conf.d", "" );
   EXPECT_THAT(
      errors(),
      ElementsAre( "conf.d: cannot read: Not a directory; expected a directory of drop-ins" ) );
}

TEST_F( DropInsTest, ACaptureFileIsRelativeToTheFileThatNamesIt ) {
   directory.write( "valen.yaml", "interfaces: [{name: et1}, {name: et2}]\n"
                                  "agents: [{name: a, messages: {et1: [\"pcap:a.pcap#1\"]}}]" );
   directory.write( "a.pcap", pcapFile( { std::string( 20, 'm' ) } ) );
   directory.write( "conf.d/b.yaml",
                    "agents: [{name: b, messages: {et2: [\"pcap:a.pcap#2,1\", " + hex + "]}}]" );
   directory.write( "conf.d/a.pcap",
                    pcapFile( { std::string( 20, '1' ), std::string( 20, '2' ) } ) );
   auto const config = read().config;
   EXPECT_THAT( errors(), IsEmpty() );
   EXPECT_THAT( config.agents.at( "a" ).at( "et1" ), ElementsAre( std::string( 20, 'm' ) ) );
   EXPECT_THAT( config.agents.at( "b" ).at( "et2" ),
                ElementsAre( std::string( 20, '2' ), std::string( 20, '1' ), ::testing::_ ) );
   directory.write( "a.pcap", "" );
   EXPECT_THAT( errors(), ElementsAre( ::testing::StartsWith( "valen.yaml:2:37: a.pcap: " ) ) );
}

TEST_F( DropInsTest, AnErrorSaysWhyAFileCannotBeRead ) {
   directory.write( "valen.yaml/inside", "" );
   EXPECT_THAT( errors(), ElementsAre( "valen.yaml: cannot read: Is a directory" ) );
}

TEST_F( DropInsTest, AFileBeyondTheLimitIsRejected ) {
   directory.write( "valen.yaml", "" );
   std::filesystem::resize_file( directory / "valen.yaml", maxConfigBytes + 1 );
   EXPECT_THAT(
      errors(),
      ElementsAre( "valen.yaml: exceeds the limit of 16777216 bytes, of all files together" ) );
}

} // namespace
} // namespace Settings::Test
