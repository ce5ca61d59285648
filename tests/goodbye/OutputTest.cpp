// The output of `valenctl frame`, its help, and the outputs shown in the documentation.
#include "goodbye/Layers.h"
#include "tests/goodbye/FrameTest.h"

#include <gmock/gmock.h>

namespace Valen::Test {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

Texts const kinds{ "lldp", "ra",   "vrrp2", "vrrp3", "pim", "ospf",
                   "igmp", "mdns", "rip",   "oam",   "lacp" };

class OutputTest : public FrameTest {
 protected:
   // The result of valend's check of a configuration.
   Result check( std::string const & config ) const {
      auto const file = work_ / "valen.yaml";
      std::ofstream( file ) << config;
      Process command( { VALEND, "--config", file, "--check" }, work_ / "valend" );
      auto const status = command.wait();
      return { status, command.out(), command.err() };
   }

   // The output of a command in a shell, with the programs of this build.
   std::string shell( std::string const & command ) const {
      std::ofstream( work_ / "command" ) << command;
      Process bash( { "/bin/bash", "-c",
                      "cd " + ( work_ / "." ) + " && PATH=$(dirname " VALENCTL "):$PATH && . " +
                         ( work_ / "command" ) },
                    work_ / "shell" );
      bash.wait();
      return bash.out() + bash.err();
   }

   Texts const leave_{ "igmp",     "--version", "2",       "--mac",     "02:00:00:00:00:01",
                       "--ip",     "192.0.2.1", "--group", "239.1.1.1", "--group",
                       "239.1.1.2" };
   std::string const leaves_[ 2 ] = {
      "01005e000002020000000001080046c000200000000001028214c0000201e000000294040000"
      "1700f8fcef010101" +
         std::string( 28, '0' ),
      "01005e000002020000000001080046c000200000000001028214c0000201e000000294040000"
      "1700f8fbef010102" +
         std::string( 28, '0' ) };
};

TEST_F( OutputTest, FramesArePrintedInHexadecimalOnePerLine ) {
   auto const result = frame( leave_ );
   EXPECT_EQ( result.status, 0 );
   EXPECT_EQ( result.out, leaves_[ 0 ] + "\n" + leaves_[ 1 ] + "\n" );
   EXPECT_EQ( result.err, "" );
}

TEST_F( OutputTest, ValendAcceptsThePrintedFrames ) {
   for ( auto const * indicator : { "", "\"" } ) {
      std::string config = "shutdown-delay-ms: 1\ninterfaces:\n  - name: Ethernet1\nagents:\n"
                           "  - name: igmp\n    messages:\n      Ethernet1:\n";
      std::istringstream lines( frame( leave_ ).out );
      for ( std::string line; std::getline( lines, line ); ) {
         config += std::string( "        - " ) + indicator + line + indicator + "\n";
      }
      auto const result = check( config );
      EXPECT_EQ( result.status, 0 ) << result.err;
   }
   EXPECT_NE(
      check( "agents:\n  - name: igmp\n    messages:\n      Ethernet1:\n        - zz\n" ).status,
      0 );
}

TEST_F( OutputTest, ConfigurationIsReadyToUse ) {
   auto arguments = leave_;
   arguments.insert( arguments.end(), { "--yaml", "Ethernet \"1\"" } );
   auto const yaml = frame( arguments ).out;
   EXPECT_EQ( yaml, "agents:\n"
                    "  - name: igmp\n"
                    "    messages:\n"
                    "      \"Ethernet \\\"1\\\"\":\n"
                    "        # IGMP leave, of version 2 or 3 (RFC 2236, 3; RFC 3376, 5.1 and "
                    "6.4.2)\n"
                    "        - \"" +
                       leaves_[ 0 ] + "\"\n        - \"" + leaves_[ 1 ] + "\"\n" );
   auto const result =
      check( "interfaces:\n  - name: 'Ethernet \"1\"'\n    device: eth1\n" + yaml );
   EXPECT_EQ( result.status, 0 ) << result.err;
}

TEST_F( OutputTest, ACaptureFileCanGoToStandardOutput ) {
   auto arguments = leave_;
   arguments.insert( arguments.end(), { "--pcap", "-" } );
   auto const piped = frame( arguments ).out;
   EXPECT_EQ( piped.size(), 24u + 2 * ( 16 + 60 ) );
   EXPECT_THAT( piped, StartsWith( "\xa1\xb2\xc3\xd4" ) );
}

TEST_F( OutputTest, AnUnwritableFileIsReported ) {
   for ( std::string const file : { "/dev/full", "/nowhere/x.pcap" } ) {
      auto arguments = leave_;
      arguments.insert( arguments.end(), { "--pcap", file } );
      auto const result = frame( arguments );
      EXPECT_EQ( result.status, 1 );
      EXPECT_THAT( result.err, StartsWith( "valenctl: cannot write " + file + ": " ) );
   }
   EXPECT_EQ( shell( "valenctl frame oam --mac 02:00:00:00:00:01 >/dev/full; echo $?" ),
              "1\nvalenctl: cannot write standard output: No space left on device\n" );
   EXPECT_EQ( frame( { "oam", "--mac", "02:00:00:00:00:01", "--pcap", "x", "--yaml", "y" } ).err,
              "valenctl: --pcap excludes --yaml\n"
              "Run \"valenctl frame oam --help\" for more information.\n" );
}

TEST_F( OutputTest, TheHelpOfEachKindNamesItsSpecificationAndEffect ) {
   auto const help = frame( { "--help" } );
   EXPECT_EQ( help.status, 0 );
   for ( auto const & kind : kinds ) {
      EXPECT_THAT( help.out, HasSubstr( "\n  " + kind + " " ) );
      auto const own = frame( { kind, "--help" } );
      EXPECT_EQ( own.status, 0 );
      EXPECT_THAT( own.out, HasSubstr( "\n\nSpecified in " ) );
      EXPECT_THAT( own.out, HasSubstr( "--device DEV" ) );
   }
}

// Each command in the documentation, with the output shown there.
TEST_F( OutputTest, TheDocumentedCommandsPrintTheDocumentedOutput ) {
   std::istringstream page( contentOf( FRAMES_PAGE ) );
   std::string command, shown, text;
   std::size_t commands = 0;
   auto const compare = [ & ] {
      if ( !command.empty() ) {
         EXPECT_EQ( shell( command ), shown ) << command;
         ++commands;
      }
      command.clear();
      shown.clear();
   };
   bool inside = false;
   for ( std::string line; std::getline( page, line ); ) {
      text += line + "\n";
      if ( line.starts_with( "```" ) ) {
         compare();
         inside = line == "```console";
      } else if ( inside && line.starts_with( "$ " ) ) {
         compare();
         command = line.substr( 2 );
      } else if ( !command.empty() && command.ends_with( '\\' ) ) {
         command += "\n" + line;
      } else if ( !command.empty() ) {
         shown += line + "\n";
      }
   }
   EXPECT_GE( commands, kinds.size() );
   for ( auto const & kind : kinds ) {
      EXPECT_THAT( text, HasSubstr( "$ valenctl frame " + kind + " " ) );
   }
}

} // namespace
} // namespace Valen::Test
