#include "varlink/Client.h"

#include "tests/support/WorkDirectory.h"

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

// A service that gives the answers of the test, regardless of the call.
class ClientTest : public ::testing::Test {
 protected:
   ClientTest() {
      sockaddr_un address{};
      address.sun_family = AF_UNIX;
      std::strcpy( address.sun_path, path.c_str() );
      listener = ::socket( AF_UNIX, SOCK_STREAM, 0 );
      EXPECT_EQ( ::bind( listener, reinterpret_cast< sockaddr * >( &address ), sizeof address ),
                 0 );
      EXPECT_EQ( ::listen( listener, 1 ), 0 );
   }
   ~ClientTest() override {
      if ( service.joinable() ) {
         service.join();
      }
      ::close( listener );
   }

   enum class Then { close, stay };
   // Answers one call with `answers`, piece by piece; then closes the connection, or waits until the
   // client does.
   void serviceSends( std::vector< std::string > answers, Then then = Then::close ) {
      service = std::thread( [ this, answers = std::move( answers ), then ] {
         auto const fd = ::accept( listener, nullptr, nullptr );
         char byte = 1;
         while ( ::recv( fd, &byte, 1, 0 ) == 1 && byte ) {
            asked += byte;
         }
         for ( auto const & answer : answers ) {
            ::send( fd, answer.data(), answer.size(), MSG_NOSIGNAL );
         }
         while ( then == Then::stay && ::recv( fd, &byte, 1, 0 ) > 0 ) {
         }
         ::close( fd );
      } );
   }
   static std::string message( Json const & json ) { return json.dump() + '\0'; }

   Valen::Test::WorkDirectory const work;
   std::string const path = work / "socket";
   std::string asked;
   int listener = -1;
   std::thread service;
};

TEST_F( ClientTest, AServiceThatAcceptsNoMoreClientsIsNamedAsSuch ) {
   service = std::thread( [ this ] { ::close( ::accept( listener, nullptr, nullptr ) ); } );
   Client client( path, "org.example.service" );
   try {
      client.call( "Status", Json::object() );
      FAIL();
   } catch ( NoService const & e ) {
      EXPECT_STREQ( e.what(),
                    "the service closed the connection at once: too many clients, or it is "
                    "exiting (end clients that are not needed, and try again)" );
   }
}

TEST_F( ClientTest, ACallIsAskedAndAnswered ) {
   serviceSends( { R"({"parame)", R"(ters":{"a":1}})", std::string( 1, '\0' ) } );
   Client client( path, "org.example.service" );
   EXPECT_EQ( client.call( "Status", { { "interface", "Ethernet1" } } ), ( Json{ { "a", 1 } } ) );
   service.join();
   EXPECT_EQ( Json::parse( asked ),
              ( Json{ { "method", "org.example.service.Status" },
                      { "parameters", { { "interface", "Ethernet1" } } } } ) );
}

TEST_F( ClientTest, AnswersThatContinueAreAllTaken ) {
   serviceSends( { message( { { "parameters", { { "n", 1 } } }, { "continues", true } } ) +
                   message( { { "parameters", { { "n", 2 } } } } ) } );
   Client client( path, "org.example.service" );
   std::vector< int > numbers;
   client.callMore( "Shutdown", Json::object(), [ & ]( Json const & answer ) {
      numbers.push_back( answer[ "n" ] );
      return true;
   } );
   EXPECT_THAT( numbers, ElementsAre( 1, 2 ) );
}

TEST_F( ClientTest, AnErrorHasTheServicesMessage ) {
   serviceSends( { message( { { "error", "org.example.service.NoDevice" },
                              { "parameters", { { "message", "no device et1" } } } } ) } );
   Client client( path, "org.example.service" );
   try {
      client.call( "Enable", Json::object() );
      FAIL();
   } catch ( Refused const & e ) {
      EXPECT_EQ( e.name(), "org.example.service.NoDevice" );
      EXPECT_STREQ( e.what(), "no device et1" );
   }
}

TEST_F( ClientTest, AnErrorWithoutAMessageIsNamed ) {
   serviceSends( { message( { { "error", "org.varlink.service.MethodNotFound" },
                              { "parameters", { { "method", "x" } } } } ) } );
   Client client( path, "org.example.service" );
   try {
      client.call( "x", Json::object() );
      FAIL();
   } catch ( Refused const & e ) {
      EXPECT_STREQ( e.what(), "the service rejected the call: org.varlink.service.MethodNotFound "
                              R"({"method":"x"})" );
   }
}

TEST_F( ClientTest, AConnectionThatIsClosedIsReported ) {
   serviceSends( { "half an ans" } );
   Client client( path, "org.example.service" );
   EXPECT_THROW( client.call( "Status", Json::object() ), NoService );
}

TEST_F( ClientTest, AnAnswerThatIsNotAMessageIsReported ) {
   serviceSends( { message( 5 ) } );
   Client client( path, "org.example.service" );
   EXPECT_THROW( client.call( "Status", Json::object() ), NoService );
}

TEST_F( ClientTest, SilenceIsNotWaitedForIndefinitely ) {
   serviceSends( {}, Then::stay );
   Client client( path, "org.example.service" );
   client.timeoutIs( std::chrono::milliseconds( 50 ) );
   try {
      client.call( "Status", Json::object() );
      FAIL();
   } catch ( TimedOut const & e ) {
      EXPECT_STREQ( e.what(), "the service did not answer within 50 ms" );
   }
}

TEST_F( ClientTest, WithoutASocketThereIsNoService ) {
   try {
      Client const client( path + "-none", "org.example.service", "exampled" );
      FAIL();
   } catch ( NoService const & e ) {
      EXPECT_EQ( e.what(), "cannot connect to exampled at " + path +
                              "-none: No such file or directory (is it running?)" );
   }
   EXPECT_THROW( Client( std::string( 200, 's' ), "org.example.service" ), NoService );
}

} // namespace
} // namespace Varlink
