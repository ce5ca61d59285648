#include "valend/database/StatusWriter.h"

#include "tests/valend/database/DatabaseFixture.h"

namespace Valend {
namespace {

using namespace Test;

class StatusWriterTest : public DatabaseFixture {
 protected:
   StatusWriterTest()
       : connection( loop, { .address = Database::Address::parse( server.url() ), .name = "test" },
                     { .connected = [ this ] { outbox.up(); },
                       .lost = [ this ]( std::string const & ) { outbox.lost(); },
                       .ready = [ this ] { outbox.ready(); } } ) {}

   void startTwo() {
      start( twoInterfaces() );
      writer.outboxIs( &outbox, [ this ] { connection.start(); } );
      ASSERT_TRUE( becomes( "status:Ethernet1", "ready", "yes" ) );
      ASSERT_TRUE( becomes( "status:Ethernet2", "ready", "yes" ) );
   }
   Json interface( std::string const & name ) const {
      return Json::parse( field( "status:" + name, "interface" ), nullptr, false );
   }

   Database::Connection connection;
   Database::Outbox outbox{ loop, connection, "valen:rtr1", { "status:" }, []( auto const & ) {} };
   StatusReport const report{ store, feeder, kernel, controller };
   StatusWriter writer{
      store, feeder, report, clock.scheduler(), work, [ this ] {
         return std::chrono::floor< std::chrono::milliseconds >( clock.now() ).count();
      } };
};

TEST_F( StatusWriterTest, EachInterfaceHasAHash ) {
   startTwo();
   EXPECT_EQ( field( "status:Ethernet1", "link" ), "up" );
   EXPECT_EQ( field( "status:Ethernet1", "not-ready" ), "" );
   EXPECT_EQ( field( "status:Ethernet1", "shutting-down" ), "no" );
   EXPECT_EQ( field( "status:Ethernet1", "held-until-ms" ), "" );
   EXPECT_EQ( field( "status:Ethernet1", "frames" ), "2" );
   EXPECT_EQ( field( "status:Ethernet2", "frames" ), "1" );
   EXPECT_EQ( server( { "HEXISTS", "valen:rtr1:status:Ethernet1", "id" } ), "0" );
   auto expected = report.interface( feeder.config().interfaces.at( "Ethernet1" ) );
   expected.erase( "remainingMs" );
   EXPECT_EQ( interface( "Ethernet1" ), expected );
}

// At three moments, of which at least one is far from that look.
TEST_F( StatusWriterTest, FramesAreShownBeforeALookAtAllInterfaces ) {
   startTwo();
   auto config = twoInterfaces();
   for ( auto const * const count : { "2", "3", "4" } ) {
      stepFor( StatusModel::period / 3 );
      auto const begin = clock.now();
      config.agents[ std::string( "agent" ) + count ][ "Ethernet2" ] = { frame( 'x' ) };
      feeder.apply( config );
      writer.changed( "Ethernet2" );
      ASSERT_TRUE( becomes( "status:Ethernet2", "frames", count ) );
      EXPECT_LT( clock.now() - begin, StatusModel::period / 4 );
   }
}

TEST_F( StatusWriterTest, AShutdownIsShownAtEachStep ) {
   startTwo();
   auto const now = std::chrono::floor< std::chrono::milliseconds >( clock.now() ).count();
   controller.shutdown( "Ethernet1", { "root" }, nullptr );
   ASSERT_TRUE( becomes( "status:Ethernet1", "shutting-down", "yes" ) );
   ASSERT_TRUE(
      eventually( [ this ] { return !field( "status:Ethernet1", "held-until-ms" ).empty(); } ) );
   auto const until = field( "status:Ethernet1", "held-until-ms" );
   EXPECT_NEAR( static_cast< double >( std::stoll( until ) - now ), 500, 100 );
   auto const writes = outbox.writes();
   stepFor( 300ms ); // a sweep of the model, which sees another remaining time
   EXPECT_EQ( outbox.writes(), writes );
   EXPECT_EQ( field( "status:Ethernet1", "held-until-ms" ), until );
   ASSERT_TRUE( becomes( "status:Ethernet1", "link", "down" ) );
   ASSERT_TRUE( becomes( "status:Ethernet1", "shutting-down", "no" ) );
   EXPECT_EQ( field( "status:Ethernet1", "held-until-ms" ), "" );
   EXPECT_EQ( field( "status:Ethernet1", "shutdowns" ), "1" );
   EXPECT_EQ( field( "status:Ethernet2", "shutdowns" ), "0" );
}

TEST_F( StatusWriterTest, NothingIsWrittenWhileNothingChanges ) {
   startTwo();
   ASSERT_TRUE( eventually( [ this ] { return outbox.pending() == 0; } ) );
   auto const writes = outbox.writes();
   stepFor( 1000ms );
   EXPECT_EQ( outbox.writes(), writes );
   controller.shutdown( "Ethernet1", { "root" }, nullptr );
   enable( "Ethernet1" );
   ASSERT_TRUE( becomes( "status:Ethernet1", "aborted", "1" ) );
   EXPECT_LE( outbox.writes(), writes + 4 ) << "of the other interface as well";
}

TEST_F( StatusWriterTest, AnInterfaceThatIsGoneHasNone ) {
   startTwo();
   auto config = twoInterfaces();
   config.interfaces.erase( "Ethernet2" );
   config.agents.at( "lldp" ).erase( "Ethernet2" );
   feeder.apply( config );
   EXPECT_TRUE( eventually( [ this ] {
      return server( { "KEYS", "*" } ) == "valen:rtr1:status:Ethernet1";
   } ) );
}

TEST_F( StatusWriterTest, TheResultOfARequestIsBesideTheStatus ) {
   startTwo();
   writer.resultIs( "Ethernet1", "42", "running" );
   ASSERT_TRUE( becomes( "status:Ethernet1", "result", "running" ) );
   EXPECT_EQ( field( "status:Ethernet1", "id" ), "42" );
   EXPECT_EQ( field( "status:Ethernet1", "link" ), "up" );
   writer.resultIs( "Ethernet9", "43", "rejected: no such interface" ); // is not configured
   ASSERT_TRUE( becomes( "status:Ethernet9", "id", "43" ) );
   EXPECT_EQ( server( { "HLEN", "valen:rtr1:status:Ethernet9" } ), "2" );
   writer.resultIs( "Ethernet9", "", "" );
   EXPECT_TRUE( eventually( [ this ] {
      return server( { "EXISTS", "valen:rtr1:status:Ethernet9" } ) == "0";
   } ) );
}

TEST_F( StatusWriterTest, AnotherOutboxGetsEverything ) {
   startTwo();
   writer.resultIs( "Ethernet9", "43", "x" );
   ASSERT_TRUE( becomes( "status:Ethernet9", "id", "43" ) );
   writer.outboxIs( nullptr );
   server( { "FLUSHALL" } );
   Database::Outbox other( loop, connection, "valen:rtr2", { "status:" }, []( auto const & ) {} );
   bool whole = false;
   writer.outboxIs( &other, [ & ] { whole = true; } );
   ASSERT_TRUE( eventually( [ & ] { return whole; } ) );
   EXPECT_EQ( other.keys(), 3u );
   writer.outboxIs( nullptr );
}

TEST_F( StatusWriterTest, ItIsWholeWhenAllAreWritten ) {
   start( twoInterfaces() );
   std::size_t keys = 0;
   writer.outboxIs( &outbox, [ & ] { keys = outbox.keys(); } );
   for ( int i = 0; i < 1000; ++i ) { // more than a slice takes
      writer.resultIs( "x" + std::to_string( i ), "1", "rejected" );
   }
   ASSERT_TRUE( eventually( [ & ] { return keys > 0; } ) );
   EXPECT_EQ( keys, 1002u );
   EXPECT_EQ( outbox.keys(), 1002u );
}

} // namespace
} // namespace Valend
