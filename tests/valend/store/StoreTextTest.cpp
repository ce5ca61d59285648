#include "valend/store/StoreView.h"

#include "tests/valend/DaemonFixture.h"

#include <nlohmann/json.hpp>

namespace Valend {
namespace {

using namespace Test;
using Json = nlohmann::json;

class StoreTextTest : public DaemonFixture {
 protected:
   StoreTextTest() {
      auto config = twoInterfaces();
      config.interfaces[ "Ethernet3/1" ] = { "Ethernet3/1", "et31", "default", false };
      config.agents[ "lldp" ][ "Ethernet3/1" ] = { "only text here" };
      start( config );
   }
   Json show( std::string const & path ) {
      StoreTexts texts( clock.scheduler(), work );
      StoreView view( *store.entityManager, texts, path, [] {} );
      auto const text = view.text();
      return text ? Json::parse( *text ) : "nothing";
   }
};

TEST_F( StoreTextTest, TheWholeStoreIsAnObjectOfItsDirectories ) {
   auto const whole = show( "" );
   EXPECT_EQ( whole[ "status" ][ "agentActive" ], true );
   EXPECT_EQ( whole[ "config" ][ "valen" ][ "globalConfig" ], "-> Valen::Config::GlobalConfig" );
   EXPECT_EQ( show( "/" ), whole );
}

TEST_F( StoreTextTest, AttributesAndMembersAreReachedByName ) {
   EXPECT_EQ( show( "status/agentActive" ), true );
   EXPECT_EQ(
      show( "status/intfStatus/Ethernet1" ),
      ( Json{ { "intfId", "Ethernet1" }, { "delayed", false }, { "shouldDelay", true } } ) );
   EXPECT_EQ( show( "status/intfStatus/Ethernet1/shouldDelay" ), true );
   EXPECT_EQ( show( "/status/intfStatus/Ethernet1/" ), show( "status/intfStatus/Ethernet1" ) );
}

TEST_F( StoreTextTest, KeysMayHoldSlashes ) {
   EXPECT_EQ( show( "interface/config/intfConfig/Ethernet3/1/adminShutdownDelaySupported" ),
              false );
   EXPECT_EQ( show( "interface/config/intfConfig/Ethernet3/1" )[ "intfId" ], "Ethernet3/1" );
}

TEST_F( StoreTextTest, ReferencesAreFollowedWhenAskedForAndNamedOtherwise ) {
   EXPECT_EQ( show( "config/valen/globalConfig/shutdownDelayMs" ), 500 );
   EXPECT_EQ( show( "model/interfaces/intf/Ethernet1/intfConfig" ),
              "-> Interface::IntfConfig Ethernet1" );
   EXPECT_EQ( show( "model/interfaces/intf/Ethernet1/intfConfig/intfId" ), "Ethernet1" );
}

TEST_F( StoreTextTest, QueuesAreArraysAndBytesThatAreNoTextAreHexadecimal ) {
   EXPECT_EQ( show( "config/agents/lldp/messages/message/Ethernet3/1/message" ),
              ( Json::array( { "only text here" } ) ) );
   auto config = twoInterfaces();
   config.agents[ "lldp" ][ "Ethernet1" ] = { std::string( "\x01\x80\xc2", 3 ) };
   feeder.apply( config );
   EXPECT_EQ( show( "config/agents/lldp/messages/message/Ethernet1/message/0" ), "0x0180c2" );
}

TEST_F( StoreTextTest, MountedEntitiesAreShownByTheirPath ) {
   auto const status = show( "kni/ns/ns-red/status" );
   EXPECT_EQ( status[ "netNsName" ], "ns-red" );
   EXPECT_EQ( show( "kni/ns/ns-red/status/interface/7/deviceName" ), "et2" );
}

TEST_F( StoreTextTest, WhatIsNotThereIsNothing ) {
   for ( auto const * path :
         { "nowhere", "status/nothing", "status/intfStatus/Ethernet9", "status/agentActive/x",
           "kni/ns/other/status", "config//agents", "status/intfStatus/Ethernet1/delayed/x" } ) {
      EXPECT_EQ( show( path ), "nothing" ) << path;
   }
}

} // namespace
} // namespace Valend
