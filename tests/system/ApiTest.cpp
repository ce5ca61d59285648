// The control API from outside: what clients of all kinds do to a valend that has a delay to keep.
#include "tests/system/RawClient.h"
#include "tests/system/RunningDaemon.h"

#include <gmock/gmock.h>

namespace Valen::Test {
namespace {

using ::testing::HasSubstr;

constexpr int delayMs = 1500;
// What a busy machine may add to a delay. If a client kept valend busy, it would be later by seconds.
constexpr int slackMs = 1000;

class ApiTest : public RunningDaemonTest {
 protected:
   void SetUp() override {
      RunningDaemonTest::SetUp();
      if ( IsSkipped() ) {
         return;
      }
      machine_->veth( "et3", *neighbors_, "far3" );
      start( "shutdown-delay-ms: " + std::to_string( delayMs ) +
             "\ntrace: {file: " + *work_ / "trace" +
             "}\ninterfaces: [{name: Ethernet1, device: et1}, {name: Ethernet2, device: et3}]\n"
             "agents: [{name: lldp, messages: {Ethernet1: [" +
             frame() + "]}}]\n" );
      ASSERT_TRUE( becomesReady( "Ethernet1" ) );
   }

   static std::string frame() { return Settings::toHex( testFrame( "goodbye" ) ); }

