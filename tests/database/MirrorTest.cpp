#include "database/Mirror.h"

#include "tests/database/DatabaseTest.h"

#include <gmock/gmock.h>
#include <random>
#include <sstream>

namespace Database {
namespace {

using namespace std::chrono_literals;
using Test::FakeServer;
using Test::openDescriptors;
using Test::RedisServer;
using Test::shortTiming;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

using Content = std::map< std::string, Fields >;

class MirrorTest : public Test::DatabaseTest {
 protected:
   static Mirror::Options optionsFor( Address const & address ) {
      return { .connection = { .address = address, .name = "test", .timing = shortTiming() },
               .prefix = "valen:rtr[1]", // has signs of patterns
               .names = { "config:", "want:" },
               .compare = 100ms,
               .poll = 50ms,
               .noticeTimeout = 200ms };
   }
   void mirror( Mirror::Options const & options ) {
      Mirror::Events events{
         .entityIs =
            [ this ]( std::string const & name, Fields const & fields ) {
               changes.push_back( name + " is" );
               told[ name ] = fields;
               bad.erase( name );
            },
         .entityGone =
            [ this ]( std::string const & name ) {
               changes.push_back( name + " gone" );
               told.erase( name );
               bad.erase( name );
            },
         .unreadable = [ this ]( std::string const & name,
                                 std::string const & why ) { bad[ name ] = why; },
         .complete =
            [ this ] {
               ++completes;
               changes.push_back( "complete" );
            },
         .problem = [ this ]( std::string const & why ) { problems.push_back( why ); } };
      mirror_.emplace( loop, options, std::move( events ) );
      mirror_->start();
   }
   void mirror() { mirror( optionsFor( Address::parse( server->url() ) ) ); }
   bool complete( int times = 1 ) {
      return eventually( [ this, times ] { return completes >= times; } );
   }
   static std::string key( std::string const & name ) { return "valen:rtr[1]:" + name; }
   void set( std::string const & name, std::string const & field,
             std::string const & value ) const {
      ( *server )( { "HSET", key( name ), field, value } );
   }
   // What the server has of what is mirrored.
   Content truth() const {
      Content content;
      std::istringstream keys( ( *server )( { "KEYS", "*" } ) );
      for ( std::string key; keys >> key; ) {
         auto const name = key.substr( std::min( key.size(), std::size_t( 13 ) ) );
         if ( key.starts_with( "valen:rtr[1]:" ) &&
              ( name.starts_with( "config:" ) || name.starts_with( "want:" ) ) ) {
            std::istringstream words( ( *server )( { "HGETALL", key } ) );
            for ( std::string field, value; words >> field >> value; ) {
               content[ name ][ field ] = value;
            }
         }
      }
      return content;
   }
   // Whether both what the mirror has and what it has told become what the server has.
   bool becomesTrue() {
      auto const expected = truth();
      return eventually( [ & ] { return mirror_->content() == expected && told == expected; } );
   }
   bool problem( std::string const & part ) {
      return eventually(
         [ & ] { return !problems.empty() && problems.back().find( part ) != std::string::npos; } );
   }
   bool noProblem() {
      return eventually( [ & ] { return problems.empty() || problems.back().empty(); } );
   }

