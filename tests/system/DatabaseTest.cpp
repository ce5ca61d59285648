// valend beside a Redis server: what it takes from there and writes there, and a server that goes away.
#include "tests/support/RedisServer.h"
#include "tests/system/RunningDaemon.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

namespace Valen::Test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

class DatabaseTest : public RunningDaemonTest {
 protected:
   void SetUp() override {
      RunningDaemonTest::SetUp();
      if ( !IsSkipped() ) {
         server_.emplace();
      }
   }
   // With Ethernet1 and Ethernet2 of the file, held for `ms`.
   void startWithDatabase( int ms = 1000 ) {
      start( config( ms ) + "database: {server: \"" + server_->url() +
             "\", prefix: valen:rtr1}\n" );
      ASSERT_TRUE( becomes( "status:Ethernet1", "ready", "yes" ) );
   }
   // Ethernet3 with a frame, of the database alone.
   void configureEthernet3() const {
      machine_->veth( "et3", *neighbors_, "far3" );
      server( { "HSET", "valen:rtr1:config:interface:Ethernet3", "device", "et3" } );
      server(
         { "HSET", "valen:rtr1:frames:agent1:Ethernet3", "owner", "test", "0001", frame( "x" ) } );
   }
   void want( std::string const & interface, std::string const & link,
              std::string const & id ) const {
      server( { "HSET", "valen:rtr1:want:" + interface, "link", link, "id", id, "by", "alice" } );
   }
   std::string server( std::vector< std::string > const & words ) const {
      return ( *server_ )( words );
   }
   std::string field( std::string const & name, std::string const & field ) const {
      return server( { "HGET", "valen:rtr1:" + name, field } );
   }
   bool becomes( std::string const & name, std::string const & field,
                 std::string const & value ) const {
      return eventually( [ & ] { return this->field( name, field ) == value; } );
   }
   bool hasHistory( int count ) const {
      return eventually( [ & ] {
         return server( { "XLEN", "valen:rtr1:history" } ) == std::to_string( count );
      } );
   }
   std::string status() const { return ctl( { "status" } ).out; }

   std::optional< RedisServer > server_;
};

TEST_F( DatabaseTest, AnInterfaceOfTheDatabaseIsShutDown ) {
   configureEthernet3();
   startWithDatabase( 300 );
   ASSERT_TRUE( becomes( "status:Ethernet3", "ready", "yes" ) );
   EXPECT_EQ( field( "status:Ethernet3", "frames" ), "1" );
   ASSERT_TRUE( becomes( "alive", "version",
                         Json::parse( ctl( { "status", "--json" } ).out )[ "version" ] ) );
   EXPECT_EQ( server( { "SMEMBERS", "valen:hosts" } ), "valen:rtr1" );
   ASSERT_EQ( ctl( { "shutdown", "Ethernet3", "--wait" } ).status, 0 );
   EXPECT_FALSE( linkUp( *machine_, "et3" ) );
   EXPECT_EQ( lastRecord( "Ethernet3" )[ "sent" ], 1 );
   ASSERT_TRUE( becomes( "status:Ethernet3", "link", "down" ) );
   ASSERT_TRUE( hasHistory( 1 ) );
   server( { "HSET", "valen:rtr1:config:interface:Ethernet1", "device", "no/device" } );
   ASSERT_TRUE( eventually(
      [ this ] { return !field( "rejected:config:interface:Ethernet1", "why" ).empty(); } ) );
   EXPECT_EQ( field( "status:Ethernet1", "ready" ), "yes" );
   server(
      { "DEL", "valen:rtr1:config:interface:Ethernet3", "valen:rtr1:frames:agent1:Ethernet3" } );
   EXPECT_TRUE( becomes( "status:Ethernet3", "link", "" ) );
}

