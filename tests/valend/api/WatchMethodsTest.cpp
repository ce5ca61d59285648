#include "tests/valend/api/ApiFixture.h"

namespace Valend {
namespace {

using namespace Test;
using ::testing::IsEmpty;

class WatchMethodsTest : public ApiFixture {
 protected:
   WatchMethodsTest() { startPublishing( twoInterfaces() ); }
};

TEST_F( WatchMethodsTest, WatchAnswersWithTheValueAndThenWithEachChange ) {
   auto const answers =
      call( "Watch", { { "path", "status/intfStatus/Ethernet1/delayed" } }, true );
   ASSERT_EQ( answers->messages.size(), 1u );
   EXPECT_EQ( answers->parameters()[ "value" ], false );
   controller.shutdown( "Ethernet1", { "root" }, nullptr );
   turn();
   ASSERT_EQ( answers->messages.size(), 2u );
   EXPECT_EQ( answers->parameters( 1 )[ "value" ], true );
   controller.shutdown( "Ethernet2", { "root" }, nullptr );
   turn();
   EXPECT_EQ( answers->messages.size(), 2u ) << "what is elsewhere does not matter";
   advance( 600ms );
   ASSERT_EQ( answers->messages.size(), 3u );
   EXPECT_EQ( answers->parameters( 2 )[ "value" ], false );
   EXPECT_FALSE( answers->last );
}

TEST_F( WatchMethodsTest, ChangesOfOneTurnComeAsOneAndThoseThatCancelOutNotAtAll ) {
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

TEST_F( WatchMethodsTest, AValueThatVanishesIsNullAndIsSeenToComeBack ) {
   auto const answers = call( "Watch", { { "path", "status/intfStatus/Ethernet2" } }, true );
   kernel.deviceDel( "ns-red", "et2" );
   turn();
   kernel.deviceIs( "ns-red", "et2", 9 );
   turn();
   ASSERT_EQ( answers->messages.size(), 3u );
   EXPECT_EQ( answers->parameters( 1 )[ "value" ], nullptr );
   EXPECT_EQ( answers->parameters( 2 )[ "value" ][ "shouldDelay" ], true );
}

TEST_F( WatchMethodsTest, ASlowReaderGetsTheNewestOnly ) {
   auto const answers =
      call( "Watch", { { "path", "status/intfStatus/Ethernet1/delayed" } }, true );
   answers->untaken = 100;
   controller.shutdown( "Ethernet1", { "root" }, nullptr );
   advance( 600ms );
   enable( "Ethernet1" );
   controller.shutdown( "Ethernet1", { "root" }, nullptr );
   advance( 100ms );
   EXPECT_EQ( answers->messages.size(), 1u );
   answers->untaken = 0;
   advance( 100ms );
   ASSERT_EQ( answers->messages.size(), 2u );
   EXPECT_EQ( answers->parameters( 1 )[ "value" ], true );
}

TEST_F( WatchMethodsTest, WatchesEndWithTheirClient ) {
   call( "Watch", { { "path", "" } }, true, 7 );
   call( "WatchStatus", Json::object(), true, 7 );
   EXPECT_TRUE( store.statusDir->hasNotifiees() );
   auto const intf = store.allIntf->intf( "Ethernet1" );
   EXPECT_TRUE( intf->hasNotifiees() );
   api.clientGone( 7 );
   libraryStop();
   EXPECT_FALSE( intf->hasNotifiees() );
}

TEST_F( WatchMethodsTest, WatchStatusAnswersOnlyWhatHasChanged ) {
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

TEST_F( WatchMethodsTest, WaitAnswersOnceTheConditionIsMet ) {
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
