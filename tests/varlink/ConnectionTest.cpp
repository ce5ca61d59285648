#include "varlink/Connection.h"

#include <gmock/gmock.h>

#include <sys/socket.h>
#include <unistd.h>

namespace Varlink {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Keeps each call; answers "Two" at once, with two messages when the client wants more.
class KeepingService final : public Service {
 public:
   void call( std::shared_ptr< Call > call ) override {
      methods.push_back( call->method() );
      if ( call->method() == "Two" ) {
         call->replyContinues( { { "n", 1 } } );
         call->reply( { { "n", 2 } } );
      }
      calls.push_back( std::move( call ) );
   }
   std::vector< std::string > methods;
   std::vector< std::shared_ptr< Call > > calls;
};

// One connection, whose other end the test holds.
class ConnectionTest : public ::testing::Test {
 protected:
   ConnectionTest() {
      int ends[ 2 ];
      EXPECT_EQ( ::socketpair( AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends ), 0 );
      client = Valen::Linux::Fd( ends[ 0 ] );
      serverEnd = Valen::Linux::Fd( ::dup( ends[ 1 ] ) );
      Connection::Surroundings const surroundings{ loop, service, limits,
                                                   [ this ]( auto const &, auto end ) {
                                                      ended.push_back( end );
                                                      connection = nullptr;
                                                   },
                                                   [ this ]( auto const & ) { return mayLast; } };
      connection = std::make_shared< Connection >( surroundings, Valen::Linux::Fd( ends[ 1 ] ),
                                                   Caller{ 7, 1, { 7 } }, Rank::user, 3 );
      connection->start();
   }

   void settle() {
      for ( int i = 0; i < 20; ++i ) {
         loop.turn( 0ms );
      }
   }
   void send( std::vector< std::string > const & methods, Wanted wanted = Wanted::many ) {
      std::string bytes;
      for ( auto const & method : methods ) {
         bytes += encoded( { { "method", method },
                             { "more", wanted == Wanted::many },
                             { "oneway", wanted == Wanted::none } } );
      }
      EXPECT_EQ( ::send( client.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL ),
                 static_cast< ssize_t >( bytes.size() ) );
   }
   // What the client can take now.
   std::vector< Json > taken() {
      char buffer[ 65536 ];
      for ( ssize_t count; ( count = ::recv( client.get(), buffer, sizeof buffer, 0 ) ) > 0; ) {
         in.feed( { buffer, static_cast< std::size_t >( count ) } );
      }
      std::vector< Json > messages;
      while ( auto const text = in.next() ) {
         messages.push_back( Json::parse( *text ) );
      }
      return messages;
   }

