#include "tests/valend/api/ApiFixture.h"

namespace Valend {
namespace {

using namespace Test;
using ::testing::HasSubstr;

class TraceMethodsTest : public ApiFixture {
 protected:
   TraceMethodsTest() { startPublishing( twoInterfaces() ); }
};

TEST_F( TraceMethodsTest, SettingTraceLevelsIsAChange ) {
   Varlink::Caller const reader{ 1000, 1, { 4001 } };
   auto const * const method = "org.valen.daemon.TraceLevels";
   EXPECT_EQ( callAs( reader, method, Json::object() )->parameters()[ "levels" ], "*/0-1" );
   EXPECT_THAT( callAs( reader, method, { { "levels", "*/0" } } )->error(),
                HasSubstr( "PermissionDenied: permission denied: setting TraceLevels requires" ) );
   EXPECT_EQ( call( "TraceLevels", { { "levels", "*/0" } } )->parameters()[ "levels" ], "*/0" );
   EXPECT_THAT( call( "TraceLevels", { { "levels", "x" } } )->error(),
                HasSubstr( "org.valen.daemon.BadTraceLevels: " ) );
}

TEST_F( TraceMethodsTest, TraceAnswersTheNewestLinesAndThenThoseThatCome ) {
   EXPECT_EQ( call( "Trace", { { "lines", 2 } } )->parameters()[ "lines" ].size(), 2u );
   auto const following = call( "Trace", { { "lines", 0 } }, true );
   ASSERT_EQ( following->messages.size(), 1u );
   EXPECT_EQ( following->parameters()[ "lines" ], Json::array() );
   controller.shutdown( "Ethernet1", { "root" }, nullptr );
   turn();
   ASSERT_GT( following->messages.size(), 1u );
   EXPECT_FALSE( following->parameters( 1 )[ "lines" ].empty() );
   EXPECT_FALSE( following->last );
}

TEST_F( TraceMethodsTest, FollowersGetTheSameAnswersAndFewOfThem ) {
   auto const first = call( "Trace", { { "lines", 0 } }, true, 1 );
   auto const second = call( "Trace", { { "lines", 0 } }, true, 2 );
   auto const shutDown = [ & ] {
      controller.shutdown( "Ethernet1", { "root" }, nullptr );
      turn();
      enable( "Ethernet1" );
   };
   shutDown();
   EXPECT_EQ( first->messages.size(), 2u ) << "the first lines come at once";
   shutDown();
   EXPECT_EQ( first->messages.size(), 2u ) << "and then there is a pause";
   clock.advance( TraceMethods::period );
   ASSERT_EQ( first->messages.size(), 3u );
   ASSERT_EQ( second->sent.size(), 3u );
   EXPECT_EQ( first->sent[ 1 ], second->sent[ 1 ] ) << "the same bytes";
   EXPECT_EQ( first->sent[ 2 ], second->sent[ 2 ] );
}

TEST_F( TraceMethodsTest, ANewFollowerGetsNoLineTwice ) {
   auto const first = call( "Trace", { { "lines", 0 } }, true, 1 );
   controller.shutdown( "Ethernet1", { "root" }, nullptr );
   turn();
   enable( "Ethernet1" ); // its lines wait
   ASSERT_EQ( first->messages.size(), 2u );
   auto const second = call( "Trace", { { "lines", 100 } }, true, 2 );
   EXPECT_EQ( first->messages.size(), 3u ) << "they are told before";
   clock.advance( TraceMethods::period );
   EXPECT_EQ( second->messages.size(), 1u );
}

TEST_F( TraceMethodsTest, WhoHasGoneGetsNoMoreLines ) {
   auto const first = call( "Trace", { { "lines", 0 } }, true, 1 );
   auto const second = call( "Trace", { { "lines", 0 } }, true, 2 );
   api.clientGone( 1 );
   controller.shutdown( "Ethernet1", { "root" }, nullptr );
   turn();
   EXPECT_EQ( first->messages.size(), 1u );
   EXPECT_GT( second->messages.size(), 1u );
}

} // namespace
} // namespace Valend
