#include "varlink/Client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace Varlink {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

// An agent that says what the test tells it to, whatever it is asked.
class ClientTest : public ::testing::Test {
 protected:
   ClientTest() : path( ::testing::TempDir() + "varlink-" + std::to_string( ::getpid() ) ) {
      sockaddr_un address{};
      address.sun_family = AF_UNIX;
      std::strcpy( address.sun_path, path.c_str() );
      listener = ::socket( AF_UNIX, SOCK_STREAM, 0 );
      EXPECT_EQ( ::bind( listener, reinterpret_cast< sockaddr * >( &address ), sizeof address ),
                 0 );
      EXPECT_EQ( ::listen( listener, 1 ), 0 );
   }
   ~ClientTest() override {
      if ( agent.joinable() ) {
         agent.join();
      }
      ::close( listener );
      ::unlink( path.c_str() );
   }

   // Answers one question with `answers`, piece by piece, and hangs up when `hold` is false.
   void agentSays( std::vector< std::string > answers, bool hold = false ) {
      agent = std::thread( [ this, answers = std::move( answers ), hold ] {
         auto const fd = ::accept( listener, nullptr, nullptr );
         char byte = 1;
         while ( ::recv( fd, &byte, 1, 0 ) == 1 && byte ) {
            asked += byte;
         }
         for ( auto const & answer : answers ) {
            ::send( fd, answer.data(), answer.size(), MSG_NOSIGNAL );
         }
         while ( hold && ::recv( fd, &byte, 1, 0 ) > 0 ) {
         }
         ::close( fd );
      } );
   }
   static std::string message( Json const & json ) { return json.dump() + '\0'; }

   std::string const path;
   std::string asked;
   int listener = -1;
   std::thread agent;
};

TEST_F( ClientTest, ACallIsAskedAndAnswered ) {
   agentSays( { R"({"parame)", R"(ters":{"a":1}})", std::string( 1, '\0' ) } );
   Client client( path, "org.valen.daemon" );
   EXPECT_EQ( client.call( "Status", { { "interface", "Ethernet1" } } ), ( Json{ { "a", 1 } } ) );
   agent.join();
   EXPECT_EQ( Json::parse( asked ),
              ( Json{ { "method", "org.valen.daemon.Status" },
                      { "parameters", { { "interface", "Ethernet1" } } } } ) );
}

TEST_F( ClientTest, AnswersThatContinueAreAllTaken ) {
   agentSays( { message( { { "parameters", { { "n", 1 } } }, { "continues", true } } ) +
                message( { { "parameters", { { "n", 2 } } } } ) } );
   Client client( path, "org.valen.daemon" );
   std::vector< int > numbers;
   client.callMore( "Shutdown", Json::object(), [ & ]( Json const & answer ) {
      numbers.push_back( answer[ "n" ] );
      return true;
   } );
   EXPECT_THAT( numbers, ElementsAre( 1, 2 ) );
}

TEST_F( ClientTest, ARefusalSaysWhatTheAgentSaid ) {
   agentSays( { message( { { "error", "org.valen.daemon.NoDevice" },
                           { "parameters", { { "message", "no device et1" } } } } ) } );
   Client client( path, "org.valen.daemon" );
   try {
      client.call( "Enable", Json::object() );
      FAIL();
   } catch ( Refused const & e ) {
      EXPECT_EQ( e.name(), "org.valen.daemon.NoDevice" );
      EXPECT_STREQ( e.what(), "no device et1" );
   }
}

TEST_F( ClientTest, ARefusalWithoutWordsIsNamed ) {
   agentSays( { message( { { "error", "org.varlink.service.MethodNotFound" },
                           { "parameters", { { "method", "x" } } } } ) } );
   Client client( path, "org.valen.daemon" );
   try {
      client.call( "x", Json::object() );
      FAIL();
   } catch ( Refused const & e ) {
      EXPECT_STREQ( e.what(),
                    R"(the agent refused: org.varlink.service.MethodNotFound {"method":"x"})" );
   }
}

TEST_F( ClientTest, AnAgentThatHangsUpIsNoService ) {
   agentSays( { "half an ans" } );
   Client client( path, "org.valen.daemon" );
   EXPECT_THROW( client.call( "Status", Json::object() ), NoService );
}

TEST_F( ClientTest, WhatIsNoAnswerIsNoService ) {
   agentSays( { message( 5 ) } );
   Client client( path, "org.valen.daemon" );
   EXPECT_THROW( client.call( "Status", Json::object() ), NoService );
}

TEST_F( ClientTest, SilenceIsNotWaitedForForEver ) {
   agentSays( {}, true );
   Client client( path, "org.valen.daemon" );
   client.patienceIs( std::chrono::milliseconds( 50 ) );
   EXPECT_THROW( client.call( "Status", Json::object() ), TimedOut );
}

TEST_F( ClientTest, WithoutASocketThereIsNoService ) {
   try {
      Client const client( path + "-none", "org.valen.daemon" );
      FAIL();
   } catch ( NoService const & e ) {
      EXPECT_EQ( e.what(), "no agent answers at " + path + "-none: No such file or directory" );
   }
   EXPECT_THROW( Client( std::string( 200, 's' ), "org.valen.daemon" ), NoService );
}

} // namespace
} // namespace Varlink
