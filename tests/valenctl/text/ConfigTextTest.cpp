#include "valenctl/text/ConfigText.h"

#include "settings/ConfigReader.h"

#include <gtest/gtest.h>

namespace Valenctl {
namespace {

TEST( ConfigTextTest, EachItemIsALineWithItsSource ) {
   Json const place{ { "file", "/etc/valen/valen.yaml" }, { "line", 8 }, { "column", 3 } };
   auto const setting = []( char const * name, Json const & value, char const * origin ) {
      return Json{ { "name", name }, { "value", value }, { "origin", origin } };
   };
   Json const answer{
      { "files", { "/etc/valen/valen.yaml" } },
      { "settings",
        { setting( "shutdown-delay-ms", nullptr, "default" ),
          setting( "socket", "/s", "command-line" ),
          setting( "trace.ring", nullptr, "default" ) } },
      { "vrfs", { { { "name", "red" }, { "namespace", "n" }, { "place", place } } } },
      { "interfaces",
        { { { "name", "Ethernet1" },
            { "device", "et1" },
            { "vrf", "red" },
            { "shutdownDelay", false },
            { "goodbyes", nullptr },
            { "place", place } },
          { { "name", "Ethernet2" },
            { "device", "et2" },
            { "vrf", "red" },
            { "shutdownDelay", true },
            { "goodbyes", "[lldp]" },
            { "place", place } } } },
      { "messages",
        { { { "agent", "lldp" },
            { "interface", "Ethernet1" },
            { "frames", { "0102", "03" } },
            { "place", place } } } } };
   EXPECT_EQ( configText( answer ),
              "ITEM                             VALUE                                   SOURCE\n"
              "shutdown-delay-ms                off                                     default\n"
              "socket                           /s                                      command "
              "line\n"
              "trace.ring                       none                                    default\n"
              "VRF red                          namespace n                             "
              "/etc/valen/valen.yaml:8\n"
              "interface Ethernet1              device et1, VRF red, no shutdown delay  "
              "/etc/valen/valen.yaml:8\n"
              "interface Ethernet2              device et2, VRF red, goodbyes [lldp]    "
              "/etc/valen/valen.yaml:8\n"
              "interface Ethernet1, agent lldp  2 frames, 3 bytes                       "
              "/etc/valen/valen.yaml:8\n" );
}

TEST( ConfigTextTest, WhatIsOfTheDatabaseHasItsKeyAsTheSource ) {
   Json const place{
      { "file", "config:vrf:red" }, { "line", 0 }, { "column", 0 }, { "database", true } };
   Json const answer{
      { "settings", Json::array() },
      { "vrfs", { { { "name", "red" }, { "namespace", "n" }, { "place", place } } } },
      { "interfaces", Json::array() },
      { "messages", Json::array() } };
   EXPECT_EQ( configText( answer ), "ITEM     VALUE        SOURCE\n"
                                    "VRF red  namespace n  database, config:vrf:red\n" );
}

TEST( ConfigTextTest, ACheckIsJsonWithAllErrors ) {
   auto const valid = checkJson( Settings::parseConfig( "interfaces: [{name: et1}]", "f" ) );
   EXPECT_EQ( valid.at( "valid" ), true );
   EXPECT_EQ( valid.at( "errors" ), Json::array() );
   auto const invalid =
      checkJson( Settings::parseConfig( "interfaces: [{name: et1, vrf: a}]", "f" ) );
   EXPECT_EQ( invalid.at( "valid" ), false );
   ASSERT_EQ( invalid.at( "errors" ).size(), 1u );
   auto const & error = invalid.at( "errors" ).at( 0 );
   EXPECT_EQ( error.at( "file" ), "f" );
   EXPECT_EQ( error.at( "line" ), 1 );
   EXPECT_EQ( error.at( "column" ), 31 );
   EXPECT_NE( error.at( "text" ).get< std::string >().find( "\"a\"" ), std::string::npos );
}

} // namespace
} // namespace Valenctl
