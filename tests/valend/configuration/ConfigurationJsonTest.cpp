#include "valend/configuration/ConfigurationJson.h"

#include "platform/trace/Trace.h"
#include "settings/ConfigReader.h"
#include "settings/Overlay.h"

#include <cstdlib>
#include <gtest/gtest.h>

namespace Valend {
namespace {

using Json = nlohmann::json;

class ConfigurationJsonTest : public ::testing::Test {
 protected:
   ~ConfigurationJsonTest() override { Quill::traceLevelsIs( "" ); }

   // The configuration as it is after a start with `text`.
   static ActiveConfiguration active( std::string const & text,
                                      Settings::ProcessConfig commandLine = {} ) {
      auto read = Settings::parseConfig( text, "f" );
      EXPECT_TRUE( read.errors.empty() );
      ActiveConfiguration active;
      active.plan = std::make_shared< Plan const >( read.config );
      active.sources = active.processSources =
         std::make_shared< Settings::Sources const >( read.sources );
      active.commandLine = std::move( commandLine );
      active.process = active.wanted();
      return active;
   }
   static Json settingOf( ActiveConfiguration const & active, std::string const & name ) {
      auto const json = settingsJson( active );
      for ( auto const & setting : json.at( "settings" ) ) {
         if ( setting[ "name" ] == name ) {
            return setting;
         }
      }
      return Json();
   }
   static Json all( JsonList const & next ) {
      auto list = Json::array();
      while ( auto const element = next() ) {
         list.push_back( *element );
      }
      return list;
   }
   static Json place( int line, int column ) {
      return { { "file", "f" }, { "line", line }, { "column", column }, { "database", false } };
   }
};

TEST_F( ConfigurationJsonTest, VrfsInterfacesAndMessagesHaveTheirPlaces ) {
   auto const configuration = active( R"(vrfs:
- {name: red, namespace: ns-red}
interfaces:
- {name: Ethernet1, device: et1, vrf: red, shutdown-delay: false, goodbyes: [ra, lldp]}
- {name: Ethernet2}
agents:
- name: lldp
  messages:
    Ethernet1: [0180c200000e02000000000188cc]
- name: radv
- name: ospf
  messages: {Ethernet1: [0180c200000e02000000000188cc]}
)" );
   auto const json = settingsJson( configuration );
   EXPECT_EQ( json[ "files" ], Json( { "f" } ) );
   EXPECT_EQ( json[ "vrfs" ], Json::array( { { { "name", "red" },
                                               { "namespace", "ns-red" },
                                               { "place", place( 2, 10 ) } } } ) );
   EXPECT_EQ( all( configuredInterfaces( configuration ) ),
              Json::array( { { { "name", "Ethernet1" },
                               { "device", "et1" },
                               { "vrf", "red" },
                               { "shutdownDelay", false },
                               { "goodbyes", "[lldp, ra]" },
                               { "place", place( 4, 10 ) } },
                             { { "name", "Ethernet2" },
                               { "device", "Ethernet2" },
                               { "vrf", "default" },
                               { "shutdownDelay", true },
                               { "goodbyes", nullptr },
                               { "place", place( 5, 10 ) } } } ) );
   auto const message = []( char const * agent, Json const & where ) {
      return Json{ { "agent", agent },
                   { "interface", "Ethernet1" },
                   { "frames", Json( { "0180c200000e02000000000188cc" } ) },
                   { "place", where } };
   };
   EXPECT_EQ(
      all( configuredMessages( configuration ) ),
      Json::array( { message( "lldp", place( 9, 5 ) ), message( "ospf", place( 12, 14 ) ) } ) );
}

TEST_F( ConfigurationJsonTest, AListIsOfOneConfigurationWhateverBecomesActive ) {
   auto configuration = active( "interfaces: [{name: a}, {name: b}]" );
   auto const next = configuredInterfaces( configuration );
   EXPECT_EQ( ( *next() )[ "name" ], "a" );
   configuration = active( "interfaces: [{name: c}]" );
   EXPECT_EQ( ( *next() )[ "name" ], "b" );
   EXPECT_EQ( next(), std::nullopt );
}

TEST_F( ConfigurationJsonTest, EverySettingIsListed ) {
   auto const json = settingsJson( active( "" ) );
   ASSERT_EQ( json[ "settings" ].size(), Settings::processSettings.size() + 2 );
   EXPECT_EQ( json[ "settings" ][ 0 ], ( Json{ { "name", "shutdown-delay-ms" },
                                               { "value", nullptr },
                                               { "origin", "default" },
                                               { "place", nullptr } } ) );
   EXPECT_EQ( json[ "settings" ][ 1 ], ( Json{ { "name", "goodbyes" },
                                               { "value", "off" },
                                               { "origin", "default" },
                                               { "place", nullptr } } ) );
   for ( auto const & setting : Settings::processSettings ) {
      EXPECT_FALSE( settingOf( active( "" ), std::string( setting.name ) ).is_null() );
   }
}

TEST_F( ConfigurationJsonTest, ASettingSaysWhereItComesFrom ) {
   Settings::ProcessConfig commandLine;
   commandLine.valueIs( "trace.file", "/line" );
   auto const configuration = active(
      "shutdown-delay-ms: 5\nsocket: /s\ntrace: {file: /f}\ngoodbyes: learned", commandLine );
   EXPECT_EQ( settingOf( configuration, "shutdown-delay-ms" ),
              ( Json{ { "name", "shutdown-delay-ms" },
                      { "value", "5" },
                      { "origin", "file" },
                      { "place", place( 1, 20 ) } } ) );
   EXPECT_EQ( settingOf( configuration, "goodbyes" ), ( Json{ { "name", "goodbyes" },
                                                              { "value", "learned" },
                                                              { "origin", "file" },
                                                              { "place", place( 4, 11 ) } } ) );
   EXPECT_EQ( settingOf( configuration, "socket" ), ( Json{ { "name", "socket" },
                                                            { "value", "/s" },
                                                            { "origin", "file" },
                                                            { "place", place( 2, 9 ) } } ) );
   EXPECT_EQ( settingOf( configuration, "trace.file" ), ( Json{ { "name", "trace.file" },
                                                                { "value", "/line" },
                                                                { "origin", "command-line" },
                                                                { "place", nullptr } } ) );
   EXPECT_EQ( settingOf( configuration, "admin-group" ), ( Json{ { "name", "admin-group" },
                                                                 { "value", "valen-admin" },
                                                                 { "origin", "default" },
                                                                 { "place", nullptr } } ) );
   EXPECT_EQ( settingOf( configuration, "metrics-file" )[ "value" ], nullptr );
}

TEST_F( ConfigurationJsonTest, WhatIsOfTheDatabaseHasItsKeyAsThePlace ) {
   auto configuration = active( "shutdown-delay-ms: 5\ninterfaces: [{name: a}]" );
   Settings::Overlay overlay;
   overlay.change( { { "config:delay", Settings::Fields{ { "shutdown-delay-ms", "7" } } },
                     { "config:interface:b", Settings::Fields() } } );
   auto const layered = overlay.settle( configuration.config(), *configuration.sources );
   configuration.plan = std::make_shared< Plan const >( layered.config );
   configuration.sources = std::make_shared< Settings::Sources const >( layered.sources );
   auto const ofDatabase = []( char const * key ) {
      return Json{ { "file", key }, { "line", 0 }, { "column", 0 }, { "database", true } };
   };
   EXPECT_EQ( settingOf( configuration, "shutdown-delay-ms" ),
              ( Json{ { "name", "shutdown-delay-ms" },
                      { "value", "7" },
                      { "origin", "database" },
                      { "place", ofDatabase( "config:delay" ) } } ) );
   auto const interfaces = all( configuredInterfaces( configuration ) );
   ASSERT_EQ( interfaces.size(), 2u );
   EXPECT_EQ( interfaces[ 0 ][ "place" ][ "database" ], false );
   EXPECT_EQ( interfaces[ 1 ][ "place" ], ofDatabase( "config:interface:b" ) );
}

TEST_F( ConfigurationJsonTest, APasswordIsNotShown ) {
   auto const configuration =
      active( "database: {server: 'redis://u:secret@h'}\nmax-shutdown-delay-ms: 5" );
   EXPECT_EQ( settingOf( configuration, "database.server" )[ "value" ], "redis://u:***@h" );
   auto next = configuration;
   next.plan = active( "max-shutdown-delay-ms: 6" ).plan;
   EXPECT_EQ( settingOf( next, "max-shutdown-delay-ms" )[ "value" ], "6" )
      << "it takes effect at once";
}

TEST_F( ConfigurationJsonTest, AfterAReloadASettingOfTheNextStartIsShownAsItIsUsed ) {
   auto configuration = active( "socket: /a" );
   auto const next = Settings::parseConfig( "# moved\nsocket: /b", "f" );
   configuration.plan = std::make_shared< Plan const >( next.config );
   configuration.sources = std::make_shared< Settings::Sources const >( next.sources );
   auto const socket = settingOf( configuration, "socket" );
   EXPECT_EQ( socket[ "value" ], "/a" );
   EXPECT_EQ( socket[ "place" ], place( 1, 9 ) );
}

TEST_F( ConfigurationJsonTest, TraceLevelsAreShownAsTheyAreNow ) {
   Quill::traceLevelsIs( "VrfSm/1" );
   auto const levels = settingOf( active( "trace: {levels: IntfSm/0}" ), "trace.levels" );
   EXPECT_EQ( levels[ "value" ], "VrfSm/1" );
   EXPECT_EQ( levels[ "origin" ], "file" );
}

TEST_F( ConfigurationJsonTest, ADefaultOfTheSystemIsShown ) {
   ::setenv( "STATE_DIRECTORY", "/var/lib/one", 1 );
   auto const setting = settingOf( active( "" ), "state-directory" );
   ::unsetenv( "STATE_DIRECTORY" );
   EXPECT_EQ( setting[ "value" ], "/var/lib/one" );
   EXPECT_EQ( setting[ "origin" ], "default" );
}

} // namespace
} // namespace Valend
