#include "valend/shutdown/ShutdownStatistics.h"

#include <gmock/gmock.h>

namespace Valend {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::Pair;
using Ending = ShutdownRecord::Ending;

class ShutdownStatisticsTest : public ::testing::Test {
 protected:
   static ShutdownRecord record( Ending ending ) {
      ShutdownRecord record;
      record.interface = "Ethernet1";
      record.ending = ending;
      return record;
   }

   ShutdownStatistics statistics;
};

TEST_F( ShutdownStatisticsTest, AllIsZeroAtFirst ) {
   EXPECT_EQ( statistics.totals( "Ethernet1" ).shutdowns, 0u );
   EXPECT_TRUE( statistics.endings().empty() );
   EXPECT_TRUE( statistics.agents().empty() );
   EXPECT_EQ( statistics.held().count, 0u );
   EXPECT_EQ( statistics.resumed(), 0u );
   EXPECT_EQ( statistics.unflushed(), 0u );
}

TEST_F( ShutdownStatisticsTest, ShutdownsAreCountedByEndingAndByInterface ) {
   statistics.add( record( Ending::down ) );
   statistics.add( record( Ending::aborted ) );
   statistics.add( record( Ending::down ) );
   auto other = record( Ending::failed );
   other.interface = "Ethernet2";
   statistics.add( other );
   EXPECT_THAT( statistics.endings(),
                ElementsAre( Pair( Ending::down, 2u ), Pair( Ending::aborted, 1u ),
                             Pair( Ending::failed, 1u ) ) );
   EXPECT_EQ( statistics.totals( "Ethernet1" ).shutdowns, 3u );
   EXPECT_EQ( statistics.totals( "Ethernet1" ).aborts, 1u );
   EXPECT_EQ( statistics.totals( "Ethernet2" ).shutdowns, 1u );
   EXPECT_EQ( statistics.totals( "Ethernet2" ).aborts, 0u );
}

TEST_F( ShutdownStatisticsTest, ALinkSetDownOutsideIsNotAShutdown ) {
   statistics.add( record( Ending::wentDown ) );
   EXPECT_EQ( statistics.totals( "Ethernet1" ).wentDown, 1u );
   EXPECT_EQ( statistics.totals( "Ethernet1" ).shutdowns, 0u );
   EXPECT_THAT( statistics.endings(), ElementsAre( Pair( Ending::wentDown, 1u ) ) );
}

TEST_F( ShutdownStatisticsTest, FramesAreAddedUpByInterfaceAndByAgent ) {
   auto first = record( Ending::down );
   first.sent = 3;
   first.failed = 2;
   first.failReason = "Network is down";
   first.agents = { { "bgp", 1, { { 100, 2 } } }, { "lldp", 2, {} } };
   auto second = record( Ending::down );
   second.sent = 1;
   second.failed = 1;
   second.failReason = "No buffer space available";
   second.agents = { { "bgp", 1, { { 100, 1 }, { 105, 4 } } } };
   statistics.add( first );
   statistics.add( second );
   auto third = record( Ending::down ); // its frames were all sent
   statistics.add( third );
   auto const totals = statistics.totals( "Ethernet1" );
   EXPECT_EQ( totals.sent, 4u );
   EXPECT_EQ( totals.failed, 3u );
   EXPECT_EQ( totals.failReason, "No buffer space available" ) << "of the last refused frame";
   EXPECT_EQ( statistics.agents().at( "bgp" ),
              ( AgentFrames{ "bgp", 2, { { 100, 3 }, { 105, 4 } } } ) );
   EXPECT_EQ( statistics.agents().at( "lldp" ), ( AgentFrames{ "lldp", 2, {} } ) );
}

TEST_F( ShutdownStatisticsTest, HeldTimesAreCountedUpToEachBound ) {
   for ( auto const held : { 100ms, 101ms, 70'000ms } ) {
      auto shutdown = record( Ending::down );
      shutdown.withDelay = true;
      shutdown.held = held;
      statistics.add( shutdown );
   }
   statistics.add( record( Ending::down ) ); // without a delay
   auto const & held = statistics.held();
   EXPECT_EQ( held.count, 3u );
   EXPECT_DOUBLE_EQ( held.seconds, 70.201 );
   EXPECT_THAT( held.atMost, ElementsAre( 1, 2, 2, 2, 2, 2, 2, 2, 2 ) )
      << "a bound includes itself; 70 s is above all";
}

TEST_F( ShutdownStatisticsTest, ResumedAndUnflushedShutdownsAreCounted ) {
   auto resumed = record( Ending::down );
   resumed.resumed = true;
   auto unflushed = record( Ending::down );
   unflushed.unflushedBytes = 60;
   statistics.add( resumed );
   statistics.add( unflushed );
   statistics.add( record( Ending::down ) );
   EXPECT_EQ( statistics.resumed(), 1u );
   EXPECT_EQ( statistics.unflushed(), 1u );
}

TEST_F( ShutdownStatisticsTest, FramesHeldBackAndGreetingsAreCountedByProtocol ) {
   auto down = record( Ending::down );
   down.muted = { { "lldp", "a", 2, false }, { "vrrp", "b", 5, false } };
   statistics.add( down );
   auto aborted = record( Ending::aborted );
   aborted.muted = { { "vrrp", "b", 1, true }, { "vrrp", "c", 0, true }, { "bfd", "d", 0, false } };
   statistics.add( aborted );
   EXPECT_THAT( statistics.heldBack(),
                ElementsAre( Pair( "bfd", 0u ), Pair( "lldp", 2u ), Pair( "vrrp", 6u ) ) );
   EXPECT_THAT( statistics.greetings(),
                ElementsAre( Pair( "bfd", 0u ), Pair( "lldp", 0u ), Pair( "vrrp", 2u ) ) );
}

} // namespace
} // namespace Valend
