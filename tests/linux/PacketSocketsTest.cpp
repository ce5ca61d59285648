// The backlog of one device holds up no other one: on the real kernel, with devices whose queue is stuck.
#include "linux/DescriptorReserve.h"
#include "linux/PacketEndpoint.h"

#include "tests/linux/Privileges.h"
#include "tests/linux/TestNetwork.h"
#include "tests/support/LeakCheck.h"
#include "tests/support/SteppedClock.h"

#include <gmock/gmock.h>

namespace Valen::Linux {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using Valen::Test::Capture;
using Valen::Test::testFrame;
using Valen::Test::TestNetNs;

// An endpoint in the namespace of the devices "slowN", which are stuck, and of et1, whose frames arrive.
class PacketSocketsTest : public Valen::Test::NetworkTest {
 protected:
   void SetUp() override {
      NetworkTest::SetUp();
      if ( IsSkipped() ) {
         return;
      }
      near_.emplace();
      far_.emplace();
      near_->veth( "et1", *far_, "far1" );
      endpoint_ = Quill::ptrCast< PacketEndpoint >( provider_.newRawTxPam( "RawTxPam" ) );
      endpoint_->netNsIs( near_->name() );
      endpoint_->enabledIs( true );
      et1_ = near_->index( "et1" );
   }
   void TearDown() override {
      endpoint_ = nullptr;
      provider_.reaper().drain();
   }

   // Creates `count` devices that keep every frame, named slow0, slow1 ... Returns their indexes.
   std::vector< U32 > slowDevices( int count ) const {
      std::string links;
      std::string queues;
      for ( int i = 0; i < count; ++i ) {
         auto const name = "slow" + std::to_string( i );
         links += "link add " + name + " mtu 9000 type ifb\nlink set " + name + " up\n";
         // What fits in the bucket leaves at once. Then it takes hours until the next frame.
         queues += "qdisc add dev " + name + " root tbf rate 8bit burst 10000 limit 1000000000\n";
      }
      batch( "ip", links );
      batch( "tc", queues );
      std::vector< U32 > indexes;
      for ( int i = 0; i < count; ++i ) {
         auto const name = "slow" + std::to_string( i );
         indexes.push_back( near_->index( name ) );
         burst( indexes.back(), name, std::string( 8900, 'x' ) );
      }
      return indexes;
   }

   void batch( std::string const & program, std::string const & commands ) const {
      Valen::Test::run( "echo '" + commands + "' | " + program + " -n " + near_->text() +
                        " -batch -" );
   }

   // As an interface sends. Returns the number of frames that the kernel accepted.
   int burst( U32 ifIndex, std::string const & device, std::string const & payload,
              int frames = 1 ) const {
      Corvid::Pkt pkt;
      pkt.stringValueIs( Quill::String( testFrame( payload ) ), false );
      endpoint_->burstIs( ifIndex, Quill::String( device ) );
      int accepted = 0;
      for ( int i = 0; i < frames; ++i ) {
         accepted += endpoint_->send( pkt, ifIndex );
      }
      return accepted;
   }
   void stick( U32 ifIndex, std::string const & device ) const {
      burst( ifIndex, device, std::string( 8900, 'x' ), 3 );
      ASSERT_GT( endpoint_->outstandingBytes( ifIndex ), 0u );
   }