   // Shuts Ethernet1 down, lets `client` do its worst, and checks that the delay was kept.
   template < class Client > void expectTheDelayIsKept( Client const & client ) {
      RawClient operating( socket() );
      operating.call( "Shutdown", { { "interface", "Ethernet1" } } );
      ASSERT_EQ( operating.answer()[ "parameters" ][ "step" ], "delayed" );
      client();
      ASSERT_EQ( ctl( { "wait", "Ethernet1", "--until", "idle" } ).status, 0 );
      auto const last = lastRecord( "Ethernet1" );
      EXPECT_EQ( last[ "ending" ], "down" ) << last;
      EXPECT_GE( last[ "heldMs" ], delayMs );
      EXPECT_LE( last[ "heldMs" ], delayMs + slackMs );
      EXPECT_EQ( ctl( { "enable", "Ethernet1" } ).status, 0 );
      EXPECT_TRUE( daemon_->running() );
   }
};

TEST_F( ApiTest, BuiltFramesAreQueuedAndCounted ) {
   std::vector< std::string > const oam{ "frame", "oam", "--mac", "02:00:00:00:00:01" };
   auto const frame = ctl( oam ).out;
   auto queue = oam;
   queue.insert( queue.end(), { "--queue", "Ethernet2" } );
   ASSERT_EQ( ctl( queue ).err, "" );
   auto const messages = Json::parse( ctl( { "messages", "list", "Ethernet2", "--json" } ).out );
   ASSERT_EQ( messages[ "messages" ].size(), 1u );
   EXPECT_EQ( messages[ "messages" ][ 0 ][ "agent" ], "oam" );
   EXPECT_EQ( messages[ "messages" ][ 0 ][ "lifetime" ], "kept" );
   EXPECT_EQ( messages[ "messages" ][ 0 ][ "frames" ][ 0 ].get< std::string >() + "\n", frame );

   queue.back() = "Ethernet9";
   auto const refused = ctl( queue );
   EXPECT_EQ( refused.status, 1 );
   EXPECT_EQ( refused.err, "valenctl: interface \"Ethernet9\" is not configured\n" );

   ASSERT_EQ( ctl( { "wait", "Ethernet2", "--until", "ready" } ).status, 0 );
   ASSERT_EQ( ctl( { "shutdown", "Ethernet2", "--wait" } ).status, 0 );
   EXPECT_THAT( ctl( { "metrics" } ).out,
                HasSubstr( "valen_frames_sent_total{agent=\"oam\"} 1\n" ) );
}

TEST_F( ApiTest, GarbageDoesNotTouchADelay ) {
   expectTheDelayIsKept( [ this ] {
      for ( int i = 0; i < 200; ++i ) {
         RawClient client( socket() );
         client.send( "GET / HTTP/1.1\r\n\r\n" + std::string( 1000, static_cast< char >( i ) ) +
                      '\0' );
         EXPECT_TRUE( client.ended() );
      }
   } );
}

TEST_F( ApiTest, HalfAMessageIsWaitedForWithoutHarm ) {
   RawClient half( socket() );
   half.send( R"({"method":"org.valen.daemon.Li)" );
   expectTheDelayIsKept( [] {} );
   half.send( std::string( R"(st"})" ) + '\0' );
   EXPECT_EQ( half.answer()[ "parameters" ][ "interfaces" ].size(), 2u );
}

TEST_F( ApiTest, AMessageOfAGigabyteIsRejectedAfterItsBeginning ) {
   expectTheDelayIsKept( [ this ] {
      RawClient client( socket() );
      std::string const piece( 1 << 20, 'x' );
      int sent = 0;
      for ( ; sent < 1024 && client.send( piece ); ++sent ) {
      }
      EXPECT_LT( sent, 10 ) << "valend disconnects";
   } );
}

TEST_F( ApiTest, MessagesOfDeepNestingDoNotDelayShutdowns ) {
   expectTheDelayIsKept( [ this ] {
      for ( int i = 0; i < 20; ++i ) {
         RawClient client( socket() );
         client.send( R"({"method":"org.valen.daemon.List","parameters":{"interfaces":)" +
                      std::string( 200'000, '[' ) + '\0' );
         EXPECT_TRUE( client.ended() );
      }
   } );
}

TEST_F( ApiTest, AThousandIdleConnectionsDoNotKeepAClientOut ) {
   std::vector< std::unique_ptr< RawClient > > idle;
   expectTheDelayIsKept( [ & ] {
      for ( int i = 0; i < 1000; ++i ) {
         idle.push_back( std::make_unique< RawClient >( socket() ) );
      }
      EXPECT_EQ( ctl( { "list" } ).out, "Ethernet1\nEthernet2\n" );
   } );
}

TEST_F( ApiTest, ASlowReaderIsDisconnectedAndDelaysNoOther ) {
   expectTheDelayIsKept( [ this ] {
      RawClient client( socket() );
      for ( int i = 0; i < 300 && client.send( RawClient::text( "Show", { { "path", "" } } ) );
            ++i ) { // and takes no answer
      }
      RawClient following( socket() );
      following.call( "Trace", { { "lines", 10000 } }, true );
      RawClient watching( socket() );
      watching.call( "Watch", { { "path", "" } }, true );
      EXPECT_EQ( ctl( { "list" } ).status, 0 );
   } );
}

TEST_F( ApiTest, AClientThatDiesDuringAWatchIsForgotten ) {
   std::vector< std::unique_ptr< Process > > watchers;
   expectTheDelayIsKept( [ & ] {
      for ( int i = 0; i < 10; ++i ) {
         std::vector< std::string > arguments{ VALENCTL, "--socket", socket() };
         for ( auto const * argument :
               { i % 2 ? "watch" : "show", i % 2 ? "--json" : "--watch" } ) {
            arguments.push_back( argument );
         }
         watchers.push_back(
            std::make_unique< Process >( arguments, *work_ / ( "watch" + std::to_string( i ) ) ) );
      }
      for ( auto const & watcher : watchers ) {
         EXPECT_TRUE( eventually( [ & ] { return !watcher->out().empty(); } ) ) << watcher->err();
         watcher->signal( SIGKILL );
         watcher->wait();
      }
   } );
}

// --- An agent in another process -----------------------------------------------------------------

TEST_F( ApiTest, FramesOfAnAgentThatIsKilledAreWithdrawn ) {
   Process publisher( { VALENCTL, "--socket", socket(), "messages", "add", "ospf", "Ethernet2",
                        frame(), "--while-running", "--json" },
                      *work_ / "publisher" );
   ASSERT_EQ( ctl( { "wait", "Ethernet2", "--until", "ready", "--timeout", "30" } ).status, 0 )
      << publisher.err();
   EXPECT_THAT( ctl( { "messages", "list" } ).out, HasSubstr( "ospf   Ethernet2  1       " ) );
   auto const second = ctl( { "messages", "add", "ospf", "Ethernet2", frame() } );
   EXPECT_EQ( second.status, 1 );
   EXPECT_EQ( second.err,
              "valenctl: another client publishes as agent \"ospf\"; its frames are withdrawn "
              "when it disconnects\n" );
   publisher.signal( SIGKILL );
   publisher.wait();
   std::string explained;
   EXPECT_TRUE( eventually( [ & ] {
      explained = ctl( { "explain", "Ethernet2" } ).out;
      return explained.find( "NO   frames queued: no agent has frames for it" ) !=
             std::string::npos;
   } ) );
   EXPECT_THAT( explained, HasSubstr( "Ethernet2: not ready, link up\n" ) );
   EXPECT_EQ( ctl( { "messages", "add", "ospf", "Ethernet2", frame() } ).status, 0 );
   EXPECT_EQ( ctl( { "messages", "remove", "ospf", "Ethernet2" } ).status, 0 );
   EXPECT_EQ( ctl( { "messages", "remove", "ospf", "Ethernet2" } ).status, 1 );
}

TEST_F( ApiTest, AllGoDownTogether ) {
   auto const result = ctl( { "shutdown", "--all", "--wait", "--json" } );
   EXPECT_EQ( result.status, 0 );
   std::stringstream lines( result.out );
   int ended = 0;
   for ( std::string line; std::getline( lines, line ); ) {
      ended += Json::parse( line )[ "step" ] == "ended";
   }
   EXPECT_EQ( ended, 2 );
   EXPECT_EQ( ctl( { "enable", "--vrf", "default" } ).err,
              "Ethernet1: link up\nEthernet2: link up\n" );
   auto const late = ctl( { "wait", "Ethernet1", "--until", "down", "--timeout", "0.2" } );
   EXPECT_EQ( late.status, 4 );
   EXPECT_EQ( late.err, "valenctl: timed out: interface \"Ethernet1\" is not down\n" );
}

TEST_F( ApiTest, AReloadOpensTheTraceFileAgain ) {
   // Calls `cause` after the trace file was moved aside, and waits for a new one.
   auto const traceFileComesBack = [ this ]( auto const & cause ) {
      auto const file = *work_ / "trace";
      std::filesystem::rename( file, file + ".1" );
      cause();
      return eventually( [ & ] { return std::filesystem::exists( file ); } );
   };
   EXPECT_TRUE( traceFileComesBack( [ this ] {
      RawClient client( socket() );
      client.call( "Reload", Json::object() );
      EXPECT_TRUE( client.answer()[ "parameters" ].contains( "changed" ) );
   } ) );
   EXPECT_TRUE( traceFileComesBack( [ this ] { daemon_->signal( SIGHUP ); } ) );
   std::ofstream( *work_ / "valen.yaml" ) << "colour: blue\n";
   EXPECT_TRUE( traceFileComesBack( [ this ] { daemon_->signal( SIGHUP ); } ) )
      << "also when the configuration is rejected";
}

TEST_F( ApiTest, InAPipeWatchPrintsALineForEachChange ) {
   Process watching( { VALENCTL, "--socket", socket(), "watch", "Ethernet1" }, *work_ / "watch" );
   auto const shows = [ & ]( char const * text ) {
      return eventually( [ & ] { return watching.out().find( text ) != std::string::npos; } );
   };
   ASSERT_TRUE( shows( " Ethernet1: up, ready, frames: lldp 1, sent 0\n" ) );
   ASSERT_EQ( ctl( { "shutdown", "Ethernet1" } ).status, 0 );
   EXPECT_TRUE( shows( " Ethernet1: up, ready, held, frames: lldp 1, sent 0\n" ) );
   EXPECT_TRUE( shows( " Ethernet1: down, ready, frames: lldp 1, sent 1\n" ) ) << watching.out();
   EXPECT_EQ( watching.out().find( '\x1b' ), std::string::npos );
}

// --- An independent client -----------------------------------------------------------------------

TEST_F( ApiTest, AnIndependentClientFindsEverythingAsTheServiceDescribesIt ) {
   std::string const program = VARLINK_CLIENT;
   if ( program.empty() && !std::getenv( "CI" ) ) {
      GTEST_SKIP() << "the client was not built: gccgo or golang-github-varlink-go-dev is missing";
   }
   Process client( { program, socket(), "Ethernet1" }, *work_ / "client" );
   EXPECT_EQ( client.wait(), 0 ) << client.err();
   EXPECT_EQ( client.out(),
              "service: Valen valend [org.varlink.service org.valen.daemon]\n"
              "described: org.varlink.service true\n"
              "described: org.valen.daemon true\n"
              "listed: [Ethernet1 Ethernet2]\n"
              "watched: Ethernet1 is up, ready true, held false\n"
              "step: sent 1 sent, running\n"
              "step: delayed 1 sent, running\n"
              "step: ended 1 sent, down\n"
              "watched: Ethernet1 is up, ready true, held true\n"
              "watched: Ethernet1 is down, ready true, held false\n"
              "enabled: up\n"
              "goodbye: Ethernet1 sent\n"
              "goodbye: Ethernet2 not-ready\n"
              "rejected: org.valen.daemon.BadSelection 1\n"
              "rejected: *varlink.InvalidParameter org.varlink.service.InvalidParameter\n"
              "rejected: org.valen.daemon.BadSelection 1\n"
              "rejected: org.valen.daemon.NoSuchInterface 1\n"
              "rejected: *varlink.InvalidParameter org.varlink.service.InvalidParameter\n"
              "rejected: *varlink.MethodNotFound org.varlink.service.MethodNotFound\n"
              "rejected: *varlink.InvalidParameter org.varlink.service.InvalidParameter\n"
              "rejected: *varlink.InterfaceNotFound org.varlink.service.InterfaceNotFound\n" );
}

} // namespace
} // namespace Valen::Test
