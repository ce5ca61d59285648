#include "tests/valend/api/ApiFixture.h"

#include "settings/Hex.h"

namespace Valend {
namespace {

using namespace Test;
using Settings::toHex;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class AgentApiTest : public ApiFixture {
 protected:
   AgentApiTest() { startPublishing( twoInterfaces() ); }

   static std::string hex( char last ) { return toHex( frame( last ) ); }
};

// --- Who may what --------------------------------------------------------------------------------

TEST_F( AgentApiTest, ReadingTakesAGroupAndChangingAnother ) {
   auto const error = [ & ]( std::vector< U32 > groups, char const * method ) {
      auto const answers =
         callAs( { 1000, 1, std::move( groups ) }, method, { { "interface", "Ethernet1" } } );
      return answers->messages.at( 0 ).contains( "error" ) ? answers->error() : "none";
   };
   auto const * const read = "org.valen.daemon.Status";
   auto const * const change = "org.valen.daemon.Enable";
   EXPECT_EQ( error( { 1000, 4001 }, read ), "none" );
   EXPECT_EQ( error( { 4001 }, read ), "none" ) << "the first group counts like any other";
   EXPECT_EQ( error( { 1000, 4002 }, read ), "none" );
   EXPECT_EQ( error( { 1000, 4002 }, change ), "none" );
   EXPECT_EQ(
      error( { 1000, 4001 }, change ),
      "org.varlink.service.PermissionDenied: uid 1000 may not call org.valen.daemon.Enable: "
      "that takes root or the group \"4002\"" );
   EXPECT_EQ(
      error( { 1000 }, read ),
      "org.varlink.service.PermissionDenied: uid 1000 may not call org.valen.daemon.Status: "
      "that takes root or a group, \"4001\" or \"4002\"" );
   EXPECT_EQ( error( {}, "org.varlink.service.GetInfo" ), "none" );
}

TEST_F( AgentApiTest, SettingTraceLevelsIsAChange ) {
   Varlink::Caller const reader{ 1000, 1, { 4001 } };
   auto const * const method = "org.valen.daemon.TraceLevels";
   EXPECT_EQ( callAs( reader, method, Json::object() )->parameters()[ "levels" ], "*/0-1" );
   EXPECT_THAT( callAs( reader, method, { { "levels", "*/0" } } )->error(),
                HasSubstr( "PermissionDenied: uid 1000" ) );
   EXPECT_EQ( call( "TraceLevels", { { "levels", "*/0" } } )->parameters()[ "levels" ], "*/0" );
   EXPECT_THAT( call( "TraceLevels", { { "levels", "x" } } )->error(),
                HasSubstr( "org.valen.daemon.BadTraceLevels: " ) );
}

TEST( ApiAccessTest, AGroupThatIsNotThereHasNoMembers ) {
   Access const access( "valen-no-such-group", "valen-none-either" );
   EXPECT_EQ( access.of( { 1000, 1, { 1000 } } ), Right::none );
   EXPECT_EQ( access.of( { 0, 1, { 0 } } ), Right::change );
   Access const byName( "root", "daemon" );
   EXPECT_EQ( byName.of( { 1000, 1, { 0 } } ), Right::read );
   EXPECT_EQ( byName.of( { 1000, 1, { 1 } } ), Right::change );
}

TEST_F( AgentApiTest, MetricsAreOpenMetricsText ) {
   Varlink::Caller const reader{ 1000, 1, { 4001 } };
   auto const answers = callAs( reader, "org.valen.daemon.Metrics", Json::object() );
   auto const text = answers->parameters()[ "text" ].get< std::string >();
   EXPECT_THAT( text, HasSubstr( "\nvalen_interfaces 2\n" ) );
   EXPECT_THAT( text, ::testing::EndsWith( "# EOF\n" ) );
}

// --- Errors --------------------------------------------------------------------------------------

TEST_F( AgentApiTest, WhatIsNotThereIsRefusedByName ) {
   Json const nine{ { "interface", "Ethernet9" } };
   for ( auto const * method : { "Status", "Explain", "Shutdown", "Enable", "ListMessages" } ) {
      EXPECT_EQ( call( method, nine )->error(),
                 "org.valen.daemon.NoSuchInterface: interface \"Ethernet9\" is not configured" )
         << method;
   }
   EXPECT_EQ( call( "ShutdownMany", { { "interfaces", { "Ethernet1", "Ethernet9" } } } )->error(),
              "org.valen.daemon.NoSuchInterface: interface \"Ethernet9\" is not configured" );
   EXPECT_FALSE( controller.running( "Ethernet1" ) ) << "nothing is done when one name is wrong";
   EXPECT_EQ( call( "List", { { "vrf", "blue" } } )->error(),
              "org.valen.daemon.NoSuchVrf: VRF \"blue\" is not configured" );
   EXPECT_EQ( call( "Show", { { "path", "x" } } )->error(),
              "org.valen.daemon.NoSuchPath: no such path: \"x\"" );
   EXPECT_EQ( call( "Watch", { { "path", "x" } }, true )->error(),
              "org.valen.daemon.NoSuchPath: no such path: \"x\"" );
   EXPECT_EQ( call( "Juggle", nine )->error(),
              "org.varlink.service.MethodNotFound: {\"method\":\"org.valen.daemon.Juggle\"}" );
   EXPECT_EQ( callAs( {}, "a.b.C", nine )->error(),
              "org.varlink.service.InterfaceNotFound: {\"interface\":\"a.b\"}" );
}

TEST_F( AgentApiTest, ParametersOfAWrongTypeAreRefusedByName ) {
   auto const error = [ & ]( char const * method, Json const & parameters ) {
      return call( method, parameters )->error();
   };
   auto const bad = []( std::string const & name ) {
      return "org.varlink.service.InvalidParameter: {\"parameter\":\"" + name + "\"}";
   };
   EXPECT_EQ( error( "Shutdown", Json::object() ), bad( "interface" ) );
   EXPECT_EQ( error( "Shutdown", { { "interface", 7 } } ), bad( "interface" ) );
   EXPECT_EQ( error( "Status", { { "interface", { 1 } } } ), bad( "interface" ) );
   EXPECT_EQ( error( "ShutdownMany", { { "interfaces", "Ethernet1" } } ), bad( "interfaces" ) );
   EXPECT_EQ( error( "ShutdownMany", { { "interfaces", { 1 } } } ), bad( "interfaces" ) );
   EXPECT_EQ( error( "Trace", { { "lines", -1 } } ), bad( "lines" ) );
   EXPECT_EQ( error( "Trace", { { "lines", "1" } } ), bad( "lines" ) );
   EXPECT_EQ( error( "Wait", { { "interface", "Ethernet1" }, { "until", "noon" } } ),
              bad( "until" ) );
   EXPECT_EQ( error( "Publish", { { "agent", "a" },
                                  { "interface", "Ethernet1" },
                                  { "frames", { hex( 'x' ) } },
                                  { "lifetime", "long" } } ),
              bad( "lifetime" ) );
   EXPECT_EQ( error( "Watch", { { "path", "status" } } ),
              "org.varlink.service.ExpectedMore: org.valen.daemon.Watch goes on: call it with "
              "\"more\"" );
}

// --- Interfaces ----------------------------------------------------------------------------------

TEST_F( AgentApiTest, InterfacesAreListedAllOrOfAVrf ) {
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

TEST_F( AgentApiTest, ExplainTellsEachRequirement ) {
   auto const explain = [ & ]( char const * name ) {
      auto const answer = call( "Explain", { { "interface", name } } )->parameters();
      std::vector< std::string > lines{ answer[ "ready" ] ? "ready" : "not ready" };
      for ( auto const & each : answer[ "requirements" ] ) {
         lines.push_back( ( each[ "met" ] ? "+ " : "- " ) + each[ "what" ].get< std::string >() +
                          ": " + each[ "detail" ].get< std::string >() );
      }
      return lines;
   };
   EXPECT_THAT( explain( "Ethernet2" ),
                ElementsAre( "ready", "+ delay enabled: shutdown-delay-ms is 500",
                             "+ delay enabled for this interface: ", "+ frames queued: lldp 1",
                             "+ VRF ready: VRF red, namespace ns-red",
                             "+ device present: et2, index 7", "+ managed by libvalen: " ) );
   kernel.netNsDel( "ns-red" );
   feeder.namespaceChanged( "ns-red" );
   kernel.deviceDel( "ns-red", "et2" );
   auto config = twoInterfaces();
   config.shutdownDelayMs.reset();
   config.interfaces[ "Ethernet2" ].shutdownDelay = false;
   config.agents.clear();
   publications.configIs( config );
   EXPECT_THAT( explain( "Ethernet2" ),
                ElementsAre( "not ready", "- delay enabled: shutdown-delay-ms is not set",
                             "- delay enabled for this interface: shutdown-delay is off in its "
                             "configuration",
                             "- frames queued: no agent has frames for it",
                             "- VRF ready: no namespace ns-red",
                             "- device present: no device \"et2\" in namespace \"ns-red\"",
                             "- managed by libvalen: once everything above is met" ) );
}

TEST_F( AgentApiTest, SeveralAreShutDownTogetherAndTheStepsComeAsTheyHappen ) {
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

TEST_F( AgentApiTest, WithoutMoreSeveralAreAnsweredOnceAllAreUnderWay ) {
   auto const answers = call( "ShutdownMany", { { "vrf", nullptr } } );
   ASSERT_EQ( answers->messages.size(), 1u );
   EXPECT_EQ( answers->parameters()[ "steps" ].size(), 2u );
   EXPECT_EQ( answers->parameters()[ "pending" ], 2 );
   EXPECT_TRUE( answers->last );
   advance( 600ms );
   EXPECT_EQ( answers->messages.size(), 1u );
}

TEST_F( AgentApiTest, OneThatCannotBeEnabledDoesNotKeepTheOthersDown ) {
   kernel.deviceDel( "default", "et1" );
   kernel.at( "ns-red", "et2" ).up = false;
   auto const results = call( "EnableMany", Json::object() )->parameters()[ "results" ];
   EXPECT_EQ(
      results,
      ( Json{
         { { "interface", "Ethernet1" }, { "result", "failed" }, { "message", "no device et1" } },
         { { "interface", "Ethernet2" }, { "result", "up" }, { "message", nullptr } } } ) );
}

// --- What goes on --------------------------------------------------------------------------------

TEST_F( AgentApiTest, WatchAnswersWithTheValueAndThenWithEachChange ) {
   auto const answers =
      call( "Watch", { { "path", "status/intfStatus/Ethernet1/delayed" } }, true );
   ASSERT_EQ( answers->messages.size(), 1u );
   EXPECT_EQ( answers->parameters()[ "value" ], false );
   controller.shutdown( "Ethernet1", "root", nullptr );
   turn();
   ASSERT_EQ( answers->messages.size(), 2u );
   EXPECT_EQ( answers->parameters( 1 )[ "value" ], true );
   controller.shutdown( "Ethernet2", "root", nullptr );
   turn();
   EXPECT_EQ( answers->messages.size(), 2u ) << "what is elsewhere does not matter";
   advance( 600ms );
   ASSERT_EQ( answers->messages.size(), 3u );
   EXPECT_EQ( answers->parameters( 2 )[ "value" ], false );
   EXPECT_FALSE( answers->last );
}

TEST_F( AgentApiTest, ChangesOfOneTurnComeAsOneAndOnesThatUndoEachOtherNotAtAll ) {
   auto const answers = call( "Watch", { { "path", "vrf/status" } }, true );
   ASSERT_EQ( answers->messages.size(), 1u );
   feeder.namespaceChanged( "ns-red" ); // out and in again
   turn();
   EXPECT_EQ( answers->messages.size(), 1u );
   kernel.netNsDel( "ns-red" );
   feeder.namespaceChanged( "ns-red" );
   feeder.namespaceChanged( "ns-red" );
   turn();
   EXPECT_EQ( answers->messages.size(), 2u );
}

TEST_F( AgentApiTest, WhatGoesIsNullAndIsSeenToComeBack ) {
   auto const answers = call( "Watch", { { "path", "status/intfStatus/Ethernet2" } }, true );
   kernel.deviceDel( "ns-red", "et2" );
   turn();
   kernel.deviceIs( "ns-red", "et2", 9 );
   turn();
   ASSERT_EQ( answers->messages.size(), 3u );
   EXPECT_EQ( answers->parameters( 1 )[ "value" ], nullptr );
   EXPECT_EQ( answers->parameters( 2 )[ "value" ][ "shouldDelay" ], true );
}

TEST_F( AgentApiTest, ASlowReaderGetsTheNewestOnly ) {
   auto const answers =
      call( "Watch", { { "path", "status/intfStatus/Ethernet1/delayed" } }, true );
   answers->untaken = 100;
   controller.shutdown( "Ethernet1", "root", nullptr );
   advance( 600ms );
   controller.enable( "Ethernet1", "root" );
   controller.shutdown( "Ethernet1", "root", nullptr );
   advance( 100ms );
   EXPECT_EQ( answers->messages.size(), 1u );
   answers->untaken = 0;
   advance( 100ms );
   ASSERT_EQ( answers->messages.size(), 2u );
   EXPECT_EQ( answers->parameters( 1 )[ "value" ], true );
}

TEST_F( AgentApiTest, WatchesGoWithTheirClientAndLetGoOfTheStore ) {
   call( "Watch", { { "path", "" } }, true, 7 );
   call( "WatchStatus", Json::object(), true, 7 );
   EXPECT_TRUE( store.statusDir->hasNotifiees() );
   auto const intf = store.allIntf->intf( "Ethernet1" );
   EXPECT_TRUE( intf->hasNotifiees() );
   api.clientGone( 7 );
   libraryStop();
   EXPECT_FALSE( intf->hasNotifiees() );
}

TEST_F( AgentApiTest, WatchStatusTellsWhatHasChangedAlone ) {
   auto const answers = call( "WatchStatus", Json::object(), true );
   ASSERT_EQ( answers->messages.size(), 1u );
   EXPECT_EQ( answers->parameters()[ "interfaces" ].size(), 2u );
   advance( 1000ms );
   EXPECT_EQ( answers->messages.size(), 1u ) << "nothing has happened";
   call( "Shutdown", { { "interface", "Ethernet1" } }, false, 2 );
   ASSERT_EQ( answers->messages.size(), 2u );
   auto const changed = answers->parameters( 1 )[ "interfaces" ];
   ASSERT_EQ( changed.size(), 1u );
   EXPECT_EQ( changed[ 0 ][ "name" ], "Ethernet1" );
   EXPECT_EQ( changed[ 0 ][ "delayed" ], true );
   auto config = twoInterfaces();
   config.interfaces.erase( "Ethernet2" );
   config.agents[ "lldp" ].erase( "Ethernet2" );
   publications.configIs( config );
   turn();
   EXPECT_EQ( answers->messages.back()[ "parameters" ][ "gone" ], Json::array( { "Ethernet2" } ) );
}

TEST_F( AgentApiTest, WhoJoinsAShutdownHearsHowLongItIsStillHeld ) {
   Json const first{ { "interface", "Ethernet1" } };
   EXPECT_EQ( call( "Shutdown", first )->parameters()[ "delayMs" ], 500 );
   advance( 200ms );
   EXPECT_EQ( call( "Shutdown", first, false, 2 )->parameters()[ "delayMs" ], 300 );
}

TEST_F( AgentApiTest, WaitAnswersOnceItIsSo ) {
   EXPECT_EQ( call( "Wait", { { "interface", "Ethernet1" }, { "until", "ready" } } )
                 ->parameters()[ "interface" ][ "ready" ],
              true );
   auto const down = call( "Wait", { { "interface", "Ethernet1" }, { "until", "down" } } );
   auto const late =
      call( "Wait", { { "interface", "Ethernet1" }, { "until", "down" }, { "timeoutMs", 300 } } );
   EXPECT_THAT( down->messages, IsEmpty() );
   call( "Shutdown", { { "interface", "Ethernet1" } }, false, 2 );
   advance( 299ms );
   EXPECT_THAT( late->messages, IsEmpty() );
   advance( 2ms );
   EXPECT_EQ( late->error(),
              "org.valen.daemon.TimedOut: timed out: interface \"Ethernet1\" is not down" );
   EXPECT_THAT( down->messages, IsEmpty() );
   advance( 500ms );
   EXPECT_EQ( down->parameters()[ "interface" ][ "link" ], "down" );
   auto const gone = call( "Wait", { { "interface", "Ethernet1" }, { "until", "up" } } );
   publications.configIs( Settings::Config() );
   advance( 300ms );
   EXPECT_EQ( gone->error(), "org.valen.daemon.NoSuchInterface: interface \"Ethernet1\" is not "
                             "configured" );
}

} // namespace
} // namespace Valend
