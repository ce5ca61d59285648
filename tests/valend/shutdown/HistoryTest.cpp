// The bounds of the history, and repeats that have one record.
#include "valend/shutdown/History.h"

#include <gmock/gmock.h>

namespace Valend {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using Ending = ShutdownRecord::Ending;

ShutdownRecord shutdown( std::string const & interface ) {
   ShutdownRecord record;
   record.interface = interface;
   record.ending = Ending::down;
   return record;
}

ShutdownRecord wentDown( std::string const & interface, std::chrono::seconds when ) {
   auto record = shutdown( interface );
   record.ending = Ending::wentDown;
   record.why = ShutdownRecord::setDownOutside;
   record.when = std::chrono::system_clock::time_point( when );
   return record;
}

class HistoryTest : public ::testing::Test {
 protected:
   // As the controller does it. Returns the id of the record that it is in.
   U64 add( ShutdownRecord const & record ) {
      if ( auto const repeated = history.repeat( record ) ) {
         return repeated->id;
      }
      history.add( ++lastId, record );
      return lastId;
   }
   // "Ethernet1", or "Ethernet1 x5".
   std::vector< std::string > lines() const {
      std::vector< std::string > lines;
      for ( auto const & record : history.records() ) {
         lines.push_back( record.interface +
                          ( record.count > 1 ? " x" + std::to_string( record.count ) : "" ) );
      }
      return lines;
   }

   History history;
   U64 lastId = 0;
};

TEST_F( HistoryTest, ALinkThatFlapsHasOneRecord ) {
   add( shutdown( "Ethernet2" ) );
   auto const id = add( wentDown( "Ethernet1", 100s ) );
   for ( int i = 1; i < 1000; ++i ) {
      EXPECT_EQ( add( wentDown( "Ethernet1", 100s + 1s * i ) ), id );
   }
   EXPECT_THAT( lines(), ElementsAre( "Ethernet2", "Ethernet1 x1000" ) );
   auto const & record = history.records().back();
   EXPECT_EQ( record.when, wentDown( "", 100s ).when );
   EXPECT_EQ( record.until, wentDown( "", 1099s ).when );
   EXPECT_EQ( record.last(), record.until );
}

TEST_F( HistoryTest, LinksThatFlapInTurnsHaveOneRecordEach ) {
   for ( int i = 0; i < 10; ++i ) {
      add( wentDown( "Ethernet1", 1s * i ) );
      add( wentDown( "Ethernet2", 1s * i ) );
      if ( i == 4 ) {
         add( shutdown( "Ethernet3" ) );
      }
   }
   EXPECT_THAT( lines(), ElementsAre( "Ethernet3", "Ethernet1 x10", "Ethernet2 x10" ) )
      << "the newest is last";
}

TEST_F( HistoryTest, WhatHappenedInBetweenBeginsANewRecord ) {
   add( wentDown( "Ethernet1", 0s ) );
   add( wentDown( "Ethernet1", 1s ) );
   add( shutdown( "Ethernet1" ) );
   add( shutdown( "Ethernet1" ) );
   add( wentDown( "Ethernet1", 2s ) );
   EXPECT_THAT( lines(), ElementsAre( "Ethernet1 x2", "Ethernet1", "Ethernet1", "Ethernet1" ) );
}

TEST_F( HistoryTest, AnotherDeviceOrALongPauseBeginsANewRecord ) {
   auto record = wentDown( "Ethernet1", 0s );
   add( record );
   record.place.device = "et9";
   add( record );
   record.when += History::repeatWithin;
   add( record );
   record.when += History::repeatWithin + 1s;
   add( record );
   EXPECT_THAT( lines(), ElementsAre( "Ethernet1", "Ethernet1 x2", "Ethernet1" ) );
}

TEST_F( HistoryTest, AClockThatWasSetBackDoesNotBeginANewRecord ) {
   add( wentDown( "Ethernet1", 7200s ) );
   add( wentDown( "Ethernet1", 0s ) );
   EXPECT_THAT( lines(), ElementsAre( "Ethernet1 x2" ) );
}

TEST_F( HistoryTest, OneInterfaceDoesNotPushOutTheOthers ) {
   add( shutdown( "Ethernet2" ) );
   for ( std::size_t i = 0; i < 2 * History::limit; ++i ) {
      add( shutdown( "Ethernet1" ) );
   }
   EXPECT_EQ( history.records().size(), History::interfaceLimit + 1 );
   EXPECT_EQ( history.records().front().interface, "Ethernet2" );
}

TEST_F( HistoryTest, TheOldestOfAllAreForgotten ) {
   for ( std::size_t i = 0; i < History::limit + 3; ++i ) {
      add( shutdown( "Ethernet" + std::to_string( i ) ) );
   }
   EXPECT_EQ( history.records().size(), History::limit );
   EXPECT_EQ( history.records().front().interface, "Ethernet3" );
   add( shutdown( "Ethernet0" ) ); // nothing is left of it
   EXPECT_EQ( history.records().back().interface, "Ethernet0" );
   EXPECT_EQ( history.records().front().interface, "Ethernet4" );
}

} // namespace
} // namespace Valend
