#include "database/Connection.h"

#include "tests/database/DatabaseTest.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

namespace Database {
namespace {

using namespace std::chrono_literals;
using Test::FakeServer;
using Test::openDescriptors;
using Test::RedisServer;
using Test::shortTiming;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

class ConnectionTest : public Test::DatabaseTest {
 protected:
   Connection & connect( Address const & address ) {
      return connect( { .address = address, .name = "test", .timing = shortTiming() } );
   }
   Connection & connect( Connection::Options options ) {
      Connection::Events events{ .connected = [ this ] { on( atConnected ); },
                                 .lost =
                                    [ this ]( std::string const & why ) {
                                       losses.push_back( why );
                                       on( atLost );
                                    },
                                 .ready = [ this ] { ++ready; } };
      connection =
         std::make_unique< Connection >( loop, std::move( options ), std::move( events ) );
      connection->start();
      return *connection;
   }
   bool up() {
      return eventually( [ this ] { return connection->up(); } );
   }
   // The loss that comes next.
   std::string nextLoss() {
      losses.clear();
      return eventually( [ this ] { return !losses.empty(); } ) ? losses[ 0 ] : "none";
   }
   // Runs a command and waits for the reply.
   Reply ask( std::initializer_list< std::string_view > words ) {
      std::optional< Reply > answer;
      connection->command( words, [ &answer ]( Reply reply ) { answer = std::move( reply ); } );
      EXPECT_TRUE( eventually( [ & ] { return answer.has_value(); } ) );
      return answer.value_or( Reply() );
   }
   static void on( std::function< void() > const & action ) {
      if ( action ) {
         auto const copy = action;
         copy();
      }
   }

