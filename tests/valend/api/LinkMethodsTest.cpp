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
   auto const answers = call( "ShutdownMany", { { "all", true } }, true );
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
   auto const answers = call( "ShutdownMany", { { "vrf", nullptr }, { "all", true } } );
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
   auto const results = call( "EnableMany", { { "all", true } } )->parameters()[ "results" ];
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

// A misspelled or forgotten selector must not shut everything down.
TEST_F( LinkMethodsTest, WithoutASelectorNothingIsDone ) {
   for ( auto const * const method : { "ShutdownMany", "EnableMany", "Goodbye" } ) {
      for ( auto const & parameters :
            { Json::object(), Json{ { "all", false } }, Json{ { "ready", false } },
              Json{ { "interfaces", nullptr }, { "vrf", nullptr } },
              Json{ { "all", true }, { "interfaces", { "Ethernet1" } } },
              Json{ { "all", true }, { "ready", true } } } ) {
         EXPECT_EQ( call( method, parameters )->error(),
                    "org.valen.daemon.BadSelection: no interfaces selected: give interfaces, vrf, "
                    "device or ready; or all, alone, for all interfaces" )
            << method << parameters;
      }
      call( method, { { "interfaces", Json::array() } } );
   }
   advance( 600ms );
   EXPECT_EQ( controller.running(), 0u );
   EXPECT_THAT( kernel.actions, ::testing::IsEmpty() );
   EXPECT_THAT( sentFrames(), ::testing::IsEmpty() );
}

TEST_F( LinkMethodsTest, AReasonIsKept ) {
   call( "Shutdown", { { "interface", "Ethernet1" }, { "reason", "new optics, \u00e9" } } );
   advance( 600ms );
   EXPECT_EQ( controller.history().back().request.reason, "new optics, \u00e9" );
   for ( auto const & [ reason, where ] : std::vector< std::pair< std::string, std::string > >{
            { "", "" },
            { "two\nlines", ": character 4 is U+000A" },
            { "\x7f", ": character 1 is U+007F" },
            { "\xc2\x85", ": character 1 is U+0085" },
            { "\u202e", ": character 1 is U+202E" },
            { std::string( 256, 'x' ), "" } } ) {
      EXPECT_EQ( call( "ShutdownMany", { { "all", true }, { "reason", reason } } )->error(),
                 "org.valen.daemon.BadReason: a reason must have 1 to 255 bytes, without control "
                 "characters" +
                    where );
   }
   EXPECT_EQ( controller.running(), 0u );
}

TEST_F( LinkMethodsTest, TheCallersNameIsKept ) {
   callAs( { 1, 1, { 4002 } }, "org.valen.daemon.Shutdown", { { "interface", "Ethernet1" } } );
   callAs( { 4'000'000, 1, { 4002 } }, "org.valen.daemon.Shutdown",
           { { "interface", "Ethernet2" } } );
   callAs( { 1, 1, { 4002 } }, "org.valen.daemon.Enable", { { "interface", "Ethernet2" } } );
   EXPECT_EQ( controller.history().back().request.by, "uid 4000000" );
   EXPECT_EQ( controller.history().back().why, "enabled by daemon after 0 ms" );
   advance( 600ms );
   EXPECT_EQ( controller.history().back().request.by, "daemon" );
}

TEST_F( LinkMethodsTest, ADelayIsRequestedUpToTheLimit ) {
   auto const request = [ & ]( int delayMs ) {
      return call( "Shutdown", { { "interface", "Ethernet1" }, { "delayMs", delayMs } } );
   };
   EXPECT_EQ( request( 10'001 )->error(),
              "org.valen.daemon.DelayTooLong: a delay of 10001 ms exceeds the limit of 10000 ms "
              "(max-shutdown-delay-ms)" );
   EXPECT_EQ( request( -1 )->error(),
              "org.varlink.service.InvalidParameter: {\"parameter\":\"delayMs\"}" );
   EXPECT_FALSE( controller.running( "Ethernet1" ) );
   EXPECT_EQ( request( 10'000 )->parameters()[ "delayMs" ], 10'000 );
   EXPECT_EQ( controller.remaining( "Ethernet1" ), 10'000ms );
   auto const joined = call( "Shutdown", { { "interface", "Ethernet1" }, { "delayMs", 1 } } );
   EXPECT_EQ( joined->parameters()[ "delayMs" ], 10'000 ) << "it joins; the delay does not change";
   EXPECT_EQ( joined->parameters()[ "shutdown" ][ "requestedDelayMs" ], 10'000 );
}

TEST_F( LinkMethodsTest, GoodbyeAnswersWhenTheFramesHaveLeft ) {
   kernel.outstanding = 64;
   auto const answers = call( "Goodbye", { { "all", true }, { "reason", "ports move" } } );
   EXPECT_TRUE( answers->messages.empty() );
   kernel.outstanding = 0;
   advance( 10ms );
   ASSERT_EQ( answers->messages.size(), 1u );
   auto const & results = answers->parameters()[ "results" ];
   ASSERT_EQ( results.size(), 2u );
   EXPECT_EQ( results[ 0 ][ "interface" ], "Ethernet1" );
   EXPECT_EQ( results[ 0 ][ "result" ], "sent" );
   EXPECT_EQ( results[ 0 ][ "goodbye" ][ "sent" ], 2 );
   EXPECT_EQ( results[ 0 ][ "goodbye" ][ "reason" ], "ports move" );
   EXPECT_EQ( results[ 1 ][ "goodbye" ][ "ending" ], "goodbye" );
   EXPECT_THAT( kernel.actions, ::testing::IsEmpty() );
}

TEST_F( LinkMethodsTest, GoodbyeAnswersWhyNothingWasSent ) {
   kernel.at( "default", "et1" ).up = false;
   kernel.deviceDel( "ns-red", "et2" );
   auto const answers = call( "Goodbye", { { "all", true } } );
   ASSERT_EQ( answers->messages.size(), 1u );
   auto const & results = answers->parameters()[ "results" ];
   EXPECT_EQ( results[ 0 ][ "result" ], "already-down" );
   EXPECT_EQ( results[ 1 ][ "result" ], "not-ready" );
   EXPECT_EQ( results[ 1 ][ "message" ], "interface not ready" );
   EXPECT_THAT( sentFrames(), ::testing::IsEmpty() );
}

TEST_F( LinkMethodsTest, AGoodbyeWhoseFramesAreRejectedFails ) {
   sent.failingSends = { 1 };
   auto const answers = call( "Goodbye", { { "interfaces", { "Ethernet1" } } } );
   auto const & result = answers->parameters()[ "results" ][ 0 ];
   EXPECT_EQ( result[ "result" ], "failed" );
   EXPECT_EQ( result[ "goodbye" ][ "failed" ], 1 );
}

} // namespace
} // namespace Valend