   Valen::Test::LeakCheck leakCheck_;
   Valen::Test::SteppedClock clock_;
   PacketEndpointProvider provider_{ NetNsDirectories(), clock_.scheduler() };
   std::optional< TestNetNs > near_;
   std::optional< TestNetNs > far_;
   Quill::Ptr< PacketEndpoint > endpoint_;
   U32 et1_ = 0;
};

TEST_F( PacketSocketsTest, OneDevicesFullBufferKeepsNoFrameOfAnother ) {
   auto const slow = slowDevices( 1 ).front();
   Capture capture( *far_, "far1" );
   constexpr int many = 10000;
   EXPECT_LT( burst( slow, "slow0", std::string( 8900, 'x' ), many ), many );
   ASSERT_EQ( endpoint_->lastErrno(), EAGAIN );
   EXPECT_EQ( burst( et1_, "et1", "one", 3 ), 3 );
   EXPECT_EQ( capture.frames( 3 ).size(), 3u );
}

TEST_F( PacketSocketsTest, ADeviceHasOnlyItsOwnBytesOutstanding ) {
   auto const slow = slowDevices( 1 ).front();
   Capture capture( *far_, "far1" );
   stick( slow, "slow0" );
   EXPECT_EQ( burst( et1_, "et1", "one" ), 1 );
   ASSERT_EQ( capture.frames( 1 ).size(), 1u );
   ASSERT_TRUE( turnUntil( [ & ] { return endpoint_->outstandingBytes( et1_ ) == 0; } ) );
   EXPECT_GT( endpoint_->outstandingBytes( slow ), 0u );
   EXPECT_EQ( provider_.sharedBursts(), 0u );
}

// The socket was empty when the other device got it.
TEST_F( PacketSocketsTest, ALaterBacklogOfAnotherDeviceIsNotTheOwn ) {
   auto const slow = slowDevices( 1 ).front();
   Capture capture( *far_, "far1" );
   EXPECT_EQ( burst( et1_, "et1", "one" ), 1 );
   ASSERT_EQ( capture.frames( 1 ).size(), 1u );
   ASSERT_TRUE( turnUntil( [ & ] { return endpoint_->outstandingBytes( et1_ ) == 0; } ) );
   stick( slow, "slow0" );
   EXPECT_EQ( endpoint_->outstandingBytes( et1_ ), 0u );
}

TEST_F( PacketSocketsTest, DevicesThatKeepUpShareTheResidentSocket ) {
   near_->veth( "et2", *far_, "far2" );
   auto const et2 = near_->index( "et2" );
   Capture capture1( *far_, "far1" );
   Capture capture2( *far_, "far2" );
   auto const idle = [ & ]( U32 ifIndex ) {
      return turnUntil( [ & ] { return endpoint_->outstandingBytes( ifIndex ) == 0; } );
   };
   for ( int i = 0; i < 3; ++i ) {
      EXPECT_EQ( burst( et1_, "et1", "one" ), 1 );
      ASSERT_TRUE( idle( et1_ ) );
      EXPECT_EQ( burst( et2, "et2", "two" ), 1 );
      ASSERT_TRUE( idle( et2 ) );
   }
   EXPECT_EQ( capture1.frames( 3 ).size(), 3u );
   EXPECT_EQ( capture2.frames( 3 ).size(), 3u );
   EXPECT_EQ( endpoint_->sockets().extra(), 0u );
}

TEST_F( PacketSocketsTest, ADeviceKeepsTheSocketOfItsBacklog ) {
   auto const slow = slowDevices( 2 );
   stick( slow[ 0 ], "slow0" );
   stick( slow[ 1 ], "slow1" );
   EXPECT_EQ( endpoint_->sockets().extra(), 1u );
   auto const before = endpoint_->outstandingBytes( slow[ 0 ] );
   stick( slow[ 0 ], "slow0" );
   stick( slow[ 1 ], "slow1" );
   EXPECT_EQ( endpoint_->sockets().extra(), 1u );
   EXPECT_GT( endpoint_->outstandingBytes( slow[ 0 ] ), before );
}

// By its name another namespace would be found, in which the index is another device's.
TEST_F( PacketSocketsTest, AnExtraSocketIsInTheNamespaceOfTheResidentOne ) {
   auto const slow = slowDevices( 1 ).front();
   stick( slow, "slow0" );
   Capture capture( *far_, "far1" );
   near_->destroy(); // the socket keeps it alive
   near_->create();
   near_->ip( "link add et1 index " + std::to_string( et1_ ) + " type veth peer name new1 netns " +
              far_->text() );
   far_->ip( "link set new1 up" );
   near_->ip( "link set et1 up" );
   Capture strangers( *far_, "new1" );
   EXPECT_EQ( burst( et1_, "et1", "one" ), 1 );
   EXPECT_EQ( endpoint_->sockets().extra(), 1u );
   EXPECT_THAT( capture.frames( 1 ), ElementsAre( testFrame( "one" ) ) );
   EXPECT_THAT( strangers.frames( 1, 50ms ), ElementsAre() );
}

TEST_F( PacketSocketsTest, TheLeastLoadedSocketIsSharedWhenThereAreTooMany ) {
   auto const count = static_cast< int >( PacketSocketPool::maxExtra ) + 2;
   auto const slow = slowDevices( count );
   for ( int i = 0; i < count; ++i ) {
      auto const frames = i == 3 ? 2 : 4; // the least loaded one
      burst( slow[ i ], "slow" + std::to_string( i ), std::string( 8900, 'x' ), frames );
   }
   EXPECT_EQ( endpoint_->sockets().extra(), PacketSocketPool::maxExtra );
   EXPECT_EQ( provider_.sharedBursts(), 1u );
   auto const shared = endpoint_->outstandingBytes( slow[ count - 1 ] );
   EXPECT_EQ( endpoint_->outstandingBytes( slow[ 3 ] ), shared );
   EXPECT_GT( shared, endpoint_->outstandingBytes( slow[ 4 ] ) ) << "it has both devices' frames";
   endpoint_->enabledIs( false );
   endpoint_->enabledIs( true );
   EXPECT_EQ( endpoint_->sockets().extra(), 0u );
   EXPECT_EQ( burst( slow[ 0 ], "slow0", "x" ) + burst( slow[ 1 ], "slow1", "x" ), 2 );
   EXPECT_EQ( endpoint_->sockets().extra(), 1u ) << "there is room again";
}

TEST_F( PacketSocketsTest, WithoutADescriptorTheSocketIsShared ) {
   auto const slow = slowDevices( 1 ).front();
   stick( slow, "slow0" );
   Capture capture( *far_, "far1" );
   {
      auto const kept = static_cast< int >( DescriptorReserve::keptForWork );
      Valen::Test::DescriptorLimit const limit( Valen::Test::limitLeaving( kept - 1 ) );
      EXPECT_EQ( burst( et1_, "et1", "one" ), 1 );
   }
   EXPECT_EQ( capture.frames( 1 ).size(), 1u );
   EXPECT_EQ( endpoint_->sockets().extra(), 0u );
   EXPECT_EQ( provider_.sharedBursts(), 1u );
   EXPECT_GT( endpoint_->outstandingBytes( et1_ ), 0u ) << "unknown whose bytes they are";
}

TEST_F( PacketSocketsTest, UnusedExtraSocketsAreClosedAfterAWhile ) {
   auto const slow = slowDevices( 2 );
   stick( slow[ 0 ], "slow0" );
   stick( slow[ 1 ], "slow1" );
   EXPECT_EQ( burst( et1_, "et1", "one" ), 1 );
   ASSERT_EQ( endpoint_->sockets().extra(), 2u );
   ASSERT_TRUE( turnUntil( [ & ] { return endpoint_->outstandingBytes( et1_ ) == 0; } ) );
   clock_.advance( PacketEndpointProvider::closeUnusedAfter );
   EXPECT_EQ( endpoint_->sockets().extra(), 2u ) << "they were used";
   clock_.advance( PacketEndpointProvider::closeUnusedAfter );
   EXPECT_EQ( endpoint_->sockets().extra(), 1u ) << "one has bytes outstanding";
   EXPECT_GT( endpoint_->outstandingBytes( slow[ 1 ] ), 0u );
   EXPECT_EQ( burst( et1_, "et1", "two" ), 1 );
   near_->ip( "link del slow0" );
   near_->ip( "link del slow1" );
   ASSERT_TRUE( turnUntil( [ & ] { return endpoint_->outstandingBytes( slow[ 1 ] ) == 0; } ) );
   clock_.advance( 2 * PacketEndpointProvider::closeUnusedAfter );
   EXPECT_EQ( endpoint_->sockets().extra(), 0u );
   EXPECT_EQ( clock_.advance( 1h ), 0u ) << "and the timer stops";
}

} // namespace
} // namespace Valen::Linux