   std::function< void() > atConnected;
   std::function< void() > atLost;
   std::vector< std::string > losses;
   int ready = 0;
   std::unique_ptr< Connection > connection;
};

TEST_F( ConnectionTest, CommandsAreAnsweredInOrder ) {
   RedisServer const server;
   connect( Address::parse( server.url() ) );
   ASSERT_TRUE( up() );
   std::vector< std::string > answers;
   for ( int i = 0; i < 100; ++i ) {
      connection->command( { "ECHO", std::to_string( i ) },
                           [ & ]( Reply const & reply ) { answers.push_back( reply.text ); } );
   }
   EXPECT_TRUE( answers.empty() ) << "a callback from inside command()";
   ASSERT_TRUE( eventually( [ & ] { return answers.size() == 100; } ) );
   for ( int i = 0; i < 100; ++i ) {
      EXPECT_EQ( answers[ static_cast< std::size_t >( i ) ], std::to_string( i ) );
   }
   EXPECT_EQ( connection->outstandingBytes(), 0u );
   std::string const bytes( "\0\r\n\xff", 4 );
   ask( { "SET", bytes, bytes } );
   EXPECT_EQ( server( { "GET", bytes } ), bytes );
   EXPECT_THAT( server( { "CLIENT", "LIST" } ), HasSubstr( "name=test" ) );
}

TEST_F( ConnectionTest, TheDatabaseOfTheAddressIsSelected ) {
   RedisServer const server;
   connect( Address::parse( server.url() + "?db=5" ) );
   ASSERT_TRUE( up() );
   ask( { "SET", "a", "b" } );
   EXPECT_EQ( server( { "GET", "a" } ), "" );
   EXPECT_EQ( server( { "SELECT", "5" } ), "OK" );
   EXPECT_EQ( server( { "GET", "a" } ), "b" );
}

TEST_F( ConnectionTest, AServerThatComesLaterIsFound ) {
   RedisServer server;
   server.kill();
   connect( Address::parse( server.url() ) );
   EXPECT_EQ( nextLoss(), "connect: No such file or directory" );
   server.start();
   EXPECT_TRUE( up() );
}

TEST_F( ConnectionTest, WhatIsOutstandingAtALossIsReportedOnce ) {
   RedisServer server;
   connect( Address::parse( server.url() ) );
   ASSERT_TRUE( up() );
   server.freeze();
   std::vector< std::string > events;
   for ( int i = 0; i < 3; ++i ) {
      connection->command( { "PING" }, [ & ]( Reply const & reply ) {
         EXPECT_TRUE( reply.lost() );
         events.push_back( "reply" );
      } );
   }
   atLost = [ & ] { events.push_back( "lost" ); };
   auto const sent = [ this ] { return connection->outstandingBytes() > 0; };
   ASSERT_TRUE( eventually( sent ) );
   server.kill();
   ASSERT_TRUE( eventually( [ & ] { return !losses.empty(); } ) );
   EXPECT_THAT( std::vector( events.begin(), events.begin() + 4 ),
                ElementsAre( "reply", "reply", "reply", "lost" ) );
   EXPECT_TRUE( ask( { "PING" } ).lost() ) << "a command without a connection";
   server.start();
   ASSERT_TRUE( up() );
   EXPECT_EQ( ask( { "PING" } ).text, "PONG" );
   EXPECT_EQ( connection->connects(), 2u );
}

TEST_F( ConnectionTest, ASilentServerIsLost ) {
   RedisServer const server;
   connect( Address::parse( server.url() ) );
   ASSERT_TRUE( up() );
   turnFor( 600ms ); // longer than the silence that is taken for a loss: the server answers
   EXPECT_TRUE( connection->up() );
   server.freeze();
   EXPECT_EQ( nextLoss(), "no answer for 400 ms" );
   EXPECT_EQ( nextLoss(), "no answer within 2 s" ) << "the kernel still accepts for it";
   server.thaw();
   EXPECT_TRUE( up() );
}

TEST_F( ConnectionTest, AConnectionThatTheServerClosesIsMadeAgain ) {
   RedisServer const server;
   connect( Address::parse( server.url() ) );
   ASSERT_TRUE( up() );
   EXPECT_EQ( server( { "CLIENT", "KILL", "TYPE", "normal" } ), "1" );
   EXPECT_EQ( nextLoss(), "the server closed the connection" );
   EXPECT_TRUE( up() );
}

TEST_F( ConnectionTest, PasswordsOfTheAddressAndOfAFile ) {
   RedisServer const server( { "--requirepass", "secret" } );
   connect( Address::parse( server.url() ) );
   EXPECT_EQ( nextLoss(), "PING: NOAUTH Authentication required." );
   auto address = Address::parse( server.url() );
   address.password = "wrong";
   connect( address );
   EXPECT_THAT( nextLoss(), HasSubstr( "AUTH: WRONGPASS" ) );
   address.password = "secret";
   connect( address );
   EXPECT_TRUE( up() );

   Valen::Test::WorkDirectory const work;
   work.write( "password", "wrong\n" );
   ::chmod( ( work / "password" ).c_str(), 0644 );
   connect( Address::parse( server.url() + "?user=default&password-file=" + work / "password" ) );
   EXPECT_EQ( nextLoss(), "password file " + work / "password" +
                             " can be read by all users (run: chmod o= " + work / "password" +
                             ")" );
   ::chmod( ( work / "password" ).c_str(), 0600 );
   EXPECT_THAT( nextLoss(), HasSubstr( "AUTH: WRONGPASS" ) );
   work.write( "password", "secret\nand more" ); // is read at each attempt
   EXPECT_TRUE( up() );
   connect( Address::parse( server.url() + "?password-file=/nonexistent" ) );
   EXPECT_EQ( nextLoss(), "password file /nonexistent: No such file or directory" );
}

TEST_F( ConnectionTest, AUserWithoutAccessToPingIsToldSo ) {
   RedisServer const server;
   EXPECT_EQ( server( { "ACL", "SETUSER", "poor", "on", ">secret", "+auth" } ), "OK" );
   auto address = Address::parse( server.url() );
   address.user = "poor";
   address.password = "secret";
   connect( address );
   EXPECT_THAT( nextLoss(), HasSubstr( "PING: NOPERM" ) );
   EXPECT_EQ( server( { "ACL", "SETUSER", "poor", "+ping" } ), "OK" );
   EXPECT_TRUE( up() ) << "no name is needed";
}

TEST_F( ConnectionTest, AServerWithoutRoomForMoreClientsIsNamedAsSuch ) {
   RedisServer const server( { "--maxclients", "1" } );
   EXPECT_EQ( server( { "PING" } ), "PONG" );
   connect( Address::parse( server.url() ) );
   EXPECT_THAT( nextLoss(), HasSubstr( "max number of clients reached" ) );
   EXPECT_EQ( server( { "CONFIG", "SET", "maxclients", "2" } ), "OK" );
   EXPECT_TRUE( up() );
}

TEST_F( ConnectionTest, WhatIsOutstandingIsBounded ) {
   RedisServer const server;
   auto options = Connection::Options{ .address = Address::parse( server.url() ),
                                       .name = "test",
                                       .limits = { .outstandingBytes = 100'000 } };
   connect( options );
   ASSERT_TRUE( up() );
   server.freeze();
   std::string const value( 10'000, 'x' );
   int answers = 0;
   int given = 0;
   while ( connection->canTake() ) {
      ASSERT_LT( ++given, 100 );
      connection->command( { "SET", "a", value }, [ & ]( Reply const & ) { ++answers; } );
   }
   EXPECT_EQ( given, 10 );
   turnFor( 50ms );
   EXPECT_FALSE( connection->canTake() );
   EXPECT_EQ( ready, 0 );
   server.thaw();
   EXPECT_TRUE( eventually( [ & ] { return answers == given; } ) );
   EXPECT_EQ( ready, 1 );
   EXPECT_TRUE( connection->canTake() );
}

TEST_F( ConnectionTest, ALargeCommandIsSentInParts ) {
   RedisServer const server;
   connect( Address::parse( server.url() ) );
   ASSERT_TRUE( up() );
   std::string const value( 8 << 20, 'x' );
   EXPECT_EQ( ask( { "SET", "a", value } ).text, "OK" );
   EXPECT_EQ( ask( { "GET", "a" } ).text, value );
}

TEST_F( ConnectionTest, AReplyThatIsTooLargeIsALoss ) {
   RedisServer const server;
   server( { "SET", "a", std::string( 200'000, 'x' ) } );
   connect( { .address = Address::parse( server.url() ),
              .name = "test",
              .timing = shortTiming(),
              .limits = { .replyBytes = 100'000 } } );
   ASSERT_TRUE( up() );
   EXPECT_TRUE( ask( { "GET", "a" } ).lost() );
   EXPECT_THAT( losses, ElementsAre( "a reply has more than 100000 bytes" ) );
   ASSERT_TRUE( up() );
   EXPECT_EQ( ask( { "PING" } ).text, "PONG" );
}

TEST_F( ConnectionTest, ALoadingServerIsAskedAgain ) {
   int asked = 0;
   FakeServer const server( loop, [ & ]( std::string const & ) {
      return ++asked < 3
                ? std::string( "-LOADING Redis is loading the dataset in memory\r\n+OK\r\n" )
                : std::string( "+PONG\r\n+OK\r\n" );
   } );
   connect( server.address() );
   EXPECT_TRUE( up() );
   EXPECT_THAT( losses, ElementsAre( "PING: LOADING Redis is loading the dataset in memory",
                                     "PING: LOADING Redis is loading the dataset in memory" ) );
}

TEST_F( ConnectionTest, WhatWasNotAskedForIsALoss ) {
   FakeServer server( loop, FakeServer::greeted( []( auto const & ) { return "+OK\r\n"; } ) );
   for ( auto const * bytes :
         { "+OK\r\n", "*3\r\n$7\r\nmessage\r\n$1\r\na\r\n$1\r\nb\r\n", "*0\r\n", ":1\r\n" } ) {
      connect( server.address() );
      ASSERT_TRUE( up() );
      server.say( bytes );
      EXPECT_EQ( nextLoss(), "the server sent what was not asked for" );
   }
   connect( server.address() );
   ASSERT_TRUE( up() );
   server.say( "-ERR going away\r\n" );
   EXPECT_EQ( nextLoss(), "ERR going away" );
}

TEST_F( ConnectionTest, HalfAReplyAndGarbageAreLosses ) {
   std::string answer;
   FakeServer server( loop, FakeServer::greeted( [ & ]( auto const & ) { return answer; } ) );
   auto options =
      Connection::Options{ .address = server.address(), .name = "test", .timing = shortTiming() };
   for ( auto const & [ bytes, why ] :
         { std::pair( "$100\r\nabc", "no answer for 400 ms" ),
           std::pair( "*2\r\n$1\r\na\r\n", "no answer for 400 ms" ),
           std::pair( "\x01\x02\x03", "the server does not speak the protocol" ) } ) {
      connect( options );
      ASSERT_TRUE( up() );
      answer = bytes;
      bool lost = false;
      connection->command( { "GET", "a" }, [ & ]( Reply const & reply ) { lost = reply.lost(); } );
      auto const loss = nextLoss();
      EXPECT_THAT( loss, HasSubstr( why ) );
      EXPECT_TRUE( lost );
      answer.clear();
   }
}

TEST_F( ConnectionTest, NoticesComeBesideReplies ) {
   RedisServer const server;
   std::vector< std::string > notices;
   Connection::Events events{
      .lost = []( std::string const & why ) { ADD_FAILURE() << why; },
      .notice = [ & ]( std::string const & channel,
                       std::string const & text ) { notices.push_back( channel + "=" + text ); } };
   connection = std::make_unique< Connection >(
      loop,
      Connection::Options{
         .address = Address::parse( server.url() ), .name = "test", .timing = shortTiming() },
      std::move( events ) );
   connection->start();
   ASSERT_TRUE( up() );
   EXPECT_EQ( ask( { "PSUBSCRIBE", "a*" } ).items.size(), 3u );
   EXPECT_EQ( ask( { "SUBSCRIBE", "b" } ).items.size(), 3u );
   server( { "PUBLISH", "ax", "1" } );
   server( { "PUBLISH", "b", "2" } );
   EXPECT_TRUE( eventually( [ & ] { return notices.size() == 2; } ) );
   EXPECT_THAT( notices, ElementsAre( "ax=1", "b=2" ) );
   turnFor( 600ms );
   EXPECT_TRUE( connection->up() ) << "it is asked for a sign of life as well";
}

TEST_F( ConnectionTest, ANameIsResolved ) {
   FakeServer const server(
      loop, []( auto const & ) { return "+PONG\r\n+OK\r\n"; }, FakeServer::Tcp{} );
   connect( Address::parse( "redis://localhost:" + std::to_string( server.port() ) ) );
   EXPECT_TRUE( up() );
   connect( Address::parse( "redis://127.0.0.1:" + std::to_string( server.port() ) ) );
   EXPECT_TRUE( up() );
   connect( Address::parse( "redis://nonexistent.invalid" ) );
   EXPECT_THAT( nextLoss(), HasSubstr( "host nonexistent.invalid: " ) );
   connect( Address::parse( "redis://[::1]:1" ) );
   EXPECT_THAT( nextLoss(), HasSubstr( "connect: " ) );
}

TEST_F( ConnectionTest, AnyCallbackMayDestroyTheConnection ) {
   RedisServer const server;
   auto const address = Address::parse( server.url() );
   atConnected = [ this ] { connection.reset(); };
   connect( address );
   EXPECT_TRUE( eventually( [ this ] { return !connection; } ) );

   atConnected = nullptr;
   connect( address );
   ASSERT_TRUE( up() );
   connection->command( { "PING" }, [ this ]( Reply const & ) { connection.reset(); } );
   connection->command( { "PING" },
                        []( Reply const & ) { ADD_FAILURE() << "after its destruction"; } );
   EXPECT_TRUE( eventually( [ this ] { return !connection; } ) );

   atLost = [ this ] { connection.reset(); };
   connect( address );
   ASSERT_TRUE( up() );
   server( { "CLIENT", "KILL", "TYPE", "normal" } );
   EXPECT_TRUE( eventually( [ this ] { return !connection; } ) );
   connect( Address::parse( "unix:///nonexistent" ) );
   EXPECT_TRUE( eventually( [ this ] { return !connection; } ) );
   connect( Address::parse( "redis://nonexistent.invalid" ) );
   EXPECT_TRUE( eventually( [ this ] { return !connection; } ) );

   connect( address );
   ASSERT_TRUE( up() );
   server.freeze();
   connection->command( { "PING" }, [ this ]( Reply const & ) { connection.reset(); } );
   connection->command( { "PING" },
                        []( Reply const & ) { ADD_FAILURE() << "after its destruction"; } );
   EXPECT_TRUE( eventually( [ this ] { return !connection; } ) );
   server.thaw();
   turnFor( 20ms );
}

TEST_F( ConnectionTest, AnyCallbackMayStopAndStartTheConnection ) {
   RedisServer const server;
   connect( Address::parse( server.url() ) );
   ASSERT_TRUE( up() );
   int replies = 0;
   connection->command( { "PING" }, [ & ]( Reply const & ) {
      ++replies;
      connection->stop();
      connection->start();
   } );
   connection->command( { "PING" }, [ & ]( Reply const & ) { ++replies; } );
   ASSERT_TRUE( eventually( [ & ] { return replies > 0; } ) );
   ASSERT_TRUE( up() );
   EXPECT_EQ( ask( { "PING" } ).text, "PONG" );
   EXPECT_EQ( replies, 1 );
   atLost = [ this ] { connection->stop(); };
   server( { "CLIENT", "KILL", "TYPE", "normal" } );
   ASSERT_TRUE( eventually( [ & ] { return !losses.empty(); } ) );
   turnFor( 50ms );
   EXPECT_FALSE( connection->up() );
}

TEST_F( ConnectionTest, AThousandLossesLeaveNothingBehind ) {
   RedisServer const server;
   auto options = Connection::Options{ .address = Address::parse( server.url() ), .name = "test" };
   options.timing.firstPause = options.timing.lastPause = 1ms;
   connect( options );
   ASSERT_TRUE( up() );
   auto const descriptors = openDescriptors();
   auto const sources = loop.descriptors();
   for ( U64 i = 1; i <= 1000; ++i ) {
      connection->command( { "CLIENT", "KILL", "TYPE", "normal", "SKIPME", "no" },
                           []( Reply const & ) {} );
      ASSERT_TRUE( eventually( [ & ] { return connection->connects() > i && connection->up(); } ) )
         << i;
   }
   EXPECT_EQ( openDescriptors(), descriptors );
   EXPECT_EQ( loop.descriptors(), sources );
}

} // namespace
} // namespace Database
