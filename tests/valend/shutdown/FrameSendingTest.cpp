#include "valend/shutdown/FrameSending.h"

#include "tests/valend/DaemonFixture.h"

namespace Valend {
namespace {

using namespace Test;
using ::testing::ElementsAre;

class FrameSendingTest : public DaemonFixture {
 protected:
   FrameSendingTest() {
      auto config = twoInterfaces();
      config.agents[ "bgp" ][ "Ethernet1" ] = { frame( 'x' ) };
      start( config );
   }
   ShutdownRecord send() {
      ShutdownRecord record;
      InterfaceDelay const delay( store, "Ethernet1" );
      sendFrames( delay, queuedFrames( delay, store ), kernel, { "default", "et1" },
                  *clock.scheduler(), record );
      return record;
   }
   static U64 sentBy( ShutdownRecord const & record, std::string const & agent ) {
      U64 sum = 0;
      for ( auto const & each : record.agents ) {
         sum += each.agent == agent ? each.sent : 0;
      }
      return sum;
   }
};

TEST_F( FrameSendingTest, TheFramesOfEachAgentAreCounted ) {
   auto const record = send();
   EXPECT_EQ( sentFrames().size(), 3u );
   EXPECT_EQ( record.sent, 3u );
   EXPECT_EQ( record.failed, 0u );
   EXPECT_EQ( record.failReason, "" );
   EXPECT_EQ( record.agents.size(), 2u );
   EXPECT_EQ( sentBy( record, "lldp" ), 2u );
   EXPECT_EQ( sentBy( record, "bgp" ), 1u );
}

TEST_F( FrameSendingTest, RefusedFramesAreCountedByAgentAndError ) {
   sent.failingSends = { 0, 1, 2 };
   auto const record = send();
   EXPECT_EQ( record.sent, 0u );
   EXPECT_EQ( record.failed, 3u );
   EXPECT_EQ( record.failReason, "Network is down" );
   for ( auto const & each : record.agents ) {
      EXPECT_EQ( each.sent, 0u ) << each.agent;
      EXPECT_EQ( each.refused,
                 ( std::map< int, U64 >{ { 100, each.agent == "lldp" ? 2u : 1u } } ) );
   }
}

// A later shutdown counts its own frames, not those before it.
TEST_F( FrameSendingTest, OnlyThisSendingIsCounted ) {
   send();
   InterfaceDelay( store, "Ethernet1" ).lowerFlag();
   EXPECT_EQ( send().sent, 3u );
}

TEST_F( FrameSendingTest, AnInterfaceWithoutFramesSendsNone ) {
   ShutdownRecord record;
   InterfaceDelay const delay( store, "Ethernet9" );
   sendFrames( delay, queuedFrames( delay, store ), kernel, { "default", "et9" },
               *clock.scheduler(), record );
   EXPECT_EQ( record.sent, 0u );
   EXPECT_TRUE( record.agents.empty() );
}

} // namespace
} // namespace Valend
