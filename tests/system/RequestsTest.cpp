// What operators ask for besides a plain shutdown: a reason, another delay, a goodbye, the history; and what
// they are told when valend stops.
#include "tests/support/NotifySocket.h"
#include "tests/system/RunningDaemon.h"

#include <cstdlib>
#include <fstream>
#include <gmock/gmock.h>

namespace Valen::Test {
namespace {

using std::chrono::milliseconds;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class RequestsTest : public RunningDaemonTest {
 protected:
   void SetUp() override {
      RunningDaemonTest::SetUp();
      if ( IsSkipped() ) {
         return;
      }
      start( "max-shutdown-delay-ms: 8000\n" + config( 5000 ) );
      ASSERT_TRUE( becomesReady( "Ethernet1" ) );
   }
};

TEST_F( RequestsTest, AGoodbyeSendsTheFramesAndTheLinkStaysUp ) {
   Capture far( *neighbors_, "far1" );
   auto const result = ctl( { "goodbye", "--device", "et1", "--reason", "ports move" } );
   EXPECT_EQ( result.status, 0 );
   EXPECT_EQ( result.err, "Ethernet1: 2 frames sent; link stays up\n" );
   EXPECT_THAT( far.frames( 2 ), ElementsAre( frame( "one" ), frame( "two" ) ) );
   EXPECT_TRUE( linkUp( *machine_, "et1" ) );
   auto const record = lastRecord( "Ethernet1" );
   EXPECT_EQ( record[ "ending" ], "goodbye" );
   EXPECT_EQ( record[ "reason" ], "ports move" );
   EXPECT_FALSE( interface( "Ethernet1" ).value( "delayed", true ) );
   EXPECT_TRUE( logged( "Ethernet1: goodbye by root" ) ) << daemon_->err();
   EXPECT_THAT( ctl( { "metrics" } ).out, HasSubstr( "\nvalen_goodbyes_total 1\n" ) );
}

TEST_F( RequestsTest, AShutdownHasItsOwnDelayUpToTheLimit ) {
   auto const rejected = ctl( { "shutdown", "Ethernet1", "--delay", "8001" } );
   EXPECT_EQ( rejected.status, 1 );
   EXPECT_EQ( rejected.err, "valenctl: a delay of 8001 ms exceeds the limit of 8000 ms "
                            "(max-shutdown-delay-ms)\n" );
   auto const steps =
      ctl( { "shutdown", "Ethernet1", "--delay", "40", "--reason", "new optics", "--wait" } );
   auto const record = lastRecord( "Ethernet1" );
   EXPECT_EQ( steps.err, "Ethernet1: 2 frames sent\nEthernet1: held for 40 ms\n"
                         "Ethernet1: link down after " +
                            record[ "heldMs" ].dump() + " ms\n" );
   EXPECT_GE( record[ "heldMs" ], 40 );
   EXPECT_LT( record[ "heldMs" ], 5000 );
   EXPECT_EQ( record[ "requestedDelayMs" ], 40 );
   EXPECT_EQ( record[ "reason" ], "new optics" );
   EXPECT_EQ( record[ "device" ], "et1" );
}

TEST_F( RequestsTest, TheLimitCanBeReloaded ) {
   configure( "max-shutdown-delay-ms: 30\n" + config( 5000 ) );
   EXPECT_EQ( ctl( { "reload" } ).status, 0 );
   EXPECT_EQ( ctl( { "shutdown", "Ethernet1", "--delay", "40" } ).status, 1 );
   EXPECT_EQ( ctl( { "shutdown", "Ethernet1", "--delay", "30", "--wait" } ).status, 0 );
}

// The audit login, which stays through su and sudo.
TEST_F( RequestsTest, WhoLoggedInIsRecorded ) {
   auto const log = *work_ / "login";
   Process command( { "/bin/sh", "-c",
                      "echo 1 > /proc/self/loginuid || exit 77; exec " VALENCTL " --socket " +
                         socket() + " goodbye Ethernet1" },
                    log );
   if ( command.wait() == 77 && !std::getenv( "CI" ) ) {
      GTEST_SKIP() << "the login of a process cannot be set here: " << command.err();
   }
   EXPECT_THAT( command.err(), HasSubstr( "Ethernet1: 2 frames sent" ) );
   EXPECT_EQ( lastRecord( "Ethernet1" )[ "by" ], "root" );
   EXPECT_EQ( lastRecord( "Ethernet1" )[ "login" ], "daemon" );
   EXPECT_THAT( ctl( { "history" } ).out, HasSubstr( "  root (login daemon)  " ) );
}

TEST_F( RequestsTest, TheHistoryIsOfSomeInterfacesAndOfSomeTime ) {
   ASSERT_TRUE( becomesReady( "Ethernet2" ) );
   for ( auto const * name : { "Ethernet1", "Ethernet2", "Ethernet1" } ) {
      ASSERT_EQ( ctl( { "goodbye", name } ).status, 0 );
   }
   auto const names = [ & ]( std::vector< std::string > arguments ) {
      arguments.insert( arguments.begin(), { "history", "--json" } );
      std::vector< std::string > found;
      auto const history = Json::parse( ctl( arguments ).out );
      for ( auto const & record : history[ "shutdowns" ] ) {
         found.push_back( record[ "interface" ] );
      }
      return found;
   };
   EXPECT_THAT( names( {} ), ElementsAre( "Ethernet1", "Ethernet2", "Ethernet1" ) );
   EXPECT_THAT( names( { "--last", "2" } ), ElementsAre( "Ethernet2", "Ethernet1" ) );
   EXPECT_THAT( names( { "Ethernet2", "Ethernet9" } ), ElementsAre( "Ethernet2" ) );
   EXPECT_THAT( names( { "--since", "1h" } ), ::testing::SizeIs( 3 ) );
   EXPECT_THAT( names( { "--since", "0s" } ), ::testing::IsEmpty() );
}

class StopTest : public RunningDaemonTest {};

TEST_F( StopTest, WhatBecomesOfAShutdownInProgressIsSaid ) {
   NotifySocket const manager( *work_ / "notify" );
   ::setenv( "NOTIFY_SOCKET", manager.path().c_str(), 1 );
   start( config( 60'000 ) );
   ::unsetenv( "NOTIFY_SOCKET" );
   ASSERT_TRUE( becomesReady( "Ethernet1" ) );
   ASSERT_EQ( ctl( { "shutdown", "Ethernet1" } ).status, 0 );
   daemon_->signal( SIGTERM );
   EXPECT_EQ( daemon_->wait(), 0 );
   EXPECT_TRUE( logged( "Ethernet1: shutdown by root in progress, link held for another " ) )
      << daemon_->err();
   EXPECT_TRUE( logged( " ms; resumed when valend starts, unless that is more "
                        "than 10 s after its delay\n" ) )
      << daemon_->err();
   EXPECT_EQ( manager.received(), "READY=1" );
   EXPECT_EQ( manager.received(), "STOPPING=1\nSTATUS=Exiting; links left unchanged, 1 shutdown in "
                                  "progress" );
   EXPECT_TRUE( linkUp( *machine_, "et1" ) );
}

} // namespace
} // namespace Valen::Test
