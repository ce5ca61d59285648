#include "valend/speakers/SpeakerTable.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Valend {

namespace {

using Derivation::Heard;
using std::chrono::milliseconds;
using std::chrono::seconds;

LinkPlace const et1{ "default", "et1" };
LinkPlace const et2{ "red", "et2" };

Egress::Speaker speaker( int number, U16 kind = EGRESS_LLDP ) {
   Egress::Speaker id{};
   id.filter = 1;
   id.ifindex = 2;
   id.kind = kind;
   id.identity[ 0 ] = static_cast< U8 >( number );
   return id;
}

Heard says( std::string const & goodbye, milliseconds holdTime = seconds( 120 ),
            std::string const & part = "" ) {
   Heard heard;
   heard.protocol = "lldp";
   heard.goodbye = goodbye;
   heard.greeting = "hello " + goodbye;
   heard.holdTime = holdTime;
   heard.part = part;
   return heard;
}

Heard leaves( std::string const & part = "" ) {
   Heard heard;
   heard.leaves = true;
   heard.part = part;
   return heard;
}

class SpeakerTableTest : public testing::Test {
 protected:
   std::vector< std::string > goodbyes( LinkPlace const & place ) const {
      std::vector< std::string > all;
      for ( auto const & each : table.known( place ) ) {
         for ( auto const & [ name, part ] : each.parts ) {
            all.push_back( part.heard.goodbye );
         }
      }
      return all;
   }

