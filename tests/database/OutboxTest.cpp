#include "database/Outbox.h"

#include "tests/database/DatabaseTest.h"

#include <gmock/gmock.h>
#include <malloc.h>

namespace Database {
namespace {

using namespace std::chrono_literals;
using Test::RedisServer;
using Test::shortTiming;
using ::testing::HasSubstr;

class OutboxTest : public Test::DatabaseTest {
 protected:
   OutboxTest()
       : connection(
            loop,
            { .address = Address::parse( server.url() ), .name = "test", .timing = shortTiming() },
            { .connected = [ this ] { outbox.up(); },
              .lost = [ this ]( std::string const & ) { outbox.lost(); },
              .ready = [ this ] { outbox.ready(); } } ),
         outbox( loop, connection, "valen:rtr1", { "status:", "rejected:" },
                 [ this ]( std::string const & why ) { problems.push_back( why ); } ) {}

   bool written() {
      return eventually( [ this ] { return connection.up() && outbox.pending() == 0; } );
   }
   bool problem( std::string const & part ) {
      return eventually(
         [ & ] { return !problems.empty() && problems.back().find( part ) != std::string::npos; } );
   }
   std::string hash( std::string const & name ) const {
      return server( { "HGETALL", "valen:rtr1:" + name } );
   }

