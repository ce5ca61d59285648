#include "tests/valend/api/ApiFixture.h"

namespace Valend {
namespace {

using namespace Test;
using ::testing::ElementsAre;

class LinkMethodsTest : public ApiFixture {
 protected:
   LinkMethodsTest() { startPublishing( twoInterfaces() ); }
};

TEST_F( LinkMethodsTest, InterfacesAreListedAllOrOfAVrf ) {
   auto const names = [ & ]( Json const & parameters ) {
      return call( "List", parameters )->parameters()[ "interfaces" ];
   };
   EXPECT_EQ( names( Json::object() ), Json( { "Ethernet1", "Ethernet2" } ) );
   EXPECT_EQ( names( { { "vrf", "red" } } ), Json::array( { "Ethernet2" } ) );
   EXPECT_EQ( names( { { "vrf", "default" } } ), Json::array( { "Ethernet1" } ) );
   EXPECT_EQ( names( { { "interfaces", { "Ethernet2", "Ethernet2" } } } ),
              Json::array( { "Ethernet2" } ) );
   EXPECT_EQ( names( { { "device", "et1" } } ), Json::array( { "Ethernet1" } ) );
   EXPECT_EQ( names( { { "device", "et9" } } ), Json::array() );
   kernel.deviceDel( "default", "et1" );
   EXPECT_EQ( names( { { "ready", true } } ), Json::array( { "Ethernet2" } ) );
}

TEST_F( LinkMethodsTest, SeveralAreShutDownTogetherAndTheStepsComeAsTheyHappen ) {
   auto const answers = call( "ShutdownMany", Json::object(), true );
   advance( 600ms );
   std::vector< std::string > steps;
   for ( auto const & message : answers->messages ) {
      for ( auto const & step : message[ "parameters" ][ "steps" ] ) {
         steps.push_back( step[ "shutdown" ][ "interface" ].get< std::string >() + " " +
                          step[ "step" ].get< std::string >() );
      }
   }
   EXPECT_THAT( steps, ElementsAre( "Ethernet1 sent", "Ethernet1 delayed", "Ethernet2 sent",
                                    "Ethernet2 delayed", "Ethernet1 ended", "Ethernet2 ended" ) );
   EXPECT_EQ( answers->messages.front()[ "parameters" ][ "pending" ], 2 );
   EXPECT_EQ( answers->messages.front()[ "continues" ], true );
   EXPECT_EQ( answers->messages.back()[ "parameters" ][ "pending" ], 0 );
   EXPECT_TRUE( answers->last );
   EXPECT_THAT( kernel.actions, ElementsAre( "down default/et1", "down ns-red/et2" ) );
}

TEST_F( LinkMethodsTest, WithoutMoreSeveralAreAnsweredOnceAllAreInProgress ) {
   auto const answers = call( "ShutdownMany", { { "vrf", nullptr } } );
   ASSERT_EQ( answers->messages.size(), 1u );
   EXPECT_EQ( answers->parameters()[ "steps" ].size(), 2u );
   EXPECT_EQ( answers->parameters()[ "pending" ], 2 );
   EXPECT_TRUE( answers->last );
   advance( 600ms );
   EXPECT_EQ( answers->messages.size(), 1u );
}

TEST_F( LinkMethodsTest, OneThatCannotBeEnabledDoesNotKeepTheOthersDown ) {
   kernel.deviceDel( "default", "et1" );
   kernel.at( "ns-red", "et2" ).up = false;
   auto const results = call( "EnableMany", Json::object() )->parameters()[ "results" ];
   EXPECT_EQ(
      results,
      ( Json{
         { { "interface", "Ethernet1" }, { "result", "failed" }, { "message", "no device et1" } },
         { { "interface", "Ethernet2" }, { "result", "up" }, { "message", nullptr } } } ) );
}

TEST_F( LinkMethodsTest, JoiningAShutdownAnswersWhatIsLeftOfIt ) {
   Json const first{ { "interface", "Ethernet1" } };
   EXPECT_EQ( call( "Shutdown", first )->parameters()[ "delayMs" ], 500 );
   advance( 200ms );
   EXPECT_EQ( call( "Shutdown", first, false, 2 )->parameters()[ "delayMs" ], 300 );
}

TEST_F( LinkMethodsTest, EnableAnswersWhatItDid ) {
   Json const first{ { "interface", "Ethernet1" } };
   auto const enable = [ & ] { return call( "Enable", first )->parameters()[ "result" ]; };
   EXPECT_EQ( enable(), "already-up" );
   call( "Shutdown", first );
   EXPECT_EQ( enable(), "aborted" );
   kernel.at( "default", "et1" ).up = false;
   EXPECT_EQ( enable(), "up" );
}

} // namespace
} // namespace Valend