   SpeakerTable table;
   Gantry::Time now = seconds( 1000 );
};

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F( SpeakerTableTest, TheLatestFrameCountsAndOnlyAnotherGoodbyeIsAChange ) {
   EXPECT_TRUE( table.heard( et1, speaker( 1 ), says( "a" ), now ) );
   EXPECT_FALSE( table.heard( et1, speaker( 1 ), says( "a" ), now ) );
   EXPECT_TRUE( table.heard( et1, speaker( 1 ), says( "b" ), now ) );
   EXPECT_THAT( goodbyes( et1 ), ElementsAre( "b" ) );
   EXPECT_THAT( goodbyes( et2 ), IsEmpty() );
}

TEST_F( SpeakerTableTest, SpeakersOfADeviceAreApart ) {
   table.heard( et1, speaker( 1 ), says( "a" ), now );
   table.heard( et1, speaker( 2 ), says( "b" ), now );
   table.heard( et2, speaker( 1 ), says( "c" ), now );
   EXPECT_THAT( goodbyes( et1 ), ElementsAre( "a", "b" ) );
   EXPECT_THAT( goodbyes( et2 ), ElementsAre( "c" ) );
   EXPECT_EQ( table.count(), 3u );
}

TEST_F( SpeakerTableTest, ASpeakerThatLeavesIsForgotten ) {
   table.heard( et1, speaker( 1 ), says( "a" ), now );
   table.heard( et1, speaker( 2 ), says( "b" ), now );
   EXPECT_TRUE( table.heard( et1, speaker( 1 ), leaves(), now ) );
   EXPECT_FALSE( table.heard( et1, speaker( 1 ), leaves(), now ) );
   EXPECT_FALSE( table.heard( et2, speaker( 1 ), leaves(), now ) );
   EXPECT_THAT( goodbyes( et1 ), ElementsAre( "b" ) );
}

TEST_F( SpeakerTableTest, ASpeakerIsForgottenWhenItsHoldTimeIsOverSinceItsLastFrame ) {
   table.heard( et1, speaker( 1 ), says( "a", seconds( 3 ) ), now );
   EXPECT_EQ( table.nextExpiry(), now + seconds( 3 ) );
   table.heard( et1, speaker( 1 ), says( "a", seconds( 3 ) ), now + seconds( 2 ) );

   EXPECT_THAT( table.expire( now + seconds( 3 ) ), IsEmpty() );
   EXPECT_EQ( table.nextExpiry(), now + seconds( 5 ) );
   EXPECT_THAT( table.expire( now + seconds( 5 ) - milliseconds( 1 ) ), IsEmpty() );
   EXPECT_THAT( table.expire( now + seconds( 5 ) ), ElementsAre( et1 ) );
   EXPECT_THAT( goodbyes( et1 ), IsEmpty() );
   EXPECT_EQ( table.nextExpiry(), Gantry::Time::max() );
}

TEST_F( SpeakerTableTest, ASpeakerThatCameBackIsDueWithItsNewFrame ) {
   table.heard( et1, speaker( 1 ), says( "a", seconds( 3 ) ), now );
   table.heard( et1, speaker( 1 ), leaves(), now );
   table.heard( et1, speaker( 1 ), says( "a", seconds( 3 ) ), now + seconds( 2 ) );
   EXPECT_THAT( table.expire( now + seconds( 3 ) ), IsEmpty() );
   EXPECT_THAT( goodbyes( et1 ), ElementsAre( "a" ) );
   EXPECT_THAT( table.expire( now + seconds( 5 ) ), ElementsAre( et1 ) );
}

TEST_F( SpeakerTableTest, ASpeakerThatIsGoneIsNotDue ) {
   table.heard( et1, speaker( 1 ), says( "a", seconds( 3 ) ), now );
   table.heard( et1, speaker( 1 ), leaves(), now );
   EXPECT_EQ( table.nextExpiry(), Gantry::Time::max() ) << "it left";
   table.heard( et1, speaker( 1 ), says( "a", seconds( 3 ) ), now );
   table.forget( et1 );
   EXPECT_EQ( table.nextExpiry(), Gantry::Time::max() ) << "its device is gone";
   for ( U8 number = 0; number <= SpeakerTable::mostOfAProtocol; ++number ) {
      table.heard( et1, speaker( number ), says( "a", seconds( 3 + number ) ),
                   now + milliseconds( number ) );
   }
   EXPECT_GT( table.nextExpiry(), now + seconds( 4 ) ) << "it made room";
}

TEST_F( SpeakerTableTest, AShorterHoldTimeCountsAtOnce ) {
   table.heard( et1, speaker( 1 ), says( "a", seconds( 120 ) ), now );
   table.heard( et1, speaker( 1 ), says( "a", seconds( 3 ) ), now );
   EXPECT_EQ( table.nextExpiry(), now + seconds( 3 ) );
   EXPECT_THAT( table.expire( now + seconds( 3 ) ), ElementsAre( et1 ) );
   EXPECT_EQ( table.nextExpiry(), Gantry::Time::max() );
}

TEST_F( SpeakerTableTest, PartsAreFreshEachForItself ) {
   table.heard( et1, speaker( 1 ), says( "a", seconds( 9 ), "1" ), now );
   table.heard( et1, speaker( 1 ), says( "b", seconds( 9 ), "2" ), now + seconds( 5 ) );
   EXPECT_THAT( goodbyes( et1 ), ElementsAre( "a", "b" ) );
   EXPECT_THAT( table.expire( now + seconds( 9 ) ), ElementsAre( et1 ) );
   EXPECT_THAT( goodbyes( et1 ), ElementsAre( "b" ) );
   EXPECT_EQ( table.nextExpiry(), now + seconds( 14 ) );
}

TEST_F( SpeakerTableTest, ASpeakerMayLeaveInParts ) {
   table.heard( et1, speaker( 1 ), says( "a", seconds( 9 ), "1" ), now );
   table.heard( et1, speaker( 1 ), says( "b", seconds( 9 ), "2" ), now );
   EXPECT_TRUE( table.heard( et1, speaker( 1 ), leaves( "1" ), now ) );
   EXPECT_FALSE( table.heard( et1, speaker( 1 ), leaves( "3" ), now ) );
   EXPECT_THAT( goodbyes( et1 ), ElementsAre( "b" ) );
   EXPECT_TRUE( table.heard( et1, speaker( 1 ), leaves( "2" ), now ) );
   EXPECT_EQ( table.count(), 0u );
}

TEST_F( SpeakerTableTest, TheOldestPartMakesRoom ) {
   for ( U32 number = 0; number <= SpeakerTable::mostParts; ++number ) {
      auto const name = std::to_string( number );
      table.heard( et1, speaker( 1 ), says( name, seconds( 120 ), name ), now + seconds( number ) );
   }
   auto const known = goodbyes( et1 );
   EXPECT_EQ( known.size(), SpeakerTable::mostParts );
   EXPECT_THAT( known, testing::Not( testing::Contains( "0" ) ) );
}

TEST_F( SpeakerTableTest, OfTooManySpeakersOfAProtocolTheOneHeardLeastRecentlyMakesRoom ) {
   table.heard( et1, speaker( 99, EGRESS_VRRP ), says( "other" ), now );
   int const most = SpeakerTable::mostOfAProtocol;
   for ( int number = 0; number < most; ++number ) {
      table.heard( et1, speaker( number ), says( std::to_string( number ) ),
                   now + seconds( number ) );
   }
   table.heard( et1, speaker( 0 ), says( "0" ), now + seconds( 60 ) );

   EXPECT_TRUE( table.heard( et1, speaker( most ), says( "new" ), now + seconds( 61 ) ) );

   auto const known = goodbyes( et1 );
   EXPECT_EQ( known.size(), SpeakerTable::mostOfAProtocol + 1 );
   EXPECT_THAT( known, testing::IsSupersetOf( { "other", "0", "2", "new" } ) );
   EXPECT_THAT( known, testing::Not( testing::Contains( "1" ) ) );
   EXPECT_EQ( table.counters().at( "lldp" ).madeRoom, 1u );
}

TEST_F( SpeakerTableTest, MalformedFramesAreCountedByReason ) {
   table.malformed( { "lldp", "too short" } );
   table.malformed( { "lldp", "too short" } );
   table.malformed( { "ra", "too short" } );
   EXPECT_EQ( table.counters().at( "lldp" ).malformed.at( "too short" ), 2u );
   EXPECT_EQ( table.counters().at( "ra" ).malformed.at( "too short" ), 1u );
}

TEST_F( SpeakerTableTest, ADeviceIsForgottenWithItsSpeakers ) {
   table.heard( et1, speaker( 1 ), says( "a", seconds( 3 ) ), now );
   table.forget( et1 );
   EXPECT_THAT( goodbyes( et1 ), IsEmpty() );
   EXPECT_THAT( table.expire( now + seconds( 3 ) ), IsEmpty() );
}

TEST_F( SpeakerTableTest, KnownSpeakersAreCountedByProtocol ) {
   EXPECT_TRUE( table.byProtocol().empty() );
   table.heard( et1, speaker( 1 ), says( "a" ), now );
   table.heard( et2, speaker( 1 ), says( "a" ), now );
   table.heard( et2, speaker( 2, EGRESS_VRRP ), says( "b" ), now );
   EXPECT_EQ( table.byProtocol(),
              ( std::map< std::string, U64 >{ { "lldp", 2 }, { "vrrp", 1 } } ) );
   table.heard( et2, speaker( 2, EGRESS_VRRP ), leaves(), now );
   EXPECT_EQ( table.byProtocol(), ( std::map< std::string, U64 >{ { "lldp", 2 } } ) );
}

TEST_F( SpeakerTableTest, WhereSpeakersMadeRoomLastIsKnown ) {
   for ( auto const & place : { et1, et2 } ) {
      for ( int number = 0; number <= static_cast< int >( SpeakerTable::mostOfAProtocol );
            ++number ) {
         table.heard( place, speaker( number ), says( "a" ), now );
      }
      EXPECT_EQ( table.counters().at( "lldp" ).crowded, place );
   }
}

} // namespace

} // namespace Valend