   RedisServer server;
   std::vector< std::string > problems;
   Connection connection;
   Outbox outbox;
};

TEST_F( OutboxTest, AHashIsReplacedAsAWhole ) {
   connection.start();
   outbox.hashIs( "status:a", { { "link", "up" }, { "ready", "yes" } } );
   ASSERT_TRUE( written() );
   EXPECT_EQ( hash( "status:a" ), "link up ready yes" );
   outbox.hashIs( "status:a", { { "link", "down" } } );
   ASSERT_TRUE( written() );
   EXPECT_EQ( hash( "status:a" ), "link down" );
   outbox.hashDel( "status:a" );
   ASSERT_TRUE( written() );
   EXPECT_EQ( server( { "KEYS", "*" } ), "" );
   EXPECT_EQ( outbox.keys(), 0u );
   std::string const bytes( "\0\r\n", 3 );
   outbox.hashIs( "status:b", { { bytes, bytes } } );
   ASSERT_TRUE( written() );
   EXPECT_EQ( hash( "status:b" ), bytes + " " + bytes );
}

TEST_F( OutboxTest, OnlyWhatDiffersIsWritten ) {
   connection.start();
   ASSERT_TRUE( written() );
   for ( int i = 0; i < 10; ++i ) {
      outbox.hashIs( "status:a", { { "n", "1" } } );
      ASSERT_TRUE( written() );
   }
   EXPECT_EQ( outbox.writes(), 1u );
   for ( int i = 0; i < 10; ++i ) {
      outbox.hashIs( "status:a", { { "n", std::to_string( i ) } } );
   }
   ASSERT_TRUE( written() );
   EXPECT_EQ( outbox.writes(), 2u ) << "the newest value of one turn";
   EXPECT_EQ( hash( "status:a" ), "n 9" );
}

TEST_F( OutboxTest, KeysOfOursThatNoLongerExistAreDeleted ) {
   for ( int i = 0; i < 2000; ++i ) {
      server( { "HSET", "valen:rtr1:status:" + std::to_string( i ), "link", "up" } );
   }
   server( { "HSET", "valen:rtr1:rejected:want:x", "why", "x" } );
   server( { "HSET", "valen:rtr1:want:x", "link", "up" } );
   server( { "HSET", "valen:rtr10:status:x", "link", "up" } );
   outbox.hashIs( "status:1", { { "link", "down" } } );
   connection.start();
   EXPECT_TRUE( eventually( [ this ] { return server( { "DBSIZE" } ) == "3"; } ) );
   EXPECT_TRUE( written() );
   EXPECT_EQ( hash( "status:1" ), "link down" );
   EXPECT_EQ( hash( "want:x" ), "link up" );
   EXPECT_EQ( outbox.keys(), 1u );
   server( { "HSET", "valen:rtr1:status:late", "link", "up" } );
   server( { "CLIENT", "KILL", "TYPE", "normal" } ); // after each connection
   EXPECT_TRUE( eventually( [ this ] { return hash( "status:late" ).empty(); } ) );
}

TEST_F( OutboxTest, EverythingIsWrittenToAServerThatComesBack ) {
   connection.start();
   for ( int i = 0; i < 1000; ++i ) {
      outbox.hashIs( "status:" + std::to_string( i ), { { "link", "up" } } );
   }
   ASSERT_TRUE( written() );
   server.kill();
   ASSERT_TRUE( eventually( [ this ] { return !connection.up(); } ) );
   outbox.hashIs( "status:0", { { "link", "down" } } );
   outbox.hashDel( "status:1" );
   outbox.hashIs( "status:new", { { "link", "up" } } );
   server.start();
   ASSERT_TRUE( written() );
   EXPECT_EQ( server( { "DBSIZE" } ), "1000" );
   EXPECT_EQ( hash( "status:0" ), "link down" );
   EXPECT_EQ( hash( "status:1" ), "" );
   EXPECT_EQ( hash( "status:999" ), "link up" );
}

TEST_F( OutboxTest, AConnectionThatBreaksInTheMiddleLosesNothing ) {
   connection.start();
   ASSERT_TRUE( written() );
   for ( int round = 0; round < 20; ++round ) {
      for ( int i = 0; i < 500; ++i ) {
         outbox.hashIs( "status:" + std::to_string( i ), { { "round", std::to_string( round ) } } );
      }
      for ( int turn = 0; turn < round % 5; ++turn ) {
         loop.turn( 0ms );
      }
      server( { "CLIENT", "KILL", "TYPE", "normal" } );
      auto const connects = connection.connects();
      ASSERT_TRUE( eventually( [ & ] { return connection.connects() > connects; } ) );
      ASSERT_TRUE( written() );
      EXPECT_EQ( hash( "status:0" ), "round " + std::to_string( round ) );
      EXPECT_EQ( hash( "status:499" ), "round " + std::to_string( round ) );
   }
}

TEST_F( OutboxTest, MemoryIsBoundedByTheNumberOfKeysWhileAServerIsSlow ) {
   std::string const value( 10'000, 'x' );
   auto const all = [ & ]( int round ) {
      for ( int i = 0; i < 200; ++i ) {
         outbox.hashIs( "status:" + std::to_string( i ), { { std::to_string( round ), value } } );
      }
   };
   connection.start();
   all( 0 );
   ASSERT_TRUE( written() );
   server.freeze();
   all( 1 );
   auto const before = ::mallinfo2().uordblks;
   for ( int round = 2; round < 300 && connection.up(); ++round ) {
      all( round ); // 2 MB each
      loop.turn( 0ms );
   }
   EXPECT_LT( ::mallinfo2().uordblks, before + ( 8u << 20 ) );
   server.thaw();
   ASSERT_TRUE( written() );
   EXPECT_THAT( hash( "status:199" ), HasSubstr( value ) );
}

TEST_F( OutboxTest, WhatTheServerRefusesIsSaidOnceAndTriedAgain ) {
   connection.start();
   ASSERT_TRUE( written() );
   server( { "CONFIG", "SET", "maxmemory", "1" } );
   for ( int i = 0; i < 100; ++i ) {
      outbox.hashIs( "status:" + std::to_string( i ), { { "link", "up" } } );
   }
   ASSERT_TRUE( problem( "OOM" ) );
   turnFor( 1200ms ); // another attempt
   EXPECT_EQ( problems.size(), 1u );
   EXPECT_EQ( outbox.pending(), 100u );
   outbox.hashIs( "status:0", { { "link", "down" } } );
   server( { "CONFIG", "SET", "maxmemory", "0" } );
   ASSERT_TRUE( written() );
   EXPECT_EQ( problems.back(), "" );
   EXPECT_EQ( hash( "status:0" ), "link down" );

   for ( auto const & [ command, back, error ] :
         { std::tuple( std::vector< std::string >{ "REPLICAOF", "127.0.0.1", "1" },
                       std::vector< std::string >{ "REPLICAOF", "NO", "ONE" }, "READONLY" ),
           std::tuple( std::vector< std::string >{ "ACL", "SETUSER", "default", "-hset" },
                       std::vector< std::string >{ "ACL", "SETUSER", "default", "+hset" },
                       "valen:rtr1:status:0: NOPERM" ),
           std::tuple( std::vector< std::string >{ "ACL", "SETUSER", "default", "-multi" },
                       std::vector< std::string >{ "ACL", "SETUSER", "default", "+multi" },
                       "NOPERM" ) } ) {
      server( command );
      outbox.hashIs( "status:0", { { "error", error } } );
      EXPECT_TRUE( problem( error ) );
      server( back );
      EXPECT_TRUE( written() );
      EXPECT_EQ( problems.back(), "" );
      EXPECT_EQ( hash( "status:0" ), std::string( "error " ) + error );
   }
}

} // namespace
} // namespace Database
