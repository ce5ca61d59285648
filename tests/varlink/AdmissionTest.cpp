#include "varlink/Admission.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace Varlink {
namespace {

using namespace std::chrono_literals;

constexpr U32 root = 0;
constexpr U32 alice = 1000; // an admin
constexpr U32 bob = 1001;   // a user
constexpr U32 eve = 2000;   // a stranger, like those after her

class AdmissionTest : public ::testing::Test {
 protected:
   static Rank rankOf( U32 uid ) {
      return uid == root    ? Rank::root
             : uid == alice ? Rank::admin
             : uid < eve    ? Rank::user
                            : Rank::stranger;
   }

   // Connects, and lets the one leave that has to make room. The client is in a call.
   bool connect( U32 uid ) {
      auto const admission = admit( { uid, rankOf( uid ) }, seats, limits );
      if ( admission.leaves ) {
         std::erase_if( seats, [ & ]( auto & seat ) { return seat.number == *admission.leaves; } );
      }
      if ( admission.admitted ) {
         seats.push_back( { ++numbers, uid, rankOf( uid ), false, std::nullopt, std::nullopt } );
      }
      return admission.admitted;
   }
   std::size_t connectMany( U32 uid, std::size_t count ) {
      std::size_t admitted = 0;
      for ( std::size_t i = 0; i < count; ++i ) {
         admitted += connect( uid );
      }
      return admitted;
   }
   // As connect(), and then begins a watch if it may.
   bool watch( U32 uid ) {
      if ( !connect( uid ) || !mayLast( rankOf( uid ), seats, limits ) ) {
         return false;
      }
      seats.back().lasting = true;
      return true;
   }
   // All but the watches have nothing to do from now on.
   void idle() {
      for ( auto & seat : seats ) {
         if ( !seat.lasting && !seat.idleSince ) {
            seat.idleSince = now;
         }
      }
   }
   std::size_t countOf( U32 uid ) const {
      return static_cast< std::size_t >( std::count_if(
         seats.begin(), seats.end(), [ & ]( auto & seat ) { return seat.uid == uid; } ) );
   }
   bool has( U64 number ) const {
      return std::any_of( seats.begin(), seats.end(),
                          [ & ]( auto & seat ) { return seat.number == number; } );
   }