   std::optional< RedisServer > server{ std::in_place };
   std::vector< std::string > changes;
   Content told;
   std::map< std::string, std::string > bad;
   std::vector< std::string > problems;
   int completes = 0;
   std::optional< Mirror > mirror_;
};

TEST_F( MirrorTest, WhatIsThereAndWhatChangesIsTold ) {
   set( "config:delay", "shutdown-delay-ms", "10" );
   ( *server )( { "HSET", "valen:other:config:delay", "a", "b" } );
   ( *server )(
      { "HSET", "valen:rtr1:config:delay", "a", "b" } ); // what the prefix would match as a pattern
   set( "status:Ethernet1", "link", "up" );
   mirror();
   ASSERT_TRUE( complete() );
   EXPECT_THAT( changes, ElementsAre( "config:delay is", "complete" ) );
   EXPECT_EQ( told[ "config:delay" ][ "shutdown-delay-ms" ], "10" );
   changes.clear();
   set( "want:Ethernet1", "link", "down" );
   ASSERT_TRUE( becomesTrue() );
   set( "want:Ethernet1", "link", "up" );
   ASSERT_TRUE( becomesTrue() );
   ( *server )( { "DEL", key( "config:delay" ) } );
   ASSERT_TRUE( becomesTrue() );
   EXPECT_THAT( changes,
                ElementsAre( "want:Ethernet1 is", "want:Ethernet1 is", "config:delay gone" ) );
   set( "want:Ethernet1", "link", "up" ); // the same
   set( "status:Ethernet1", "link", "down" );
   ( *server )( { "RENAME", key( "want:Ethernet1" ), key( "want:Ethernet2" ) } );
   ASSERT_TRUE( becomesTrue() );
   EXPECT_EQ( changes.size(), 5u );
   ( *server )( { "PEXPIRE", key( "want:Ethernet2" ), "20" } );
   ASSERT_TRUE( eventually( [ this ] { return told.empty(); } ) );
   EXPECT_EQ( completes, 1 );
   EXPECT_THAT( problems, IsEmpty() );
}

TEST_F( MirrorTest, AnEmptyServerIsComplete ) {
   mirror();
   EXPECT_TRUE( complete() );
   EXPECT_THAT( changes, ElementsAre( "complete" ) );
}

TEST_F( MirrorTest, ManyEntitiesAreReadAndRemovedTogether ) {
   for ( int i = 0; i < 5000; ++i ) {
      set( "want:Ethernet" + std::to_string( i ), "link", "up" );
   }
   mirror();
   ASSERT_TRUE( complete() );
   EXPECT_EQ( told.size(), 5000u );
   EXPECT_EQ( changes.back(), "complete" );
   server->restart();
   ASSERT_TRUE( complete( 2 ) );
   EXPECT_THAT( told, IsEmpty() );
   EXPECT_EQ( changes.back(), "complete" );
}

TEST_F( MirrorTest, NothingChangesWhileTheServerIsAway ) {
   set( "config:delay", "shutdown-delay-ms", "10" );
   mirror();
   ASSERT_TRUE( complete() );
   changes.clear();
   server->kill();
   ASSERT_TRUE( problem( "connect: No such file or directory" ) );
   turnFor( 100ms );
   EXPECT_THAT( changes, IsEmpty() );
   EXPECT_EQ( mirror_->content().size(), 1u );
   server->start();
   ASSERT_TRUE( complete( 2 ) );
   EXPECT_THAT( changes, ElementsAre( "config:delay gone", "complete" ) );
   EXPECT_TRUE( noProblem() );
}

TEST_F( MirrorTest, WhatChangesDuringALossIsToldAfterwards ) {
   set( "want:a", "link", "up" );
   set( "want:b", "link", "up" );
   mirror();
   ASSERT_TRUE( complete() );
   for ( auto const * type : { "normal", "pubsub" } ) {
      changes.clear();
      // In one step of the server, so that no notice can help.
      ( *server )( { "EVAL",
                     "redis.call('CLIENT','KILL','TYPE',ARGV[1]) "
                     "redis.call('HSET',KEYS[1],'link',ARGV[1]) redis.call('DEL',KEYS[2]) "
                     "redis.call('HSET',KEYS[3],'link','up')",
                     "3", key( "want:a" ), key( "want:b" ), key( "want:c" ), type } );
      ASSERT_TRUE( becomesTrue() ) << type;
      set( "want:b", "link", "up" );
      ( *server )( { "DEL", key( "want:c" ) } );
      ASSERT_TRUE( becomesTrue() ) << type;
   }
}

TEST_F( MirrorTest, AServerThatIsStoppedIsNoticedAndReadAgain ) {
   set( "want:a", "link", "up" );
   mirror();
   ASSERT_TRUE( complete() );
   server->freeze();
   ASSERT_TRUE( problem( "no answer for 400 ms" ) );
   EXPECT_EQ( told.size(), 1u );
   server->thaw();
   set( "want:b", "link", "up" );
   ASSERT_TRUE( becomesTrue() );
   EXPECT_TRUE( complete( 2 ) );
   EXPECT_TRUE( noProblem() );
}

TEST_F( MirrorTest, EverythingIsGoneAfterAFlush ) {
   set( "want:a", "link", "up" );
   mirror();
   ASSERT_TRUE( complete() );
   ( *server )( { "FLUSHALL" } ); // sends no notice of a key
   ASSERT_TRUE( eventually( [ this ] { return told.empty(); } ) );
   set( "want:b", "link", "up" );
   EXPECT_TRUE( becomesTrue() );
}

TEST_F( MirrorTest, ASubscriberThatIsCutOffReadsEverythingAgain ) {
   mirror();
   ASSERT_TRUE( complete() );
   ( *server )( { "CONFIG", "SET", "client-output-buffer-limit", "pubsub 2000 0 0" } );
   ( *server )(
      { "EVAL", "for i=1,2000 do redis.call('HSET',KEYS[1]..i,'a',i) end", "1", key( "want:a" ) } );
   ASSERT_TRUE( becomesTrue() );
   EXPECT_GE( mirror_->reconnects(), 1u );
   ( *server )( { "CONFIG", "SET", "client-output-buffer-limit", "pubsub 32mb 8mb 60" } );
   set( "want:z", "link", "up" );
   EXPECT_TRUE( becomesTrue() );
}

TEST_F( MirrorTest, WithoutRoomForASecondClientItIsReadAtIntervals ) {
   set( "want:a", "link", "up" );
   ( *server )( { "CONFIG", "SET", "maxclients", "2" } ); // one is the test's
   mirror();
   ASSERT_TRUE( complete() );
   EXPECT_TRUE( problem( "max number of clients reached" ) );
   set( "want:b", "link", "up" );
   EXPECT_TRUE( becomesTrue() );
   ( *server )( { "CONFIG", "SET", "maxclients", "10" } );
   EXPECT_TRUE( noProblem() );
}

TEST_F( MirrorTest, WithoutNoticesItIsReadAtIntervals ) {
   server.emplace( std::vector< std::string >{ "--notify-keyspace-events", "" } );
   set( "want:a", "link", "up" );
   mirror();
   ASSERT_TRUE( complete() );
   ASSERT_TRUE( problem( "notify-keyspace-events" ) );
   set( "want:a", "link", "down" );
   EXPECT_TRUE( becomesTrue() );
   ( *server )( { "DEL", key( "want:a" ) } );
   EXPECT_TRUE( becomesTrue() );
   ( *server )( { "CONFIG", "SET", "notify-keyspace-events", "KA" } );
   EXPECT_TRUE( noProblem() );
   ( *server )( { "CONFIG", "SET", "notify-keyspace-events", "Kh" } ); // without deletions
   EXPECT_TRUE( problem( "notify-keyspace-events" ) );
   EXPECT_EQ( completes, 1 );
   EXPECT_EQ( ( *server )( { "EXISTS", key( "test" ) } ), "0" );
}

TEST_F( MirrorTest, AHashThatIsTooLargeIsSaidAndReadWhenItIsSmaller ) {
   set( "want:a", "link", "up" );
   set( "want:b", "link", "up" );
   auto options = optionsFor( Address::parse( server->url() ) );
   options.entityBytes = 100'000;
   mirror( options );
   ASSERT_TRUE( complete() );
   set( "want:a", "by", std::string( 200'000, 'x' ) );
   ASSERT_TRUE( complete( 2 ) ) << "it ends the connection";
   EXPECT_THAT( bad[ "want:a" ], HasSubstr( "more than 100000 bytes" ) );
   EXPECT_EQ( told[ "want:a" ].size(), 1u ) << "its last value stays";
   set( "want:b", "link", "down" );
   ASSERT_TRUE( eventually( [ this ] { return told[ "want:b" ][ "link" ] == "down"; } ) );
   set( "want:a", "reason", "x" );
   turnFor( 300ms ); // several comparisons
   EXPECT_EQ( mirror_->reconnects(), 1u );
   ( *server )( { "HDEL", key( "want:a" ), "by" } );
   EXPECT_TRUE( becomesTrue() );
   EXPECT_THAT( bad, IsEmpty() );
   set( "want:c", "by", std::string( 200'000, 'x' ) ); // never readable
   ASSERT_TRUE( complete( 3 ) );
   EXPECT_EQ( bad.size(), 1u );
   ( *server )( { "DEL", key( "want:c" ) } );
   EXPECT_TRUE( eventually( [ this ] { return bad.empty(); } ) );
}

TEST_F( MirrorTest, MoreThanAllMayHaveIsNotKept ) {
   auto options = optionsFor( Address::parse( server->url() ) );
   options.allBytes = 100'000;
   mirror( options );
   ASSERT_TRUE( complete() );
   set( "want:a", "by", std::string( 60'000, 'x' ) );
   ASSERT_TRUE( becomesTrue() );
   set( "want:b", "by", std::string( 60'000, 'x' ) );
   ASSERT_TRUE( eventually( [ this ] { return bad.contains( "want:b" ); } ) );
   EXPECT_THAT( bad[ "want:b" ], HasSubstr( "all entities together have more than 100000 bytes" ) );
   ( *server )( { "DEL", key( "want:a" ) } );
   ASSERT_TRUE( eventually( [ this ] { return told.empty(); } ) );
   set( "want:b", "by", std::string( 60'000, 'y' ) );
   EXPECT_TRUE( becomesTrue() );
}

TEST_F( MirrorTest, TooManyKeysAreSaid ) {
   for ( auto const * name : { "want:a", "want:b", "want:c" } ) {
      set( name, "link", "up" );
   }
   auto options = optionsFor( Address::parse( server->url() ) );
   options.entities = 2;
   mirror( options );
   EXPECT_TRUE( problem( "more than 2 keys" ) );
   EXPECT_EQ( completes, 0 );
   ( *server )( { "DEL", key( "want:c" ) } );
   EXPECT_TRUE( complete() );
   EXPECT_TRUE( becomesTrue() );
   EXPECT_TRUE( noProblem() );
}

TEST_F( MirrorTest, AKeyThatIsNoHashIsSaid ) {
   set( "want:a", "link", "up" );
   mirror();
   ASSERT_TRUE( complete() );
   ( *server )( { "SET", key( "want:a" ), "up" } );
   ASSERT_TRUE( eventually( [ this ] { return bad.contains( "want:a" ); } ) );
   EXPECT_EQ( bad[ "want:a" ], "expected a hash" );
   EXPECT_EQ( told.size(), 1u );
   ( *server )( { "DEL", key( "want:a" ) } );
   set( "want:a", "link", "up" ); // the value that was told last
   ASSERT_TRUE( eventually( [ this ] { return bad.empty(); } ) );
   EXPECT_TRUE( becomesTrue() );
}

TEST_F( MirrorTest, AMissingRightIsSaidAndNothingIsRemoved ) {
   set( "want:a", "link", "up" );
   mirror();
   ASSERT_TRUE( complete() );
   ( *server )( { "ACL", "SETUSER", "default", "-hgetall" } );
   ( *server )( { "HSET", key( "want:b" ), "link", "up" } );
   ASSERT_TRUE( problem( "HGETALL valen:rtr[1]:want:b: NOPERM" ) );
   ( *server )( { "ACL", "SETUSER", "default", "-scan" } );
   ASSERT_TRUE( problem( "SCAN: NOPERM" ) );
   EXPECT_EQ( told.size(), 1u );
   ( *server )( { "ACL", "SETUSER", "default", "+@all" } );
   EXPECT_TRUE( becomesTrue() );
   EXPECT_TRUE( noProblem() );
   ( *server )( { "ACL", "SETUSER", "default", "resetchannels" } ); // closes what has subscribed
   EXPECT_TRUE( problem( "PSUBSCRIBE: NOPERM" ) );
   set( "want:c", "link", "up" );
   EXPECT_TRUE( becomesTrue() );
}

TEST_F( MirrorTest, AServerThatTakesNoWritesIsStillRead ) {
   mirror();
   ASSERT_TRUE( complete() );
   ( *server )( { "CONFIG", "SET", "maxmemory", "1" } );
   EXPECT_TRUE( problem( "cannot test whether the server tells of changed keys: OOM" ) );
   ( *server )( { "CONFIG", "SET", "maxmemory", "0" } );
   EXPECT_TRUE( noProblem() );
   set( "want:a", "link", "up" );
   EXPECT_TRUE( becomesTrue() );
   ( *server )( { "REPLICAOF", "127.0.0.1", "1" } );
   EXPECT_TRUE( problem( "READONLY" ) );
   EXPECT_TRUE( becomesTrue() );
   ( *server )( { "REPLICAOF", "NO", "ONE" } );
   EXPECT_TRUE( noProblem() );
}

TEST_F( MirrorTest, RepliesThatMakeNoSenseRemoveNothing ) {
   std::string scan = "*2\r\n$1\r\n0\r\n*1\r\n$19\r\nvalen:rtr[1]:want:a\r\n";
   std::string hash = "*2\r\n$1\r\na\r\n$1\r\nb\r\n";
   FakeServer const fake( loop, FakeServer::greeted( [ & ]( std::string const & bytes ) {
                             std::string answer;
                             for ( std::size_t at = 0; ( at = bytes.find( '*', at ) ) != bytes.npos;
                                   ++at ) {
                                auto const command = bytes.substr( at, 16 );
                                answer += command.find( "SCAN" ) != command.npos      ? scan
                                          : command.find( "HGETALL" ) != command.npos ? hash
                                          : command.find( "PSUB" ) != command.npos
                                             ? "*3\r\n$10\r\npsubscribe\r\n$1\r\na\r\n:1\r\n"
                                          : command.find( "PING" ) != command.npos ||
                                                command.find( "HSET" ) != command.npos ||
                                                command.find( "DEL" ) != command.npos
                                             ? "+OK\r\n"
                                             : "";
                             }
                             return answer;
                          } ) );
   mirror( optionsFor( fake.address() ) );
   ASSERT_TRUE( complete() );
   EXPECT_EQ( told[ "want:a" ][ "a" ], "b" );
   for ( auto const * answer : { "+OK\r\n", ":1\r\n", "*1\r\n$1\r\n0\r\n", "$-1\r\n", "*0\r\n" } ) {
      scan = answer;
      problems.clear();
      EXPECT_TRUE( problem( "SCAN: an unexpected reply" ) ) << answer;
      scan = "*2\r\n$1\r\n0\r\n*1\r\n$19\r\nvalen:rtr[1]:want:a\r\n";
      EXPECT_TRUE(
         eventually( [ & ] { return problems.back().find( "SCAN" ) == std::string::npos; } ) );
   }
   for ( auto const * answer : { "+OK\r\n", "*1\r\n$1\r\na\r\n", "*2\r\n:1\r\n:2\r\n" } ) {
      hash = answer;
      bad.clear();
      EXPECT_TRUE( eventually( [ & ] { return bad.contains( "want:a" ); } ) ) << answer;
      hash = "*2\r\n$1\r\na\r\n$1\r\nb\r\n";
      EXPECT_TRUE( eventually( [ & ] { return bad.empty(); } ) ) << answer;
   }
   EXPECT_EQ( told.size(), 1u );
}

TEST_F( MirrorTest, ItIsWhatTheServerHasAfterEachQuietMoment ) {
   std::mt19937 random( 1 );
   auto const some = [ & ]( unsigned count ) { return std::to_string( random() % count ); };
   mirror();
   ASSERT_TRUE( complete() );
   for ( int round = 0; round < 40; ++round ) {
      for ( int i = 0; i < 100; ++i ) {
         auto const name = ( random() % 2 ? "want:" : "config:interface:" ) + some( 30 );
         switch ( random() % 8 ) {
         case 0:
            ( *server )( { "DEL", key( name ) } );
            break;
         case 1:
            ( *server )( { "RENAME", key( name ), key( "want:" + some( 30 ) ) } );
            break;
         case 2:
            ( *server )( { "HDEL", key( name ), some( 3 ) } );
            break;
         default:
            set( name, some( 3 ), some( 1000 ) );
         }
         if ( random() % 10 == 0 ) {
            loop.turn( 0ms );
         }
      }
      switch ( random() % 10 ) {
      case 0:
         ( *server )( { "FLUSHALL" } );
         break;
      case 1:
         ( *server )( { "CLIENT", "KILL", "TYPE", random() % 2 ? "normal" : "pubsub" } );
         break;
      case 2:
         server->restart();
         break;
      default:
         break;
      }
      ASSERT_TRUE( becomesTrue() ) << "round " << round;
   }
}

TEST_F( MirrorTest, AThousandLossesLeaveNothingBehind ) {
   set( "want:a", "link", "up" );
   auto options = optionsFor( Address::parse( server->url() ) );
   options.connection.timing.firstPause = options.connection.timing.lastPause = 1ms;
   mirror( options );
   ASSERT_TRUE( complete() );
   auto const descriptors = openDescriptors();
   for ( int i = 1; i <= 1000; ++i ) {
      ( *server )( { "CLIENT", "KILL", "TYPE", i % 2 ? "normal" : "pubsub" } );
      ASSERT_TRUE( complete( i + 1 ) ) << i;
   }
   EXPECT_EQ( openDescriptors(), descriptors );
   EXPECT_THAT( mirror_->content(), truth() );
   EXPECT_EQ( changes.size(), 1002u ) << "nothing is told twice";
}

} // namespace
} // namespace Database
