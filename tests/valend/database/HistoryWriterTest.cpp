#include "valend/database/HistoryWriter.h"

#include "tests/valend/database/DatabaseFixture.h"
#include "valend/shutdown/ShutdownJson.h"

namespace Valend {
namespace {

using namespace Test;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class HistoryWriterTest : public DatabaseFixture {
 protected:
   void SetUp() override {
      writer.connectionIs( &connection, "valen:rtr1" );
      connection.start();
   }
   static ShutdownRecord record( std::string const & interface, std::chrono::milliseconds when ) {
      ShutdownRecord record;
      record.interface = interface;
      record.when = std::chrono::system_clock::time_point( when );
      record.ending = ShutdownRecord::Ending::down;
      return record;
   }
   void add( std::string const & interface, std::chrono::milliseconds when,
             std::string const & request = "" ) {
      history.push_back( record( interface, when ) );
      writer.add( history.back(), request );
   }
   bool written() {
      return eventually( [ this ] { return connection.up() && writer.pending() == 0; } );
   }
   // The ids and interfaces of the stream, in its order.
   std::vector< std::string > stream() const {
      std::vector< std::string > entries;
      std::istringstream words( server( { "XRANGE", "valen:rtr1:history", "-", "+" } ) );
      std::string before;
      for ( std::string word, interface; words >> word; before = word ) {
         if ( word == "interface" ) {
            words >> interface;
            entries.push_back( before + " " + interface );
         }
      }
      return entries;
   }

   std::vector< std::string > problems;
   HistoryWriter writer{ clock.scheduler(),
                         [ this ]( auto const & why ) { problems.push_back( why ); } };
   Database::Connection connection{
      loop,
      { .address = Database::Address::parse( server.url() ), .name = "test" },
      { .connected = [ this ] { writer.up(); },
        .lost = [ this ]( std::string const & ) { writer.lost(); },
        .ready = [ this ] { writer.ready(); } } };
   History::Records history;
};

TEST_F( HistoryWriterTest, ARecordIsAnEntry ) {
   add( "Ethernet1", 1000ms, "42" );
   ASSERT_TRUE( written() );
   EXPECT_EQ( server( { "XRANGE", "valen:rtr1:history", "-", "+" } ),
              "1000-0 interface Ethernet1 ending down id 42 record " +
                 toJson( history.front() ).dump() );
}

TEST_F( HistoryWriterTest, IdsGrowWhateverTheClockSays ) {
   add( "a", 1000ms );
   add( "b", 1000ms );
   add( "c", 500ms );
   add( "d", 2000ms );
   ASSERT_TRUE( written() );
   EXPECT_THAT( stream(), ElementsAre( "1000-0 a", "1000-1 b", "1000-2 c", "2000-0 d" ) );
}

TEST_F( HistoryWriterTest, AStreamThatHasLostEntriesIsWrittenFromTheStart ) {
   add( "a", 1000ms );
   add( "b", 2000ms );
   ASSERT_TRUE( written() );
   server( { "DEL", "valen:rtr1:history" } );
   add( "c", 3000ms );
   ASSERT_TRUE( written() );
   EXPECT_THAT( stream(), ElementsAre( "3000-0 c" ) );
   writer.up();
   EXPECT_TRUE( eventually( [ this ] { return stream().size() == 3; } ) );
   EXPECT_THAT( stream(), ElementsAre( "1000-0 a", "2000-0 b", "3000-0 c" ) );
}

TEST_F( HistoryWriterTest, NothingIsAddedTwiceAndNothingIsMissing ) {
   add( "0", 1000ms );
   ASSERT_TRUE( written() );
   for ( int i = 1; i <= 100; ++i ) {
      add( std::to_string( i ), std::chrono::milliseconds( 1000 + i ) );
      for ( int turn = 0; turn < i % 4; ++turn ) {
         loop.turn( 0ms );
      }
      if ( i % 5 == 0 ) {
         server( { "CLIENT", "KILL", "TYPE", "normal" } );
      }
   }
   ASSERT_TRUE( eventually( [ this ] { return !connection.up(); } ) );
   ASSERT_TRUE( written() );
   EXPECT_EQ( stream().size(), 101u );
   EXPECT_GE( connection.connects(), 2u );
}

TEST_F( HistoryWriterTest, AServerThatComesBackEmptyGetsAll ) {
   add( "a", 1000ms );
   ASSERT_TRUE( written() );
   server.kill();
   ASSERT_TRUE( eventually( [ this ] { return !connection.up(); } ) );
   add( "b", 2000ms );
   EXPECT_EQ( writer.pending(), 1u );
   server.start();
   ASSERT_TRUE( written() );
   EXPECT_THAT( stream(), ElementsAre( "1000-0 a", "2000-0 b" ) );
}

TEST_F( HistoryWriterTest, ARestartAddsWhatIsMissingOnly ) {
   add( "a", 1000ms );
   add( "b", 1000ms );
   ASSERT_TRUE( written() );
   history.push_back( record( "c", 3000ms ) );
   history.push_front( record( "d", 2000ms ) ); // ended later than what follows in the list
   writer.historyIs( history );
   writer.up();
   ASSERT_TRUE( written() );
   EXPECT_THAT( stream(), ElementsAre( "1000-0 a", "1000-1 b", "2000-0 d", "3000-0 c" ) );
}

TEST_F( HistoryWriterTest, ItIsBounded ) {
   for ( int i = 0; i < 1500; ++i ) {
      add( std::to_string( i ), std::chrono::milliseconds( 1000 + i ) );
   }
   EXPECT_LE( writer.pending(), 1000u );
   ASSERT_TRUE( written() );
   EXPECT_EQ( stream().size(), 1000u );
   EXPECT_EQ( stream().back(), "2499-0 1499" );
   for ( int i = 1500; i < 1600; ++i ) {
      add( std::to_string( i ), std::chrono::milliseconds( 1000 + i ) );
   }
   ASSERT_TRUE( written() );
   EXPECT_EQ( stream().size(), 1000u );
   EXPECT_EQ( stream().front(), "1600-0 600" );
}

TEST_F( HistoryWriterTest, WhatTheServerRefusesIsTriedAgain ) {
   ASSERT_TRUE( eventually( [ this ] { return connection.up(); } ) );
   stepFor( 10ms );
   server( { "CONFIG", "SET", "maxmemory", "1" } );
   add( "a", 1000ms );
   add( "b", 2000ms );
   ASSERT_TRUE( eventually( [ this ] { return !problems.empty(); } ) );
   EXPECT_THAT( problems[ 0 ], HasSubstr( "valen:rtr1:history: OOM" ) );
   server( { "CONFIG", "SET", "maxmemory", "0" } );
   ASSERT_TRUE( written() );
   EXPECT_EQ( problems.back(), "" );
   server( { "DEL", "valen:rtr1:history" } );
   server( { "SET", "valen:rtr1:history", "x" } );
   add( "c", 3000ms );
   ASSERT_TRUE(
      eventually( [ this ] { return problems.back().find( "WRONGTYPE" ) != std::string::npos; } ) );
   server( { "DEL", "valen:rtr1:history" } );
   ASSERT_TRUE( written() );
   EXPECT_THAT( stream(), ElementsAre( "1000-0 a", "2000-0 b", "3000-0 c" ) );
}

TEST_F( HistoryWriterTest, AProblemEndsWithTheConnection ) {
   ASSERT_TRUE( eventually( [ this ] { return connection.up(); } ) );
   stepFor( 10ms );
   server( { "CONFIG", "SET", "maxmemory", "1" } );
   add( "a", 1000ms );
   ASSERT_TRUE( eventually( [ this ] { return !problems.empty(); } ) );
   writer.connectionIs( nullptr, "" );
   EXPECT_EQ( problems.back(), "" );
   stepFor( 1000ms ); // there is nothing to try it again with
   EXPECT_EQ( writer.pending(), 1u );
}

} // namespace
} // namespace Valend