   Valen::Linux::EventLoop loop;
   KeepingService service;
   Limits limits{ .messageBytes = 1000, .waitingBytes = 8'000'000, .stallTimeout = 50ms };
   Gantry::Time const begin = loop.scheduler()->now();
   Valen::Linux::Fd client;
   Valen::Linux::Fd serverEnd; // the connection has another descriptor of it
   Framing in{ 8'000'000 };
   std::vector< Connection::End > ended;
   bool mayLast = true;
   std::shared_ptr< Connection > connection;
};

Json const big{ { "text", std::string( 5'000'000, 'x' ) } }; // more than a socket takes

TEST_F( ConnectionTest, IdleBeginsACallAndTheNextWaitsForItsLastAnswer ) {
   EXPECT_TRUE( connection->idle() );
   send( { "A", "B" } );
   settle();
   EXPECT_THAT( service.methods, ElementsAre( "A" ) );
   EXPECT_FALSE( connection->idle() );
   EXPECT_EQ( service.calls[ 0 ]->client(), 3u );
   service.calls[ 0 ]->replyContinues( Json::object() );
   settle();
   EXPECT_THAT( service.methods, ElementsAre( "A" ) );
   service.calls[ 0 ]->reply( Json::object() );
   EXPECT_THAT( service.methods, ElementsAre( "A" ) ) << "not inside an answer";
   settle();
   EXPECT_THAT( service.methods, ElementsAre( "A", "B" ) );
}

TEST_F( ConnectionTest, WhatIsAnsweredWhileCallingIsSentInOrder ) {
   send( { "Two", "Two" } );
   settle();
   EXPECT_THAT( taken(),
                ElementsAre( Json{ { "parameters", { { "n", 1 } } }, { "continues", true } },
                             Json{ { "parameters", { { "n", 2 } } } },
                             Json{ { "parameters", { { "n", 1 } } }, { "continues", true } },
                             Json{ { "parameters", { { "n", 2 } } } } ) );
   EXPECT_TRUE( connection->idle() );
}

TEST_F( ConnectionTest, DrainingWaitsUntilAllIsTaken ) {
   send( { "A", "B" } );
   settle();
   service.calls[ 0 ]->reply( big );
   settle();
   EXPECT_FALSE( connection->idle() );
   EXPECT_GT( connection->waiting(), 0u );
   EXPECT_THAT( service.methods, ElementsAre( "A" ) );
   std::size_t answers = 0;
   for ( int i = 0; i < 1000 && answers == 0; ++i ) {
      answers = taken().size();
      loop.turn( 0ms );
   }
   settle();
   EXPECT_EQ( answers, 1u );
   EXPECT_EQ( connection->waiting(), 0u );
   EXPECT_THAT( service.methods, ElementsAre( "A", "B" ) );
}

TEST_F( ConnectionTest, AHangUpWhileIdleMakesTheCallsThatCameIn ) {
   send( { "Two", "Two", "Two" }, Wanted::none );
   client.close();
   settle();
   EXPECT_THAT( service.methods, ElementsAre( "Two", "Two", "Two" ) );
   EXPECT_THAT( ended, ElementsAre( Connection::End::hungUp ) );
}

TEST_F( ConnectionTest, AHangUpWhileAnsweringOrDrainingCloses ) {
   send( { "A" } );
   settle();
   service.calls[ 0 ]->reply( big );
   client.close();
   settle();
   EXPECT_THAT( ended, ElementsAre( Connection::End::hungUp ) );
}

TEST_F( ConnectionTest, AClosedConnectionDropsAnswers ) {
   send( { "A" } );
   settle();
   client.close();
   settle();
   ASSERT_THAT( ended, ElementsAre( Connection::End::hungUp ) );
   EXPECT_FALSE( service.calls[ 0 ]->open() );
   service.calls[ 0 ]->replyContinues( Json::object() );
   service.calls[ 0 ]->reply( Json::object() );
   settle();
   EXPECT_EQ( ended.size(), 1u );
}

TEST_F( ConnectionTest, AStalledClientIsDisconnectedByATimerThatGoesWithIt ) {
   send( { "A" } );
   settle();
   service.calls[ 0 ]->reply( big );
   for ( int i = 0; i < 100 && ended.empty(); ++i ) {
      loop.turn( 20ms );
   }
   EXPECT_THAT( ended, ElementsAre( Connection::End::notReading ) );
}

TEST_F( ConnectionTest, AnswersBeyondTheLimitDisconnectTheClient ) {
   send( { "A" } );
   settle();
   service.calls[ 0 ]->replyContinues( big );
   EXPECT_THAT( ended, IsEmpty() );
   service.calls[ 0 ]->replyContinues( big );
   EXPECT_THAT( ended, ElementsAre( Connection::End::notReading ) );
}

TEST_F( ConnectionTest, AConnectionThatIsNeededIsNotIdle ) {
   send( { "Two" } );
   settle();
   EXPECT_TRUE( connection->idle() );
   connection->neededIs( true );
   EXPECT_FALSE( connection->idle() );
}

TEST_F( ConnectionTest, WhatComesWhileAnsweringIsLeftThere ) {
   send( { "A" } );
   settle();
   EXPECT_FALSE( connection->hasInput() );
   send( { "B" } );
   settle();
   EXPECT_TRUE( connection->hasInput() );
   service.calls[ 0 ]->reply( Json::object() );
   settle();
   EXPECT_FALSE( connection->hasInput() );
}

TEST_F( ConnectionTest, WhileAnAnswerIsNotTakenOnlySoMuchIsReadAhead ) {
   limits.stallTimeout = 60s;
   send( { "A" } );
   settle();
   service.calls[ 0 ]->reply( big );
   send( std::vector< std::string >( 50, "B" ) ); // more bytes than a message may have
   settle();
   EXPECT_FALSE( connection->hasInput() );
   send( { "C" } );
   settle();
   EXPECT_TRUE( connection->hasInput() );
}

TEST_F( ConnectionTest, ALongAnswerIsSentInParts ) {
   limits.stallTimeout = 60s;
   int const room = 1 << 20; // the kernel gives as much of it as it may
   ASSERT_EQ( ::setsockopt( serverEnd.get(), SOL_SOCKET, SO_SNDBUF, &room, sizeof room ), 0 );
   auto const sent = [ this ] { return 5'000'000 - static_cast< long >( connection->waiting() ); };
   send( { "A" } );
   settle();
   service.calls[ 0 ]->reply( big );
   EXPECT_LE( sent(), 2 * 65536 ) << "a part for the answer, and one for the end of the call";
   settle();
   EXPECT_GT( sent(), 2 * 65536 ) << "the socket had room for more";
}

// --- Its seat ------------------------------------------------------------------------------------

TEST_F( ConnectionTest, AClientIsIdleSinceItConnectedOrDidSomething ) {
   ASSERT_TRUE( connection->seat().idleSince );
   EXPECT_GE( *connection->seat().idleSince, begin );
   EXPECT_EQ( connection->seat().unreadSince, std::nullopt );
   auto const later = loop.scheduler()->now();
   send( { "Two", "A" } );
   settle();
   EXPECT_EQ( connection->seat().idleSince, std::nullopt );
   service.calls[ 1 ]->reply( Json::object() );
   settle();
   ASSERT_TRUE( connection->seat().idleSince );
   EXPECT_GE( *connection->seat().idleSince, later );
}

TEST_F( ConnectionTest, AClientDoesNotReadSinceAnAnswerWaitsOrItTookSomeOfIt ) {
   limits.stallTimeout = 60s;
   while ( ::send( serverEnd.get(), "x", 1, MSG_NOSIGNAL ) == 1 ) { // until the socket is full
   }
   send( { "A" } );
   settle();
   EXPECT_EQ( connection->seat().unreadSince, std::nullopt );
   auto const answered = loop.scheduler()->now();
   service.calls[ 0 ]->reply( big );
   ASSERT_TRUE( connection->seat().unreadSince );
   EXPECT_GE( *connection->seat().unreadSince, answered );
   settle();
   auto const later = loop.scheduler()->now();
   EXPECT_LT( *connection->seat().unreadSince, later );
   char buffer[ 65536 ];
   for ( int i = 0; i < 10; ++i ) { // not all of it
      EXPECT_GT( ::recv( client.get(), buffer, sizeof buffer, 0 ), 0 );
      loop.turn( 0ms );
   }
   ASSERT_TRUE( connection->seat().unreadSince );
   EXPECT_GE( *connection->seat().unreadSince, later );
}

TEST_F( ConnectionTest, ItLastsAsLongAsItsCallOrWhatIsBoundToIt ) {
   send( { "A" } );
   settle();
   EXPECT_FALSE( connection->seat().lasting );
   service.calls[ 0 ]->lasts();
   EXPECT_TRUE( connection->seat().lasting );
   service.calls[ 0 ]->reply( Json::object() );
   EXPECT_FALSE( connection->seat().lasting );
   connection->neededIs( true );
   EXPECT_TRUE( connection->seat().lasting );
   connection->neededIs( false );
   EXPECT_FALSE( connection->seat().lasting );
}

} // namespace
} // namespace Varlink
