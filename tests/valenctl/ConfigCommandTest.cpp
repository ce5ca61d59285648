#include "valenctl/ConfigCommand.h"

#include <cstdio>
#include <fstream>
#include <gmock/gmock.h>
#include <sstream>

namespace Valenctl {
namespace {

class ConfigCommandTest : public ::testing::Test {
 protected:
   ~ConfigCommandTest() override { std::remove( options.file.c_str() ); }

   Exit check( std::string const & config ) {
      options.file = ::testing::TempDir() + "valenctl-config.yaml";
      std::ofstream( options.file ) << config;
      return checkConfig( options, out, err );
   }

   Options options;
   std::ostringstream out;
   std::ostringstream err;
};

TEST_F( ConfigCommandTest, AConfigurationInOrderIsSummedUp ) {
   EXPECT_EQ( check( "interfaces: [{name: et1}]" ), Exit::done );
   EXPECT_EQ( out.str(), options.file + ": in order; 1 interface, 1 VRF, 0 agents\n" );
   EXPECT_EQ( err.str(), "" );
}

TEST_F( ConfigCommandTest, EachErrorIsALine ) {
   EXPECT_EQ( check( "interfaces: [{name: et1, vrf: a}, {name: et2, vrf: b}]" ), Exit::refused );
   EXPECT_EQ( out.str(), "" );
   EXPECT_EQ( err.str(), options.file +
                            ":1:31: unknown VRF \"a\"; expected \"default\" or one of \"vrfs\"\n" +
                            options.file +
                            ":1:52: unknown VRF \"b\"; expected \"default\" or one of \"vrfs\"\n" );
}

TEST_F( ConfigCommandTest, ErrorsAreJsonToo ) {
   options.json = true;
   EXPECT_EQ( check( "interfaces: [{name: et1, vrf: a}]" ), Exit::refused );
   EXPECT_EQ( Json::parse( out.str() ),
              ( Json{ { "inOrder", false },
                      { "files", { options.file } },
                      { "errors",
                        { { { "file", options.file },
                            { "line", 1 },
                            { "column", 31 },
                            { "text", "unknown VRF \"a\"; expected \"default\" or one of "
                                      "\"vrfs\"" } } } } } ) );
   EXPECT_EQ( err.str(), "" );
   out.str( "" );
   EXPECT_EQ( check( "" ), Exit::done );
   EXPECT_EQ( Json::parse( out.str() )[ "inOrder" ], true );
}

TEST_F( ConfigCommandTest, WhatIsInForceIsATableWithItsPlaces ) {
   Json const place{ { "file", "/etc/valen/valen.yaml" }, { "line", 8 }, { "column", 3 } };
   Json const answer{
      { "files", { "/etc/valen/valen.yaml" } },
      { "settings",
        { { { "name", "shutdown-delay-ms" },
            { "value", nullptr },
            { "origin", "default" },
            { "place", nullptr } },
          { { "name", "socket" },
            { "value", "/s" },
            { "origin", "command-line" },
            { "place", nullptr } },
          { { "name", "trace.ring" },
            { "value", nullptr },
            { "origin", "default" },
            { "place", nullptr } } } },
      { "vrfs", { { { "name", "red" }, { "namespace", "n" }, { "place", place } } } },
      { "interfaces",
        { { { "name", "Ethernet1" },
            { "device", "et1" },
            { "vrf", "red" },
            { "shutdownDelay", false },
            { "place", place } } } },
      { "messages",
        { { { "agent", "lldp" },
            { "interface", "Ethernet1" },
            { "frames", { "0102", "03" } },
            { "place", place } } } } };
   EXPECT_EQ(
      configText( answer ),
      "ITEM                             VALUE                                   FROM\n"
      "shutdown-delay-ms                off                                     by default\n"
      "socket                           /s                                      the command line\n"
      "trace.ring                       none                                    by default\n"
      "VRF red                          namespace n                             "
      "/etc/valen/valen.yaml:8\n"
      "interface Ethernet1              device et1, VRF red, no shutdown delay  "
      "/etc/valen/valen.yaml:8\n"
      "interface Ethernet1, agent lldp  2 frames, 3 bytes                       "
      "/etc/valen/valen.yaml:8\n" );
}

} // namespace
} // namespace Valenctl