TEST_F( DatabaseTest, AServerThatDiesInMidDelayChangesNothing ) {
   configureEthernet3();
   startWithDatabase( 1500 );
   ASSERT_TRUE( becomes( "status:Ethernet3", "ready", "yes" ) );
   for ( auto const * name : { "Ethernet1", "Ethernet3" } ) {
      ASSERT_EQ( ctl( { "shutdown", name } ).status, 0 );
      ASSERT_TRUE( becomes( std::string( "status:" ) + name, "shutting-down", "yes" ) );
   }
   server_->kill();
   ASSERT_TRUE(
      eventually( [ this ] { return status().find( "database" ) != std::string::npos; } ) );
   EXPECT_THAT( status(), HasSubstr( "what was read last stays active" ) );
   EXPECT_TRUE( interface( "Ethernet3" ).value( "shuttingDown", false ) ) << "the test is too slow";
   for ( auto const & [ name, device ] :
         { std::pair( "Ethernet1", "et1" ), std::pair( "Ethernet3", "et3" ) } ) {
      ASSERT_TRUE( eventually(
         [ this, which = name ] { return !interface( which ).value( "shuttingDown", true ); } ) );
      EXPECT_FALSE( linkUp( *machine_, device ) );
      auto const record = lastRecord( name );
      EXPECT_EQ( record[ "ending" ], "down" );
      EXPECT_GE( record[ "heldMs" ], 1500 );
      EXPECT_LT( record[ "heldMs" ], 1500 + 1000 );
   }
   // It comes back empty: the interface of the database is gone, and what happened meanwhile is written.
   server_->start();
   ASSERT_TRUE( becomes( "status:Ethernet1", "link", "down" ) );
   ASSERT_TRUE( hasHistory( 2 ) );
   ASSERT_TRUE(
      eventually( [ this ] { return status().find( "database" ) == std::string::npos; } ) )
      << status();
   EXPECT_TRUE( eventually( [ this ] {
      return server( { "EXISTS", "valen:rtr1:status:Ethernet3" } ) == "0";
   } ) );
}

TEST_F( DatabaseTest, AWantTakesTheLinkDownOnceAfterItsDelay ) {
   startWithDatabase( 500 );
   want( "Ethernet1", "down", "1" );
   ASSERT_TRUE( becomes( "status:Ethernet1", "result", "running" ) );
   EXPECT_TRUE( linkUp( *machine_, "et1" ) );
   ASSERT_TRUE( becomes( "status:Ethernet1", "result", "down" ) );
   EXPECT_EQ( field( "status:Ethernet1", "id" ), "1" );
   EXPECT_FALSE( linkUp( *machine_, "et1" ) );
   EXPECT_GE( lastRecord( "Ethernet1" )[ "heldMs" ], 500 );
   ASSERT_TRUE( hasHistory( 1 ) );
   EXPECT_THAT( server( { "XRANGE", "valen:rtr1:history", "-", "+" } ),
                HasSubstr( "interface Ethernet1 ending down id 1 record {" ) );
   want( "Ethernet1", "up", "2" );
   ASSERT_TRUE( becomes( "status:Ethernet1", "result", "up" ) );
   EXPECT_TRUE( linkUp( *machine_, "et1" ) );
   // The same request again, to a server that has forgotten everything, and to another valend.
   server_->restart();
   want( "Ethernet1", "up", "2" );
   ASSERT_TRUE( becomes( "status:Ethernet1", "id", "2" ) );
   kill();
   machine_->ip( "link set et1 down" );
   startWithDatabase( 500 );
   ASSERT_TRUE( becomes( "status:Ethernet1", "id", "2" ) );
   want( "Ethernet2", "down", "3" );
   ASSERT_TRUE( becomes( "status:Ethernet2", "result", "down" ) );
   EXPECT_FALSE( linkUp( *machine_, "et1" ) ) << "the request was acted on before";
}

TEST_F( DatabaseTest, AWantGoesOnWithoutTheServer ) {
   startWithDatabase( 1500 );
   want( "Ethernet1", "down", "1" );
   ASSERT_TRUE( becomes( "status:Ethernet1", "result", "running" ) );
   server_->freeze();
   ASSERT_TRUE(
      eventually( [ this ] { return !interface( "Ethernet1" ).value( "shuttingDown", true ); } ) );
   EXPECT_FALSE( linkUp( *machine_, "et1" ) );
   EXPECT_LT( lastRecord( "Ethernet1" )[ "heldMs" ], 1500 + 1000 );
   server_->thaw();
   ASSERT_TRUE( becomes( "status:Ethernet1", "result", "down" ) );
   EXPECT_TRUE( hasHistory( 1 ) );
}

