#include "valend/shutdown/FrameSending.h"

#include "settings/Hex.h"
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

TEST_F( FrameSendingTest, TheGoodbyesThatLeftAreNamedByAgent ) {
   auto const lldp = []( char const * port ) {
      return Settings::frameFromHex(
         std::string( "0180c200000e02000000000188cc02070402000000000104030770" ) + port +
         "060200000000" );
   };
   auto config = twoInterfaces();
   config.agents[ "lldp" ][ "Ethernet1" ] = { frame( 'a' ), lldp( "31" ), lldp( "32" ) };
   config.agents[ "more" ][ "Ethernet1" ] = { lldp( "33" ) };
   feeder.apply( config );
   turn();
   auto const goodbyesOf = []( ShutdownRecord const & record, std::string const & agent ) {
      for ( auto const & each : record.agents ) {
         if ( each.agent == agent ) {
            return each.goodbyes;
         }
      }
      return std::vector< SentGoodbye >();
   };
   auto const port = []( char const * name ) {
      return SentGoodbye{ "lldp", std::string( "chassis 02:00:00:00:00:01, port " ) + name };
   };
   auto const record = send();
   EXPECT_THAT( goodbyesOf( record, "lldp" ), ElementsAre( port( "p1" ), port( "p2" ) ) );
   EXPECT_THAT( goodbyesOf( record, "more" ), ElementsAre( port( "p3" ) ) );

   sent.packets.clear();
   InterfaceDelay( store, "Ethernet1" ).lowerFlag();
   sent.failingSends = { 5 }; // the second of lldp
   EXPECT_THAT( goodbyesOf( send(), "lldp" ), ElementsAre( port( "p2" ) ) );
}

} // namespace
} // namespace Valend
