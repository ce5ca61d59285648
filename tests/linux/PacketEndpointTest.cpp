#include "linux/PacketEndpoint.h"

#include "tests/linux/Privileges.h"
#include "tests/linux/SystemCalls.h"
#include "tests/linux/TestNetwork.h"
#include "tests/support/LeakCheck.h"

#include <fstream>
#include <gmock/gmock.h>

namespace Valen::Linux {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using Valen::Test::Capture;
using Valen::Test::testFrame;
using Valen::Test::TestNetNs;

// An endpoint, whose provider is destroyed before it.
class PacketEndpointTest : public Valen::Test::NetworkTest {
 protected:
   PacketEndpointTest() { makeEndpoint(); }

   void makeEndpoint( NetNsDirectories directories = NetNsDirectories() ) {
      provider_.emplace( std::move( directories ) );
      endpoint_ = Quill::ptrCast< PacketEndpoint >( provider_->newRawTxPam( "RawTxPam" ) );
   }

   void open( TestNetNs const & netNs ) {
      endpoint_->netNsIs( netNs.name() );
      endpoint_->enabledIs( true );
   }

   bool send( std::string const & frame, U32 ifIndex ) {
      Corvid::Pkt pkt;
      pkt.stringValueIs( Quill::String( frame ), false );
      return endpoint_->send( pkt, ifIndex );
   }

   // Verifies the device and sends, as an interface does.
   bool burst( TestNetNs const & netNs, char const * device, std::string const & frame ) {
      auto const index = netNs.index( device );
      endpoint_->burstIs( index, device );
      return send( frame, index );
   }

   // A device et1 that sends very slowly, so that frames wait in the socket.
   //   limit   bytes that the device's queue may hold
   static void slowDevice( TestNetNs const & netNs, std::string const & limit ) {
      netNs.ip( "link add et1 mtu 9000 type veth peer name et2 mtu 9000" );
      netNs.ip( "link set et2 up" );
      netNs.ip( "link set et1 up" );
      Valen::Test::run( "tc -n " + netNs.text() +
                        " qdisc add dev et1 root tbf rate 8kbit burst 10000 limit " + limit );
   }

   // The text and number of the error when the endpoint is enabled.
   std::pair< std::string, int > errorOf( std::string_view netNs ) {
      endpoint_->netNsIs( Corvid::NamespaceName( netNs ) );
      try {
         endpoint_->enabledIs( true );
      } catch ( Quill::ErrnoException const & e ) {
         EXPECT_FALSE( endpoint_->enabled() );
         return { e.text(), e.number() };
      }
      return {};
   }