   Limits const limits{};
   Gantry::Time now = 1h;
   U64 numbers = 0;
   std::vector< Seat > seats;
};

TEST_F( AdmissionTest, StrangersAreFewTogetherAndLeaveRoomForAllOthers ) {
   for ( U32 stranger = eve; stranger < eve + 20; ++stranger ) {
      connectMany( stranger, 64 );
      EXPECT_LE( countOf( stranger ), 4u );
   }
   EXPECT_EQ( seats.size(), 16u );
   EXPECT_EQ( connectMany( bob, 64 ), 64u );
   EXPECT_EQ( connectMany( root, 100 ), 100u );
   EXPECT_EQ( seats.size(), 180u ) << "none had to leave";
}

TEST_F( AdmissionTest, AUserHasABound ) {
   EXPECT_EQ( connectMany( bob, 100 ), 64u );
   EXPECT_EQ( connectMany( alice, 100 ), 64u );
   EXPECT_EQ( connectMany( bob + 1, 1 ), 1u );
}

TEST_F( AdmissionTest, ConnectionsAreReservedForAdminsAndForRoot ) {
   std::size_t ofUsers = 0;
   for ( U32 user = bob; user < bob + 10; ++user ) {
      ofUsers += connectMany( user, 64 );
   }
   EXPECT_EQ( ofUsers, 224u );
   EXPECT_FALSE( connect( eve ) ) << "strangers share what users may have";
   EXPECT_EQ( connectMany( alice, 64 ), 24u );
   EXPECT_EQ( connectMany( root, 64 ), 8u );
   EXPECT_EQ( seats.size(), limits.connections );
}

TEST_F( AdmissionTest, AClientThatDoesNotReadLeavesFirstThenTheLongestIdleOne ) {
   connectMany( bob, 64 );
   idle();
   now += 1min;
   seats[ 7 ].idleSince = now - 10s;
   for ( std::size_t i : { 30, 20 } ) { // both are in a call
      seats[ i ].idleSince = std::nullopt;
      seats[ i ].unreadSince = now - std::chrono::seconds( i );
   }
   for ( std::size_t i : { 0, 1, 2 } ) {
      seats[ i ].idleSince = std::nullopt; // in a call
   }
   for ( U64 const number : { 31u, 21u, 4u, 5u } ) {
      EXPECT_TRUE( has( number ) );
      EXPECT_TRUE( connect( bob ) );
      EXPECT_FALSE( has( number ) ) << number;
   }
   EXPECT_TRUE( has( 1 ) && has( 8 ) );
}

TEST_F( AdmissionTest, AStrangerLeavesBeforeOthersThatAreIdleLonger ) {
   connectMany( root, 255 );
   idle();
   now += 1min;
   connect( eve );
   idle();
   now += 1min;
   EXPECT_TRUE( connect( root ) );
   EXPECT_EQ( countOf( eve ), 0u );
   EXPECT_TRUE( connect( root ) );
   EXPECT_FALSE( has( 1 ) );
}

TEST_F( AdmissionTest, ANewConnectionIsTheLastToLeave ) {
   connectMany( bob, 64 );
   EXPECT_FALSE( connect( bob ) );
   idle();
   now += 1ms;
   EXPECT_TRUE( connect( bob ) );
   idle();
   now += 1ms;
   EXPECT_EQ( connectMany( bob, 63 ), 63u );
   EXPECT_TRUE( has( 65 ) );
   EXPECT_TRUE( connect( bob ) );
   EXPECT_FALSE( has( 65 ) );
}

TEST_F( AdmissionTest, OnlyThoseOfTheSameUserLeaveForAUserWithTooMany ) {
   connectMany( bob, 64 );
   connectMany( alice, 64 );
   idle();
   now += 1min;
   EXPECT_TRUE( connect( bob ) );
   EXPECT_EQ( countOf( bob ), 64u );
   EXPECT_EQ( countOf( alice ), 64u );
}

// Another user's connection would not help against the bound of the user.
TEST_F( AdmissionTest, WhoLeavesCountsForAllBoundsThatAreReached ) {
   connectMany( bob, 64 );
   for ( U32 user = bob + 1; user < bob + 10; ++user ) {
      connectMany( user, 64 );
   }
   ASSERT_EQ( seats.size(), 224u );
   idle();
   for ( auto & seat : seats ) {
      if ( seat.uid == bob ) {
         seat.idleSince = std::nullopt;
      }
   }
   EXPECT_FALSE( connect( bob ) );
   EXPECT_EQ( seats.size(), 224u );
   seats[ 63 ].idleSince = now + 1min; // later than all others
   EXPECT_TRUE( connect( bob ) );
   EXPECT_EQ( countOf( bob ), 64u );
   EXPECT_FALSE( has( 64 ) );
}

TEST_F( AdmissionTest, NoneLeavesForAClientThatMayDoLess ) {
   connectMany( root, 256 );
   idle();
   now += 1min;
   EXPECT_FALSE( connect( alice ) );
   EXPECT_FALSE( connect( eve ) );
   EXPECT_TRUE( connect( root ) );
}

TEST_F( AdmissionTest, WatchesOfRootLeaveConnectionsForItsOtherCommands ) {
   std::size_t watches = 0;
   for ( int i = 0; i < 250; ++i ) {
      watches += watch( root );
   }
   EXPECT_EQ( watches, 224u );
   EXPECT_TRUE( watch( bob ) ) << "those of users are counted without them";
   std::erase_if( seats, []( auto & seat ) { return seat.uid == bob; } );
   idle();
   now += 1h;
   for ( int i = 0; i < 100; ++i ) {
      EXPECT_TRUE( connect( root ) ) << i;
      idle();
      now += 50ms;
   }
   EXPECT_EQ(
      std::count_if( seats.begin(), seats.end(), []( auto & seat ) { return seat.lasting; } ), 224 )
      << "a watch that is served stays";
}

TEST_F( AdmissionTest, WatchesOfUsersLeaveSomeForAdminsAndRoot ) {
   std::size_t watches = 0;
   for ( U32 user = bob; user < bob + 10; ++user ) {
      for ( int i = 0; i < 64; ++i ) {
         watches += watch( user );
      }
   }
   EXPECT_EQ( watches, 192u );
   EXPECT_TRUE( watch( alice ) );
   EXPECT_TRUE( watch( root ) );
}

} // namespace
} // namespace Varlink
