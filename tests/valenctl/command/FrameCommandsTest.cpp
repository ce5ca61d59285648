// Where built frames go. How each kind is built is for FrameKindsTest, and what is in the frames for
// tests/goodbye.
#include "tests/support/WorkDirectory.h"
#include "tests/valenctl/CommandLine.h"

#include <iostream>

namespace Valenctl::Test {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class FrameCommandsTest : public CommandLine {
 protected:
   Exit frame( Words words ) {
      words.insert( words.begin(), { "frame", "oam", "--mac", "02:00:00:00:00:01" } );
      return run( words );
   }
   std::string built() {
      EXPECT_EQ( frame( {} ), Exit::done );
      EXPECT_EQ( err, "" );
      return out.substr( 0, out.size() - 1 );
   }
};

TEST_F( FrameCommandsTest, FramesArePrintedInHexadecimal ) {
   EXPECT_THAT( built(), StartsWith( "0180c2000002020000000001" ) );
   EXPECT_THAT( out, EndsWith( "\n" ) );
   EXPECT_TRUE( daemon.calls().empty() ) << "valend is not needed";
}

TEST_F( FrameCommandsTest, FramesAndNotesArePrintedAsJson ) {
   auto const hex = built();
   EXPECT_EQ( frame( { "--json" } ), Exit::done );
   EXPECT_EQ( Json::parse( out ),
              ( Json{ { "kind", "oam" }, { "frames", { hex } }, { "notes", Json::array() } } ) );
   EXPECT_EQ( frame( { "--json", "--yaml", "Ethernet1" } ), Exit::done );
   EXPECT_THAT( out, StartsWith( "agents:\n" ) );
}

TEST_F( FrameCommandsTest, ConfigurationNamesTheInterfaceAndTheStandard ) {
   auto const hex = built();
   EXPECT_EQ( frame( { "--yaml", "Ethernet1" } ), Exit::done );
   EXPECT_EQ( out, "agents:\n  - name: oam\n    messages:\n      \"Ethernet1\":\n"
                   "        # 802.3ah OAM: dying gasp (IEEE 802.3-2018, 57.2.10 and 57.4.2.1)\n"
                   "        - \"" +
                      hex + "\"\n" );
}

TEST_F( FrameCommandsTest, ACaptureFileIsWritten ) {
   Valen::Test::WorkDirectory const work;
   EXPECT_EQ( frame( { "--pcap", work / "frame.pcap" } ), Exit::done );
   EXPECT_EQ( out, "" );
   EXPECT_EQ( frame( { "--pcap", "-" } ), Exit::done );
   EXPECT_EQ( out.size(), work.content( "frame.pcap" ).size() ) << "only the time differs";
   EXPECT_THAT( out, StartsWith( "\xa1\xb2\xc3\xd4" ) );
}

TEST_F( FrameCommandsTest, AFileThatCannotBeWrittenIsReported ) {
   EXPECT_EQ( frame( { "--pcap", "/nowhere/x.pcap" } ), Exit::failed );
   EXPECT_EQ( err, "valenctl: cannot write /nowhere/x.pcap: No such file or directory\n" );
   EXPECT_EQ( frame( { "--pcap", "/dev/full" } ), Exit::failed );
   EXPECT_EQ( err, "valenctl: cannot write /dev/full: No space left on device\n" );
}

TEST_F( FrameCommandsTest, FramesAreQueuedUnderTheKindsNameOrAnother ) {
   auto const hex = built();
   daemon.answers( "Publish", { Json::object() } );
   EXPECT_EQ( frame( { "--queue", "Ethernet1" } ), Exit::done );
   EXPECT_EQ( onlyCall( "Publish" ), ( Json{ { "agent", "oam" },
                                             { "interface", "Ethernet1" },
                                             { "frames", { hex } },
                                             { "lifetime", "kept" } } ) );
   frame( { "--queue", "Ethernet1", "--agent", "bye" } );
   EXPECT_EQ( daemon.calls()[ 1 ].parameters[ "agent" ], "bye" );
}

TEST_F( FrameCommandsTest, AnIncompleteCommandIsAUsageError ) {
   EXPECT_EQ( run( { "frame", "oam" } ), Exit::usage );
   EXPECT_THAT( err, HasSubstr( "valenctl: the frame needs the sender's MAC address" ) );
   EXPECT_EQ( frame( { "--pcap", "x", "--yaml", "y" } ), Exit::usage );
   EXPECT_EQ( frame( { "--agent", "x" } ), Exit::usage );
   EXPECT_EQ( frame( { "--netns", "x" } ), Exit::usage );
}

TEST_F( FrameCommandsTest, TheIpOptionTakesWhatTheKindCanUse ) {
   Words const pim{ "frame", "pim", "--mac", "02:00:00:00:00:01", "--ip" };
   auto const with = [ & ]( std::string const & address ) {
      auto words = pim;
      words.push_back( address );
      return run( words );
   };
   EXPECT_EQ( with( "192.0.2.1" ), Exit::done );
   EXPECT_THAT( out, HasSubstr( "0800" ) );
   EXPECT_EQ( with( "fe80::1" ), Exit::done );
   EXPECT_THAT( out, HasSubstr( "86dd" ) );
   EXPECT_EQ( with( "2001:db8::1" ), Exit::usage );
   EXPECT_THAT( err, HasSubstr( "\"2001:db8::1\" is not link-local" ) );
   EXPECT_EQ( frame( { "--ip", "192.0.2.1" } ), Exit::usage ) << "OAM has no IP address";
}

TEST_F( FrameCommandsTest, ADeviceThatDoesNotExistIsAFailure ) {
   EXPECT_EQ( run( { "frame", "oam", "--device", "vt-none" } ), Exit::failed );
   EXPECT_EQ( err, "valenctl: there is no device vt-none\n" );
}

TEST_F( FrameCommandsTest, HelpExplainsTheKind ) {
   EXPECT_EQ( run( { "frame", "oam", "--help" } ), Exit::done );
   EXPECT_THAT( out, HasSubstr( "\n\nSpecified in IEEE 802.3-2018" ) );
   EXPECT_THAT( out, HasSubstr( "The peer reports" ) );
}

class FrameDecodeTest : public CommandLine {
 protected:
   Exit decode( Words words ) {
      words.insert( words.begin(), { "frame", "decode" } );
      return run( words );
   }
   std::string const leaving =
      "0180c200000e02000000000188cc02070402000000000104050565746831060200000000";
   std::string const cutOff = "0180c200000e02000000000188cc020704020000000001";
   std::string const unknown = "ffffffffffff02000000000188b5676f6f64627965";
   std::string const leavingText =
      "36 bytes: lldp, chassis 02:00:00:00:00:01, port eth1: says ttl 0; a goodbye\n";
};

TEST_F( FrameDecodeTest, FramesAreSaidInWords ) {
   EXPECT_EQ( decode( { leaving, unknown } ), Exit::done );
   EXPECT_EQ( out,
              "frame 1, " + leavingText + "frame 2, 21 bytes: no protocol that valend knows\n" );
   EXPECT_TRUE( daemon.calls().empty() ) << "valend is not needed";
}

TEST_F( FrameDecodeTest, AMalformedFrameIsAFailure ) {
   EXPECT_EQ( decode( { leaving, cutOff } ), Exit::failed );
   EXPECT_EQ( out, "frame 1, " + leavingText +
                      "frame 2, 23 bytes: lldp, malformed: it ends too early\n" );
   EXPECT_EQ( decode( { cutOff, "--json" } ), Exit::failed );
   EXPECT_EQ( Json::parse( out )[ "frames" ][ 0 ][ "malformed" ], "it ends too early" );
   EXPECT_EQ( Json::parse( out )[ "frames" ][ 0 ][ "frame" ], cutOff );
}

TEST_F( FrameDecodeTest, FramesComeFromStandardInputAndFromCaptureFiles ) {
   std::istringstream input( leaving + "\n\n" + unknown + "\n" );
   auto * const before = std::cin.rdbuf( input.rdbuf() );
   EXPECT_EQ( decode( { "-" } ), Exit::done );
   std::cin.rdbuf( before );
   EXPECT_THAT( out, StartsWith( "frame 1, " + leavingText + "frame 2, 21 bytes: no" ) );

   Valen::Test::WorkDirectory const work;
   run( { "frame", "lldp", "--mac", "02:00:00:00:00:01", "--port-id", "name:eth1", "--pcap",
          work / "x" } );
   EXPECT_EQ( decode( { "--pcap", work / "x" } ), Exit::done );
   EXPECT_EQ( out, "frame 1, 60" + leavingText.substr( 2 ) );
   EXPECT_EQ( decode( { unknown, "pcap:" + ( work / "x" ) + "#1" } ), Exit::done );
   EXPECT_THAT( out, EndsWith( "frame 2, 60" + leavingText.substr( 2 ) ) );
}

TEST_F( FrameDecodeTest, WhatIsNoFrameIsReported ) {
   EXPECT_EQ( decode( { "0180" } ), Exit::failed );
   EXPECT_EQ( err, "valenctl: frame of 2 bytes; expected at least 14, an Ethernet header\n" );
   EXPECT_EQ( decode( { "--pcap", "/nowhere/x" } ), Exit::failed );
   EXPECT_THAT( err, HasSubstr( "/nowhere/x: " ) );
   EXPECT_EQ( decode( {} ), Exit::usage );
}

// What valenctl builds are goodbyes, and malformed in nothing.
TEST_F( FrameDecodeTest, EachKindIsAGoodbye ) {
   std::vector< Words > const kinds{
      { "lldp", "--mac", "02:00:00:00:00:01", "--port-id", "name:eth1" },
      { "ra", "--mac", "02:00:00:00:00:01", "--ip", "fe80::1" },
      { "vrrp2", "--ip", "192.0.2.1", "--vrid", "7", "--address", "192.0.2.254" },
      { "vrrp3", "--ip", "192.0.2.1", "--vrid", "7", "--address", "192.0.2.254" },
      { "vrrp3", "--ip", "fe80::1", "--vrid", "7", "--address", "fe80::7" },
      { "pim", "--mac", "02:00:00:00:00:01", "--ip", "192.0.2.1" },
      { "pim", "--mac", "02:00:00:00:00:01", "--ip", "fe80::1", "--ipv6" },
      { "ospf", "--mac", "02:00:00:00:00:01", "--ip", "192.0.2.1/24", "--router-id", "192.0.2.1" },
      { "igmp", "--mac", "02:00:00:00:00:01", "--ip", "192.0.2.1", "--version", "2", "--group",
        "239.1.1.1" },
      { "igmp", "--mac", "02:00:00:00:00:01", "--ip", "192.0.2.1", "--version", "3", "--group",
        "239.1.1.1" },
      { "mdns", "--mac", "02:00:00:00:00:01", "--ip", "192.0.2.1", "--name", "router.local" },
      { "rip", "--mac", "02:00:00:00:00:01", "--ip", "192.0.2.1", "--route", "198.51.100.0/24" },
      { "oam", "--mac", "02:00:00:00:00:01" },
      { "lacp", "--mac", "02:00:00:00:00:01" } };
   for ( auto words : kinds ) {
      auto const kind = words.front();
      words.insert( words.begin(), "frame" );
      ASSERT_EQ( run( words ), Exit::done ) << kind << err;
      EXPECT_EQ( decode( { out.substr( 0, out.find( '\n' ) ) } ), Exit::done ) << kind;
      EXPECT_THAT( out, EndsWith( "; a goodbye\n" ) ) << kind;
   }
}

} // namespace
} // namespace Valenctl::Test