   Valen::Test::LeakCheck leakCheck_;
   std::optional< PacketEndpointProvider > provider_;
   Quill::Ptr< PacketEndpoint > endpoint_;
};

// --- Sending -------------------------------------------------------------------------------------

TEST_F( PacketEndpointTest, AFrameArrivesUnchanged ) {
   TestNetNs const near;
   TestNetNs const far;
   near.veth( "et1", far, "peer1" );
   Capture capture( far, "peer1" );
   open( near );
   std::string bytes;
   for ( int i = 0; i < 1000; ++i ) {
      bytes += static_cast< char >( i * 7 );
   }
   auto const frame = testFrame( bytes );
   EXPECT_TRUE( burst( near, "et1", frame ) );
   EXPECT_THAT( capture.frames( 1 ), ElementsAre( frame ) );
   EXPECT_EQ( endpoint_->counters().sent, 1u );
   EXPECT_EQ( endpoint_->counters().failed, 0u );
   EXPECT_EQ( endpoint_->sendError( near.index( "et1" ) ), nullptr );
}

TEST_F( PacketEndpointTest, TheShortestFrameArrivesWithoutPadding ) {
   TestNetNs const near;
   TestNetNs const far;
   near.veth( "et1", far, "peer1" );
   Capture capture( far, "peer1" );
   open( near );
   EXPECT_TRUE( burst( near, "et1", testFrame( "x" ) ) );
   EXPECT_THAT( capture.frames( 1 ), ElementsAre( testFrame( "x" ) ) );
}

TEST_F( PacketEndpointTest, ABurstArrivesInOrder ) {
   TestNetNs const near;
   TestNetNs const far;
   near.veth( "et1", far, "peer1" );
   Capture capture( far, "peer1" );
   open( near );
   auto const index = near.index( "et1" );
   endpoint_->burstIs( index, "et1" );
   std::vector< std::string > sent;
   for ( int i = 0; i < 100; ++i ) {
      sent.push_back( testFrame( "frame " + std::to_string( i ) ) );
      EXPECT_TRUE( send( sent.back(), index ) );
   }
   EXPECT_EQ( capture.frames( 100 ), sent );
}

// The same index is another device in each namespace.
TEST_F( PacketEndpointTest, EachEndpointSendsInItsOwnNamespace ) {
   std::vector< std::unique_ptr< TestNetNs > > nears;
   std::vector< std::unique_ptr< TestNetNs > > fars;
   std::vector< std::unique_ptr< Capture > > captures;
   std::vector< Quill::Ptr< Corvid::RawTxPam > > endpoints;
   for ( int i = 0; i < 3; ++i ) {
      nears.push_back( std::make_unique< TestNetNs >() );
      fars.push_back( std::make_unique< TestNetNs >() );
      nears.back()->ip( "link add et1 index 77 type veth peer name peer1 netns " +
                        fars.back()->text() );
      fars.back()->ip( "link set peer1 up" );
      nears.back()->ip( "link set et1 up" );
      captures.push_back( std::make_unique< Capture >( *fars.back(), "peer1" ) );
      endpoints.push_back( provider_->newRawTxPam( "RawTxPam" ) );
      endpoints.back()->netNsIs( nears.back()->name() );
      endpoints.back()->enabledIs( true );
   }
   for ( std::size_t i = 0; i < 3; ++i ) {
      Corvid::Pkt pkt;
      pkt.stringValueIs( Quill::String( testFrame( std::to_string( i ) ) ), false );
      endpoints[ i ]->burstIs( 77, "et1" );
      EXPECT_TRUE( endpoints[ i ]->send( pkt, 77 ) );
   }
   for ( std::size_t i = 0; i < 3; ++i ) {
      EXPECT_THAT( captures[ i ]->frames( 2, 100ms ),
                   ElementsAre( testFrame( std::to_string( i ) ) ) );
   }
}

TEST_F( PacketEndpointTest, TheDefaultNamespaceIsTheProcesssOwn ) {
   endpoint_->netNsIs( Corvid::NamespaceName::defaultNamespace() );
   endpoint_->enabledIs( true );
   EXPECT_EQ( endpoint_->netNsIdentity(),
              *NetNsDirectories().identity( Corvid::NamespaceName::defaultNamespace() ) );
}

TEST_F( PacketEndpointTest, TheProcessStaysInItsNamespace ) {
   TestNetNs const near;
   auto const own = [] {
      return NetNsDirectories().identity( Corvid::NamespaceName::defaultNamespace() );
   };
   auto const before = own();
   open( near );
   EXPECT_EQ( own(), before );
   EXPECT_EQ( endpoint_->netNsIdentity(), *NetNsDirectories().identity( near.name() ) );
}

TEST_F( PacketEndpointTest, SendingTakesOneSystemCallPerPacketAndAllocatesNothing ) {
   TestNetNs const near;
   TestNetNs const far;
   near.veth( "et1", far, "peer1" );
   open( near );
   auto const index = near.index( "et1" );
   endpoint_->burstIs( index, "et1" );
   Corvid::Pkt pkt;
   pkt.stringValueIs( Quill::String( testFrame( "payload" ) ), false );
   auto const sendTen = [ & ] {
      for ( int i = 0; i < 10; ++i ) {
         if ( !endpoint_->send( pkt, index ) ) {
            ::_exit( 1 );
         }
      }
   };
   auto const allocations = Valen::Test::allocations();
   sendTen();
   EXPECT_EQ( Valen::Test::allocations(), allocations );
   EXPECT_EQ( Valen::Test::systemCallsOf( sendTen ), 10 );
   EXPECT_EQ( Valen::Test::systemCallsOf( [ & ] { endpoint_->burstIs( index, "et1" ); } ), 1 );
   // The frames of another device may still be outstanding on the socket.
   EXPECT_EQ( Valen::Test::systemCallsOf( [ & ] { endpoint_->burstIs( 1, "lo" ); } ), 2 );
}

// --- Devices that cannot send --------------------------------------------------------------------

TEST_F( PacketEndpointTest, ADeviceThatIsDownIsENETDOWN ) {
   TestNetNs const near;
   TestNetNs const far;
   near.veth( "et1", far, "peer1" );
   open( near );
   near.ip( "link set et1 down" );
   EXPECT_FALSE( burst( near, "et1", testFrame( "x" ) ) );
   EXPECT_EQ( endpoint_->lastErrno(), ENETDOWN );
   auto const * const error = endpoint_->sendError( near.index( "et1" ) );
   ASSERT_TRUE( error );
   EXPECT_EQ( error->text, "Network is down" );
   EXPECT_EQ( error->number, ENETDOWN );
   EXPECT_EQ( error->packets, 1u );
   near.ip( "link set et1 up" );
   EXPECT_TRUE( burst( near, "et1", testFrame( "x" ) ) ); // and the error is cleared
   EXPECT_EQ( endpoint_->sendError( near.index( "et1" ) ), nullptr );
   EXPECT_EQ( endpoint_->counters().sent, 1u );
   EXPECT_EQ( endpoint_->counters().failed, 1u );
}

TEST_F( PacketEndpointTest, AFrameThatIsTooLongIsEMSGSIZE ) {
   TestNetNs const near;
   TestNetNs const far;
   near.veth( "et1", far, "peer1" );
   Capture capture( far, "peer1" );
   open( near );
   auto const longest = testFrame( std::string( 1500, 'x' ) );
   EXPECT_FALSE( burst( near, "et1", testFrame( std::string( 1505, 'x' ) ) ) );
   EXPECT_EQ( endpoint_->lastErrno(), EMSGSIZE );
   EXPECT_EQ( endpoint_->sendError( near.index( "et1" ) )->text, "Message too long" );
   EXPECT_TRUE( burst( near, "et1", longest ) );
   EXPECT_THAT( capture.frames( 1 ), ElementsAre( longest ) );
}

TEST_F( PacketEndpointTest, AFrameWithoutACompleteHeaderIsEINVAL ) {
   TestNetNs const near;
   TestNetNs const far;
   near.veth( "et1", far, "peer1" );
   open( near );
   EXPECT_FALSE( burst( near, "et1", "short" ) );
   EXPECT_EQ( endpoint_->lastErrno(), EINVAL );
   EXPECT_FALSE( burst( near, "et1", "" ) );
}

TEST_F( PacketEndpointTest, IndexZeroIsRejected ) {
   TestNetNs const near;
   open( near );
   endpoint_->burstIs( 0, "et1" );
   EXPECT_FALSE( send( testFrame( "x" ), 0 ) );
   EXPECT_EQ( endpoint_->lastErrno(), EINVAL );
}

TEST_F( PacketEndpointTest, AClosedEndpointSendsNothing ) {
   endpoint_->burstIs( 1, "lo" );
   EXPECT_FALSE( send( testFrame( "x" ), 1 ) );
   EXPECT_EQ( endpoint_->lastErrno(), ENOTCONN );
   EXPECT_EQ( endpoint_->outstandingBytes( 1 ), 0u );
}

TEST_F( PacketEndpointTest, ADeviceOutsideTheBurstIsRejected ) {
   TestNetNs const near;
   TestNetNs const far;
   near.veth( "et1", far, "peer1" );
   near.veth( "et2", far, "peer2" );
   Capture capture( far, "peer2" );
   open( near );
   EXPECT_FALSE( send( testFrame( "x" ), near.index( "et2" ) ) ); // before any burst
   endpoint_->burstIs( near.index( "et1" ), "et1" );
   EXPECT_FALSE( send( testFrame( "x" ), near.index( "et2" ) ) );
   EXPECT_EQ( endpoint_->lastErrno(), ENODEV );
   EXPECT_THAT( capture.frames( 1, 50ms ), ElementsAre() );
}

// --- Never on the wrong device -------------------------------------------------------------------

TEST_F( PacketEndpointTest, ADeviceThatReusesTheIndexGetsNothing ) {
   TestNetNs const near;
   TestNetNs const far;
   TestNetNs const elsewhere;
   near.ip( "link add et1 index 7 type veth peer name peer1 netns " + far.text() );
   near.ip( "link set et1 up" );
   open( near );
   near.ip( "link set et1 netns " + elsewhere.text() );
   near.ip( "link add eth9 index 7 type veth peer name peer9 netns " + far.text() );
   far.ip( "link set peer9 up" );
   near.ip( "link set eth9 up" );
   Capture capture( far, "peer9" );

   endpoint_->burstIs( 7, "et1" );
   EXPECT_FALSE( send( testFrame( "stray" ), 7 ) );
   EXPECT_FALSE( send( testFrame( "stray" ), 7 ) );
   EXPECT_EQ( endpoint_->lastErrno(), ENODEV );
   ASSERT_TRUE( endpoint_->sendError( 7 ) );
   EXPECT_EQ( endpoint_->sendError( 7 )->text, "index 7 is now eth9, not et1" );
   EXPECT_EQ( endpoint_->sendError( 7 )->packets, 2u );
   EXPECT_EQ( endpoint_->counters().wrongDevice, 2u );
   EXPECT_EQ( endpoint_->counters().wrongBursts, 1u );
   EXPECT_EQ( endpoint_->counters().failed, 2u );
   EXPECT_THAT( capture.frames( 1, 50ms ), ElementsAre() );

   endpoint_->burstIs( 7, "eth9" ); // with the right name, the index does send
   EXPECT_TRUE( send( testFrame( "right" ), 7 ) );
   EXPECT_THAT( capture.frames( 1 ), ElementsAre( testFrame( "right" ) ) );
}

TEST_F( PacketEndpointTest, ADeletedDeviceIsENODEV ) {
   TestNetNs const near;
   TestNetNs const far;
   near.ip( "link add et1 index 7 type veth peer name peer1 netns " + far.text() );
   open( near );
   near.ip( "link del et1" );
   endpoint_->burstIs( 7, "et1" );
   EXPECT_FALSE( send( testFrame( "x" ), 7 ) );
   EXPECT_EQ( endpoint_->lastErrno(), ENODEV );
   ASSERT_TRUE( endpoint_->sendError( 7 ) );
   EXPECT_EQ( endpoint_->sendError( 7 )->text, "index 7 is gone, was et1" );
}

TEST_F( PacketEndpointTest, ErrorsAreKeptForALimitedNumberOfDevices ) {
   TestNetNs const near;
   open( near );
   for ( U32 index = 1000; index < 3000; ++index ) {
      endpoint_->burstIs( index, "et1" );
   }
   EXPECT_EQ( endpoint_->sendError( 1000 ), nullptr );
   EXPECT_NE( endpoint_->sendError( 2999 ), nullptr );
}

// --- Opening -------------------------------------------------------------------------------------

TEST_F( PacketEndpointTest, AMissingNamespaceIsENOENT ) {
   auto const [ text, number ] = errorOf( "vt-missing" );
   EXPECT_EQ( number, ENOENT );
   EXPECT_EQ( text, "network namespace \"vt-missing\" does not exist in /run/netns; create it with "
                    "\"ip netns add vt-missing\"" );
}

TEST_F( PacketEndpointTest, AFileThatIsNotANamespaceIsEINVAL ) {
   TestNetNs const any; // so that the directory exists
   auto const name = TestNetNs::newName();
   auto const path = std::string( NetNsDirectories::usual ) + "/" + name;
   std::ofstream( path ).flush();
   auto const [ text, number ] = errorOf( name );
   ::unlink( path.c_str() );
   EXPECT_EQ( number, EINVAL );
   EXPECT_EQ( text, path + " is not a network namespace; remove the file, or mount a network "
                           "namespace on it" );
}

TEST_F( PacketEndpointTest, RunningOutOfDescriptorsIsEMFILEAndWorksLater ) {
   TestNetNs const near;
   auto const home = NetNsDirectories().identity( Corvid::NamespaceName::defaultNamespace() );
   auto const next = requireFd( ::dup( 0 ), "dup" ).get(); // the lowest free one
   {
      // Enough for the namespace and the way back, but not for the socket.
      Valen::Test::DescriptorLimit const limit( next + 2 );
      auto const [ text, number ] = errorOf( near.text() );
      EXPECT_EQ( number, EMFILE );
      EXPECT_EQ( text, "no file descriptor left to open a packet socket in network namespace \"" +
                          near.text() +
                          "\": Too many open files; raise the limit (LimitNOFILE= of the "
                          "service)" );
   }
   EXPECT_EQ( NetNsDirectories().identity( Corvid::NamespaceName::defaultNamespace() ), home );
   open( near );
   EXPECT_TRUE( endpoint_->enabled() );
}

class WithoutCapability : public PacketEndpointTest {
 protected:
   // Tries to enable the endpoint in a child process without the capability. The child prints the text
   // and exits with the errno.
   void attempt( TestNetNs const & netNs, unsigned capability ) {
      Valen::Test::dropCapability( capability );
      auto const [ text, number ] = errorOf( netNs.text() );
      std::fprintf( stderr, "[%s]", text.c_str() );
      ::_exit( number );
   }
};

TEST_F( WithoutCapability, APacketSocketIsEPERM ) {
   TestNetNs const near;
   EXPECT_EXIT( attempt( near, CAP_NET_RAW ), ::testing::ExitedWithCode( EPERM ),
                HasSubstr( "[no privilege to open a packet socket in network namespace \"" +
                           near.text() + "\"; CAP_NET_RAW is needed]" ) );
}

TEST_F( WithoutCapability, EnteringTheNamespaceIsEPERMAndNothingIsOpened ) {
   TestNetNs const near;
   EXPECT_EXIT( attempt( near, CAP_SYS_ADMIN ), ::testing::ExitedWithCode( EPERM ),
                HasSubstr( "[no privilege to enter network namespace \"" + near.text() +
                           "\"; CAP_SYS_ADMIN is needed]" ) );
}

TEST_F( PacketEndpointTest, EnablingTwiceAndClosingTwiceHaveNoEffect ) {
   TestNetNs const near;
   open( near );
   endpoint_->enabledIs( true );
   EXPECT_TRUE( endpoint_->enabled() );
   endpoint_->enabledIs( false );
   endpoint_->enabledIs( false );
   EXPECT_FALSE( endpoint_->enabled() );
}

TEST_F( PacketEndpointTest, ARecreatedNamespaceNeedsTheEndpointToBeReopened ) {
   TestNetNs near;
   TestNetNs const far;
   near.veth( "et1", far, "peer1" );
   open( near );
   auto const old = endpoint_->netNsIdentity();
   near.destroy();
   near.create();
   near.veth( "et1", far, "peer2" );
   Capture capture( far, "peer2" );
   // The socket keeps the old namespace alive and still sends there.
   EXPECT_NE( *NetNsDirectories().identity( near.name() ), old );
   endpoint_->enabledIs( false );
   endpoint_->enabledIs( true );
   EXPECT_NE( endpoint_->netNsIdentity(), old );
   EXPECT_TRUE( burst( near, "et1", testFrame( "new" ) ) );
   EXPECT_THAT( capture.frames( 1 ), ElementsAre( testFrame( "new" ) ) );
}

TEST_F( PacketEndpointTest, TheSendBufferHoldsManyLargeFrames ) {
   TestNetNs const near;
   slowDevice( near, "100000000" );
   open( near );
   auto const frame = testFrame( std::string( 8900, 'x' ) );
   auto const index = near.index( "et1" );
   endpoint_->burstIs( index, "et1" );
   EXPECT_EQ( endpoint_->outstandingBytes( index ), 0u );
   for ( int i = 0; i < 1000; ++i ) {
      ASSERT_TRUE( send( frame, index ) ) << i << ": " << errorText( endpoint_->lastErrno() );
   }
   EXPECT_GT( endpoint_->outstandingBytes( index ), 900u * 8900u );
   near.ip( "link del et1" );
   ASSERT_TRUE( turnUntil( [ & ] { return endpoint_->outstandingBytes( index ) == 0; } ) );
}

TEST_F( PacketEndpointTest, AFullSocketFailsAndDoesNotBlock ) {
   TestNetNs const near;
   slowDevice( near, "1000000000" );
   open( near );
   auto const frame = testFrame( std::string( 8900, 'x' ) );
   auto const index = near.index( "et1" );
   endpoint_->burstIs( index, "et1" );
   int taken = 0;
   while ( taken < 100000 && send( frame, index ) ) {
      ++taken;
   }
   EXPECT_LT( taken, 100000 );
   EXPECT_EQ( endpoint_->lastErrno(), EAGAIN );
}

// --- Closing -------------------------------------------------------------------------------------

TEST_F( PacketEndpointTest, ClosingManyEndpointsDoesNotBlockTheLoop ) {
   TestNetNs const near;
   std::vector< Quill::Ptr< Corvid::RawTxPam > > endpoints;
   for ( int i = 0; i < 4000; ++i ) {
      endpoints.push_back( provider_->newRawTxPam( "RawTxPam" ) );
      endpoints.back()->netNsIs( near.name() );
      endpoints.back()->enabledIs( true );
   }
   auto const begin = std::chrono::steady_clock::now();
   for ( auto const & endpoint : endpoints ) {
      endpoint->enabledIs( false );
   }
   EXPECT_LT( std::chrono::steady_clock::now() - begin, 1s );
   provider_->reaper().drain();
   EXPECT_EQ( provider_->reaper().pending(), 0u );
   EXPECT_LT( std::chrono::steady_clock::now() - begin, 30s ); // one after the other: 48 s
   endpoints.clear();
}

TEST_F( PacketEndpointTest, EndpointsAreFoundByNamespace ) {
   auto const other = provider_->newRawTxPam( "other" );
   endpoint_->netNsIs( "blue" );
   other->netNsIs( "red" );
   EXPECT_THAT( provider_->endpoints( "blue" ), ElementsAre( endpoint_.get() ) );
   EXPECT_THAT( provider_->endpoints( "green" ), ElementsAre() );
   EXPECT_EQ( provider_->endpoints().size(), 2u );
   endpoint_ = nullptr;
   EXPECT_THAT( provider_->endpoints( "blue" ), ElementsAre() );
}

TEST_F( PacketEndpointTest, AnEndpointMayOutliveItsProvider ) {
   TestNetNs const near;
   open( near );
   provider_.reset();
   EXPECT_TRUE( endpoint_->enabled() );
   endpoint_ = nullptr; // destroys the reaper
}

} // namespace
} // namespace Valen::Linux