TEST_F( DatabaseTest, AUserWithTheseRightsAloneIsEnough ) {
   ASSERT_EQ( server( { "ACL",
                        "SETUSER",
                        "valend",
                        "on",
                        ">secret",
                        "~valen:rtr1:*",
                        "~valen:hosts",
                        "&__keyspace@0__:valen:rtr1:config:*",
                        "&__keyspace@0__:valen:rtr1:frames:*",
                        "&__keyspace@0__:valen:rtr1:want:*",
                        "&__keyspace@0__:valen:rtr1:test",
                        "+ping",
                        "+client|setname",
                        "+psubscribe",
                        "+scan",
                        "+hgetall",
                        "+hset",
                        "+del",
                        "+multi",
                        "+exec",
                        "+exists",
                        "+pexpire",
                        "+sadd",
                        "+xadd",
                        "+xlen",
                        "+xrevrange",
                        "+memory|usage" } ),
              "OK" );
   work_->write( "password", "secret\n" );
   ASSERT_EQ( ::chmod( ( *work_ / "password" ).c_str(), 0600 ), 0 );
   start( config( 100 ) + "database: {server: \"" + server_->url() +
          "?user=valend&password-file=" + *work_ / "password" + "\", prefix: valen:rtr1}\n" );
   ASSERT_TRUE( becomes( "status:Ethernet1", "ready", "yes" ) );
   want( "Ethernet1", "down", "1" );
   ASSERT_TRUE( becomes( "status:Ethernet1", "result", "down" ) );
   ASSERT_TRUE( hasHistory( 1 ) );
   EXPECT_EQ( server( { "SMEMBERS", "valen:hosts" } ), "valen:rtr1" );
   EXPECT_THAT( server( { "ACL", "LOG" } ), Not( HasSubstr( "valend" ) ) );
   EXPECT_THAT( status(), Not( HasSubstr( "database" ) ) );
}

TEST_F( DatabaseTest, ARestartWritesNothingTwice ) {
   startWithDatabase( 100 );
   ASSERT_EQ( ctl( { "shutdown", "Ethernet1", "--wait" } ).status, 0 );
   ASSERT_TRUE( hasHistory( 1 ) );
   auto const entries = server( { "XRANGE", "valen:rtr1:history", "-", "+" } );
   kill();
   startWithDatabase( 100 );
   ASSERT_EQ( ctl( { "shutdown", "Ethernet2", "--wait" } ).status, 0 );
   ASSERT_TRUE( hasHistory( 2 ) );
   EXPECT_THAT( server( { "XRANGE", "valen:rtr1:history", "-", "+" } ), HasSubstr( entries ) );
   auto const left = std::stoi( server( { "PTTL", "valen:rtr1:alive" } ) );
   EXPECT_GT( left, 0 );
   EXPECT_LE( left, 5000 );
}

TEST_F( DatabaseTest, AReloadTakesItAndLeavesIt ) {
   configureEthernet3();
   start( config( 300 ) );
   EXPECT_EQ( server( { "EXISTS", "valen:rtr1:alive" } ), "0" );
   configure( config( 300 ) + "database: {server: \"" + server_->url() +
              "\", prefix: valen:rtr1}\n" );
   ASSERT_EQ( ctl( { "reload" } ).status, 0 );
   ASSERT_TRUE( becomes( "status:Ethernet3", "ready", "yes" ) );
   configure( config( 300 ) );
   ASSERT_EQ( ctl( { "reload" } ).status, 0 );
   ASSERT_TRUE( eventually( [ this ] { return interface( "Ethernet3" ).empty(); } ) );
   EXPECT_TRUE( eventually( [ this ] {
      return server( { "CLIENT", "LIST", "TYPE", "pubsub" } ).empty();
   } ) );
}

} // namespace
} // namespace Valen::Test
