#include "varlink/Server.h"

#include "tests/linux/Privileges.h"
#include "tests/support/WorkDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace Varlink {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Answers "Echo" with its parameters, keeps the calls of "Wait", answers "Big" with that many bytes.
class EchoService final : public Service {
 public:
   void call( std::shared_ptr< Call > call ) override {
      ++calls;
      if ( call->method() == "Echo" ) {
         call->reply( call->parameters() );
      } else if ( call->method() == "Who" ) {
         call->reply( { { "uid", call->caller().uid }, { "name", call->caller().name() } } );
      } else if ( call->method() == "Big" ) {
         call->reply( { { "text", std::string( call->parameters()[ "bytes" ].get< std::size_t >(),
                                               'x' ) } } );
      } else {
         waiting.push_back( call );
      }
   }

   Rank rankOf( Caller const & caller ) const override {
      return rank.value_or( Service::rankOf( caller ) );
   }
   void clientGone( U64 client ) override { gone.push_back( client ); }

   int calls = 0;
   std::vector< std::shared_ptr< Call > > waiting;
   std::vector< U64 > gone;
   std::optional< Rank > rank; // of all callers, instead of their own
};

class ServerTest : public ::testing::Test {
 protected:
   ~ServerTest() override {
      for ( auto const fd : clients ) {
         ::close( fd );
      }
   }

   void open( Limits const & limits = Limits() ) { server.emplace( loop, path, service, limits ); }
   int connect() {
      auto const fd = connectWithoutATurn();
      settle();
      return fd;
   }
   // The server does not know of the client yet.
   int connectWithoutATurn() {
      sockaddr_un address{};
      address.sun_family = AF_UNIX;
      std::strcpy( address.sun_path, path.c_str() );
      auto const fd = ::socket( AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0 );
      EXPECT_EQ( ::connect( fd, reinterpret_cast< sockaddr * >( &address ), sizeof address ), 0 );
      clients.push_back( fd );
      return fd;
   }
   // Turns the loop until it has nothing left to do.
   void settle() {
      for ( int i = 0; i < 40; ++i ) {
         loop.turn( 0ms );
      }
   }
   // Sends the bytes piece by piece, as the socket takes them, while the loop turns.
   void send( int fd, std::string_view bytes ) {
      for ( int tries = 0; !bytes.empty() && tries < 10'000; ++tries ) {
         auto const count = ::send( fd, bytes.data(), bytes.size(), MSG_NOSIGNAL );
         if ( count < 0 && errno != EAGAIN ) {
            return;
         }
         bytes.remove_prefix( count > 0 ? static_cast< std::size_t >( count ) : 0 );
         loop.turn( 0ms );
      }
      settle();
   }
   void call( int fd, Json const & message ) { send( fd, message.dump() + '\0' ); }
   // What has come back, message by message; "closed" when the connection is.
   std::vector< std::string > answers( int fd ) {
      settle();
      std::string bytes;
      char buffer[ 65536 ];
      ssize_t count = 0;
      while ( ( count = ::recv( fd, buffer, sizeof buffer, 0 ) ) > 0 ) {
         bytes.append( buffer, static_cast< std::size_t >( count ) );
         settle();
      }
      std::vector< std::string > messages;
      for ( std::size_t end = 0; ( end = bytes.find( '\0' ) ) != std::string::npos; ) {
         messages.push_back( bytes.substr( 0, end ) );
         bytes.erase( 0, end + 1 );
      }
      if ( count == 0 || ( errno != EAGAIN ) ) {
         messages.push_back( "closed" );
      }
      return messages;
   }

   Valen::Test::WorkDirectory const work;
   std::string const path = work / "socket";
   Valen::Linux::EventLoop loop;
   EchoService service;
   std::optional< Server > server;
   std::vector< int > clients;
};

Json const echo{ { "method", "Echo" }, { "parameters", { { "a", 1 } } } };
std::string const echoed = R"({"parameters":{"a":1}})";

TEST_F( ServerTest, ACallIsAnswered ) {
   open();
   auto const fd = connect();
   call( fd, echo );
   EXPECT_THAT( answers( fd ), ElementsAre( echoed ) );
   call( fd, { { "method", "Echo" } } );
   EXPECT_THAT( answers( fd ), ElementsAre( R"({"parameters":{}})" ) );
}

TEST_F( ServerTest, CallsThatComeTogetherAreAnsweredInOrder ) {
   open();
   auto const fd = connect();
   std::string text;
   for ( int i = 0; i < 5; ++i ) {
      text += Json{ { "method", "Echo" }, { "parameters", { { "i", i } } } }.dump() + '\0';
   }
   send( fd, text );
   EXPECT_THAT( answers( fd ),
                ElementsAre( R"({"parameters":{"i":0}})", R"({"parameters":{"i":1}})",
                             R"({"parameters":{"i":2}})", R"({"parameters":{"i":3}})",
                             R"({"parameters":{"i":4}})" ) );
}

TEST_F( ServerTest, ACallWaitsForTheOneBefore ) {
   open();
   auto const fd = connect();
   call( fd, { { "method", "Wait" }, { "more", true } } );
   call( fd, echo );
   ASSERT_EQ( service.waiting.size(), 1u );
   EXPECT_TRUE( service.waiting[ 0 ]->more() );
   EXPECT_THAT( answers( fd ), IsEmpty() );
   service.waiting[ 0 ]->replyContinues( { { "step", 1 } } );
   service.waiting[ 0 ]->reply( { { "step", 2 } } );
   EXPECT_THAT( answers( fd ), ElementsAre( R"({"continues":true,"parameters":{"step":1}})",
                                            R"({"parameters":{"step":2}})", echoed ) );
   service.waiting[ 0 ]->reply( { { "step", 3 } } );
   EXPECT_THAT( answers( fd ), IsEmpty() ) << "an answered call has no further answers";
}

TEST_F( ServerTest, AnErrorHasAName ) {
   open();
   auto const fd = connect();
   call( fd, { { "method", "Wait" } } );
   service.waiting[ 0 ]->error( "org.example.NoDevice", { { "message", "no device" } } );
   EXPECT_THAT(
      answers( fd ),
      ElementsAre( R"({"error":"org.example.NoDevice","parameters":{"message":"no device"}})" ) );
}

TEST_F( ServerTest, AOnewayCallHasNoAnswer ) {
   open();
   auto const fd = connect();
   auto oneway = echo;
   oneway[ "oneway" ] = true;
   call( fd, oneway );
   EXPECT_EQ( service.calls, 1 );
   EXPECT_THAT( answers( fd ), IsEmpty() );
   call( fd, echo );
   EXPECT_THAT( answers( fd ), ElementsAre( echoed ) );
}

TEST_F( ServerTest, TheCallerIsWhoTheKernelSays ) {
   open();
   auto const fd = connect();
   call( fd, { { "method", "Who" } } );
   auto const name = ::getuid() == 0 ? "root" : "uid " + std::to_string( ::getuid() );
   EXPECT_THAT(
      answers( fd ),
      ElementsAre( Json{ { "parameters", { { "uid", ::getuid() }, { "name", name } } } }.dump() ) );
}

TEST_F( ServerTest, GarbageEndsTheConnection ) {
   open();
   for ( std::string const & garbage :
         { std::string( "hello" ), std::string( "[1,2]" ), std::string( "{}" ),
           std::string( R"({"method":7})" ), std::string( "\xff\xfe" ), std::string(),
           std::string( 1000, '[' ), std::string( R"({"method":"Echo")" ) } ) {
      auto const fd = connect();
      send( fd, garbage + '\0' );
      EXPECT_THAT( answers( fd ), ElementsAre( "closed" ) ) << garbage;
   }
   EXPECT_EQ( service.calls, 0 );
   EXPECT_EQ( server->connections(), 0u );
}

TEST_F( ServerTest, ACallThatIsNestedTooDeepEndsTheConnection ) {
   open();
   auto const nested = []( int depth ) {
      return R"({"method":"Echo","parameters":{"a":)" +
             std::string( static_cast< std::size_t >( depth ), '[' ) +
             R"("[[[[[[[[[[[[[[[[[[\"[[[")" +
             std::string( static_cast< std::size_t >( depth ), ']' ) + "}}" + '\0';
   };
   auto const shallow = connect();
   send( shallow, nested( 14 ) );
   EXPECT_EQ( answers( shallow ).at( 0 ).rfind( R"({"parameters":{"a":[[)", 0 ), 0u );
   auto const deep = connect();
   send( deep, nested( 15 ) );
   EXPECT_THAT( answers( deep ), ElementsAre( "closed" ) );
   EXPECT_EQ( service.calls, 1 );
}

TEST_F( ServerTest, ParametersThatAreNotAnObjectAreRejectedByName ) {
   open();
   auto const fd = connect();
   send( fd, std::string( R"({"method":"Echo","parameters":[1]})" ) + '\0' );
   EXPECT_THAT( answers( fd ), ElementsAre( R"({"error":"org.varlink.service.InvalidParameter",)"
                                            R"("parameters":{"parameter":"parameters"}})" ) );
}

TEST_F( ServerTest, HalfAMessageWaitsForTheRest ) {
   open();
   auto const fd = connect();
   auto const text = echo.dump() + '\0';
   for ( auto const byte : text ) {
      EXPECT_EQ( service.calls, 0 );
      send( fd, std::string_view( &byte, 1 ) );
   }
   EXPECT_THAT( answers( fd ), ElementsAre( echoed ) );
}

TEST_F( ServerTest, AHugeMessageIsRejectedWithoutBeingKept ) {
   open( { .messageBytes = 1000 } );
   auto const fd = connect();
   send( fd, std::string( 10'000'000, 'x' ) );
   EXPECT_THAT( answers( fd ), ElementsAre( "closed" ) );
   EXPECT_EQ( server->connections(), 0u );
   EXPECT_EQ( server->dropped().tooLong, 1u );
}

TEST_F( ServerTest, ManyIdleConnectionsDoNotKeepANewcomerOut ) {
   open( { .connections = 10, .reservedForAdmins = 0 } );
   std::vector< int > idle;
   for ( int i = 0; i < 50; ++i ) {
      idle.push_back( connect() );
   }
   EXPECT_EQ( server->connections(), 10u );
   EXPECT_THAT( answers( idle.front() ), ElementsAre( "closed" ) ) << "the longest idle goes first";
   auto const fd = connect();
   call( fd, echo );
   EXPECT_THAT( answers( fd ), ElementsAre( echoed ) );
   EXPECT_EQ( server->dropped().madeRoom, 41u );
}

TEST_F( ServerTest, AClientWhoseCallWaitsIsNotDisconnectedForTheNext ) {
   open( { .connections = 2, .reservedForAdmins = 0 } );
   auto const first = connect();
   auto const second = connect();
   auto const third = connectWithoutATurn();
   auto const message = echo.dump() + '\0';
   for ( auto const fd : { first, second } ) {
      ASSERT_EQ( ::send( fd, message.data(), message.size(), 0 ),
                 static_cast< ssize_t >( message.size() ) );
   }
   EXPECT_THAT( answers( third ), ElementsAre( "closed" ) );
   for ( auto const fd : { first, second } ) {
      EXPECT_THAT( answers( fd ), ElementsAre( echoed ) );
   }
   EXPECT_EQ( server->dropped(), ( Server::Dropped{ .refused = 1 } ) );
}

TEST_F( ServerTest, AClientThatDoesNotReadMakesRoom ) {
   open( { .connections = 2, .reservedForAdmins = 0 } );
   auto const idle = connect();
   auto const stuck = connect();
   call( stuck, { { "method", "Big" }, { "parameters", { { "bytes", 5'000'000 } } } } );
   call( stuck, echo ); // which is not read either, before the answer was taken
   connect();
   EXPECT_EQ( server->dropped(), ( Server::Dropped{ .madeRoom = 1 } ) );
   call( idle, echo );
   EXPECT_THAT( answers( idle ), ElementsAre( echoed ) );
}

TEST_F( ServerTest, TheServiceKnowsForWhomThereIsRoom ) {
   service.rank = Rank::stranger;
   open( { .strangers = 3, .connectionsPerStranger = 3 } );
   std::vector< int > strangers;
   for ( int i = 0; i < 5; ++i ) {
      strangers.push_back( connect() );
   }
   EXPECT_EQ( server->connections(), 3u );
   service.rank = Rank::admin;
   for ( int i = 0; i < 5; ++i ) {
      connect();
   }
   EXPECT_EQ( server->connections(), 8u );
   EXPECT_EQ( server->dropped().madeRoom, 2u );
}

TEST_F( ServerTest, AllWhoWaitAreAcceptedAtOnce ) {
   open();
   for ( int i = 0; i < 20; ++i ) {
      connectWithoutATurn();
   }
   loop.turn( 1s );
   EXPECT_EQ( server->connections(), 20u );
}

// The last descriptors are not for clients.
TEST_F( ServerTest, WithoutRoomForItANewcomerTakesThePlaceOfAnIdleOneOrNone ) {
   bool room = true;
   server.emplace( loop, path, service, Limits(), [ & ] { return room; } );
   auto const idle = connect();
   auto const busy = connect();
   call( busy, { { "method", "Wait" } } );
   room = false;
   auto const replacing = connect();
   call( replacing, echo );
   EXPECT_THAT( answers( replacing ), ElementsAre( echoed ) );
   EXPECT_THAT( answers( idle ), ElementsAre( "closed" ) );
   call( replacing, { { "method", "Wait" } } );
   EXPECT_THAT( answers( connect() ), ElementsAre( "closed" ) );
   EXPECT_EQ( server->connections(), 2u );
   EXPECT_EQ( server->dropped(), ( Server::Dropped{ .madeRoom = 1, .refused = 1 } ) );
}

TEST_F( ServerTest, WithoutADescriptorAClientWaitsAndTheLoopDoesNotSpin ) {
   open();
   auto const fd = connectWithoutATurn();
   {
      Valen::Test::DescriptorLimit const limit( Valen::Test::limitLeaving( 0 ) );
      settle();
      auto const begin = std::chrono::steady_clock::now();
      loop.turn( 50ms );
      EXPECT_GE( std::chrono::steady_clock::now() - begin, 40ms ) << "something is always ready";
   }
   call( fd, echo );
   for ( int turns = 0; service.calls == 0 && turns < 500; ++turns ) {
      loop.turn( 20ms );
   }
   EXPECT_THAT( answers( fd ), ElementsAre( echoed ) );
}

TEST_F( ServerTest, AClientWithACallInProgressIsNotDisconnected ) {
   open( { .connections = 2, .reservedForAdmins = 0 } );
   auto const first = connect();
   call( first, { { "method", "Wait" } } );
   auto const second = connect();
   auto const third = connect();
   EXPECT_THAT( answers( second ), ElementsAre( "closed" ) );
   service.waiting[ 0 ]->reply( Json::object() );
   EXPECT_THAT( answers( first ), ElementsAre( R"({"parameters":{}})" ) );
   call( third, echo );
   EXPECT_THAT( answers( third ), ElementsAre( echoed ) );
}

TEST_F( ServerTest, AConnectionThatSomethingIsBoundToIsNotClosedForOthers ) {
   open( { .connections = 2, .reservedForAdmins = 0 } );
   auto const first = connect();
   call( first, { { "method", "Wait" } } );
   service.waiting[ 0 ]->neededIs( true );
   service.waiting[ 0 ]->reply( Json::object() );
   EXPECT_THAT( answers( first ), ElementsAre( R"({"parameters":{}})" ) );
   auto const second = connect();
   connect();
   EXPECT_THAT( answers( second ), ElementsAre( "closed" ) );
   EXPECT_THAT( answers( first ), IsEmpty() );
   ::shutdown( first, SHUT_RDWR );
   settle();
   EXPECT_THAT( service.gone, ElementsAre( 2u, 1u ) ) << "each client has a number of its own";
}

TEST_F( ServerTest, WhatAClientAskedForBeforeItHungUpIsDone ) {
   open();
   auto const fd = connect();
   std::string text;
   for ( int i = 0; i < 3; ++i ) {
      text += Json{ { "method", "Echo" }, { "oneway", true } }.dump() + '\0';
   }
   ASSERT_GT( ::send( fd, text.data(), text.size(), MSG_NOSIGNAL ), 0 );
   ::close( fd );
   clients.clear();
   settle();
   EXPECT_EQ( service.calls, 3 );
   EXPECT_EQ( server->connections(), 0u );
}

TEST_F( ServerTest, ASlowReaderIsDroppedWhenTooMuchWaits ) {
   open( { .waitingBytes = 4'000'000 } );
   auto const fd = connect();
   call( fd, { { "method", "Big" }, { "parameters", { { "bytes", 5'000'000 } } } } );
   EXPECT_EQ( server->connections(), 0u );
   EXPECT_EQ( server->dropped().notReading, 1u );
}

TEST_F( ServerTest, ASlowReaderIsDroppedWhenItTakesTooLong ) {
   open( { .stallTimeout = 50ms } );
   auto const fd = connect();
   call( fd, { { "method", "Big" }, { "parameters", { { "bytes", 5'000'000 } } } } );
   EXPECT_EQ( server->connections(), 1u );
   for ( int i = 0; i < 100 && server->connections(); ++i ) {
      loop.turn( 20ms );
   }
   EXPECT_EQ( server->connections(), 0u );
   EXPECT_EQ( server->dropped().notReading, 1u );
}

TEST_F( ServerTest, ABigAnswerArrivesWholeWhenItIsRead ) {
   open();
   auto const fd = connect();
   call( fd, { { "method", "Big" }, { "parameters", { { "bytes", 5'000'000 } } } } );
   auto const received = answers( fd );
   ASSERT_EQ( received.size(), 1u );
   EXPECT_EQ( Json::parse( received[ 0 ] )[ "parameters" ][ "text" ],
              std::string( 5'000'000, 'x' ) );
}

TEST_F( ServerTest, CallsAreNotMadeFasterThanTheirAnswersAreTaken ) {
   open();
   auto const fd = connect();
   std::string text;
   for ( int i = 0; i < 20; ++i ) {
      text +=
         Json{ { "method", "Big" }, { "parameters", { { "bytes", 3'000'000 } } } }.dump() + '\0';
   }
   send( fd, text );
   EXPECT_LE( service.calls, 2 );
   for ( int i = 0; i < 20; ++i ) {
      answers( fd );
   }
   EXPECT_EQ( service.calls, 20 );
}

TEST_F( ServerTest, AClientThatDiesInTheMiddleIsForgotten ) {
   open();
   auto const fd = connect();
   call( fd, { { "method", "Wait" }, { "more", true } } );
   ASSERT_TRUE( service.waiting[ 0 ]->open() );
   ::close( fd );
   clients.clear();
   settle();
   EXPECT_EQ( server->connections(), 0u );
   EXPECT_FALSE( service.waiting[ 0 ]->open() );
   service.waiting[ 0 ]->replyContinues( Json::object() );
   service.waiting[ 0 ]->reply( Json::object() );
}

TEST_F( ServerTest, AClientThatOnlyStopsSendingGetsItsAnswers ) {
   open();
   auto const fd = connect();
   call( fd, { { "method", "Wait" } } );
   ::shutdown( fd, SHUT_WR );
   settle();
   EXPECT_EQ( server->connections(), 1u );
   service.waiting[ 0 ]->reply( { { "late", true } } );
   EXPECT_THAT( answers( fd ), ElementsAre( R"({"parameters":{"late":true}})", "closed" ) );
   EXPECT_EQ( server->connections(), 0u );
}

TEST_F( ServerTest, OneClientsManyCallsDoNotKeepAnotherWaiting ) {
   open();
   auto const busy = connect();
   auto const other = connect();
   std::string text;
   for ( int i = 0; i < 5000; ++i ) {
      text += echo.dump() + '\0';
   }
   ASSERT_GT( ::send( busy, text.data(), text.size(), MSG_NOSIGNAL ), 0 );
   ASSERT_GT( ::send( other, echo.dump().c_str(), echo.dump().size() + 1, MSG_NOSIGNAL ), 0 );
   for ( int i = 0; i < 4; ++i ) {
      loop.turn( 0ms );
   }
   char buffer[ 100 ];
   EXPECT_GT( ::recv( other, buffer, sizeof buffer, 0 ), 0 );
   EXPECT_LT( service.calls, 20 );
}

// --- The socket ----------------------------------------------------------------------------------

TEST_F( ServerTest, TheSocketGoesWithTheServer ) {
   open();
   EXPECT_TRUE( std::filesystem::is_socket( path ) );
   server.reset();
   EXPECT_FALSE( std::filesystem::exists( path ) );
}

TEST_F( ServerTest, ASocketAtWhichNoProcessListensIsReplaced ) {
   auto const stale = ::socket( AF_UNIX, SOCK_STREAM, 0 );
   sockaddr_un address{};
   address.sun_family = AF_UNIX;
   std::strcpy( address.sun_path, path.c_str() );
   ASSERT_EQ( ::bind( stale, reinterpret_cast< sockaddr * >( &address ), sizeof address ), 0 );
   ::close( stale );
   open();
   auto const fd = connect();
   call( fd, echo );
   EXPECT_THAT( answers( fd ), ElementsAre( echoed ) );
}

TEST_F( ServerTest, ASecondServerIsRejectedAndTheFirstGoesOn ) {
   open();
   try {
      Server second( loop, path, service );
      FAIL();
   } catch ( Quill::ErrnoException const & e ) {
      EXPECT_EQ( e.number(), EADDRINUSE );
      EXPECT_EQ( e.text(), "another process is listening at " + path +
                              " (stop it, or set another socket): Address already in use" );
   }
   auto const fd = connect();
   call( fd, echo );
   EXPECT_THAT( answers( fd ), ElementsAre( echoed ) );
}

TEST_F( ServerTest, AFileThatIsNotASocketIsLeftAlone ) {
   std::ofstream( path ) << "mine";
   try {
      open();
      FAIL();
   } catch ( Quill::ErrnoException const & e ) {
      EXPECT_EQ( e.text(), path + " exists and is not a socket: Address already in use" );
   }
   EXPECT_TRUE( std::filesystem::exists( path ) );
}

} // namespace
} // namespace Varlink
