#include "linux/DeviceWatcher.h"

#include "tests/linux/TestNetwork.h"

#include <cerrno>
#include <gmock/gmock.h>
#include <linux/rtnetlink.h>
#include <sys/syscall.h>

namespace {

// What becomes of the next request to the kernel: it is changed, or fails with the errno that is returned.
std::function< int( nlmsghdr & request ) > nextRequest;

} // namespace

// Replaces the function of the C library.
extern "C" ssize_t sendto( int fd, void const * bytes, std::size_t count, int flags,
                           sockaddr const * address, socklen_t size ) {
   auto const send = [ & ]( void const * sent ) {
      return static_cast< ssize_t >(
         ::syscall( SYS_sendto, fd, sent, count, flags, address, size ) );
   };
   if ( !nextRequest ) {
      return send( bytes );
   }
   std::vector< char > request( static_cast< char const * >( bytes ),
                                static_cast< char const * >( bytes ) + count );
   errno =
      std::exchange( nextRequest, nullptr )( *reinterpret_cast< nlmsghdr * >( request.data() ) );
   return errno ? -1 : send( request.data() );
}

namespace Valen::Linux {
namespace {

using namespace std::chrono_literals;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::UnorderedElementsAre;
using Valen::Test::TestNetNs;

// Records every change of a status, and calls `onChange` for it.
class StatusRecorder final : public Quill::NotifieeOf< KernelNetInfo::Status > {
 public:
   void onAttribute( Quill::AttrId attributeId, void const * key ) override {
      if ( attributeId == KernelNetInfo::Status::interfaceAttr::id ) {
         auto const index = *static_cast< U32 const * >( key );
         auto const device = notifier()->interface( index );
         told.push_back( device ? "+" + device->deviceName().stdString()
                                : "-" + std::to_string( index ) );
         // Published complete.
         EXPECT_TRUE( !device || device->mtu() > 0 );
      }
      if ( onChange ) {
         onChange();
      }
   }
   std::vector< std::string > told;
   std::function< void() > onChange;
};

class DeviceWatcherTest : public Valen::Test::NetworkTest {
 protected:
   void watch( TestNetNs const & netNs, int receiveBuffer = DeviceWatcher::receiveBufferBytes ) {
      status_ = Quill::make< KernelNetInfo::Status >( netNs.name() );
      watcher_.emplace( loop_, NetNsDirectories().open( netNs.name() ), status_, receiveBuffer );
   }
   void watchAndWait( TestNetNs const & netNs ) {
      watch( netNs );
      ASSERT_TRUE( turnUntil( [ & ] { return status_->synchronized(); } ) );
      recorder_.notifierIs( status_ );
   }

   // The devices in the status, as "et1/7".
   std::vector< std::string > devices() const {
      std::vector< std::string > devices;
      for ( auto const & device : status_->interface() ) {
         devices.push_back( device->deviceName().stdString() + "/" +
                            std::to_string( device->ifIndex() ) );
      }
      return devices;
   }
   static std::string deviceText( TestNetNs const & netNs, std::string const & device ) {
      return device + "/" + std::to_string( netNs.index( device ) );
   }
   bool has( std::string const & device ) const {
      auto const all = devices();
      return std::find( all.begin(), all.end(), device ) != all.end();
   }
   Quill::Ptr< KernelNetInfo::Interface > device( TestNetNs const & netNs,
                                                  std::string const & name ) const {
      return status_->interface( netNs.index( name ) );
   }

   StatusRecorder recorder_;
   Quill::Ptr< KernelNetInfo::Status > status_;
   std::optional< DeviceWatcher > watcher_;
};

TEST_F( DeviceWatcherTest, TheFirstDumpHasEveryDevice ) {
   TestNetNs const blue;
   TestNetNs const far;
   blue.veth( "et1", far, "peer1" );
   blue.veth( "et2", far, "peer2" );
   watch( blue );
   EXPECT_FALSE( status_->synchronized() );
   EXPECT_EQ( status_->interfaces(), 0u );
   ASSERT_TRUE( turnUntil( [ & ] { return status_->synchronized(); } ) );
   EXPECT_THAT( devices(), UnorderedElementsAre( "lo/1", deviceText( blue, "et1" ),
                                                 deviceText( blue, "et2" ) ) );
   EXPECT_TRUE( device( blue, "et1" )->flags() & IFF_UP );
   EXPECT_EQ( device( blue, "et1" )->mtu(), 1500u );
   EXPECT_EQ( status_->resyncs(), 0u );
}

TEST_F( DeviceWatcherTest, ADeviceThatIsCreatedAndDeletedIsFollowed ) {
   TestNetNs const blue;
   TestNetNs const far;
   watchAndWait( blue );
   blue.veth( "et1", far, "peer1" );
   auto const et1 = deviceText( blue, "et1" );
   ASSERT_TRUE( turnUntil( [ & ] { return has( et1 ); } ) );
   blue.ip( "link del et1" );
   ASSERT_TRUE( turnUntil( [ & ] { return !has( et1 ); } ) );
   EXPECT_THAT( devices(), ElementsAre( "lo/1" ) );
   EXPECT_EQ( status_->resyncs(), 0u );
}

TEST_F( DeviceWatcherTest, FlagsAndMtuChangeInPlace ) {
   TestNetNs const blue;
   TestNetNs const far;
   blue.veth( "et1", far, "peer1" );
   watchAndWait( blue );
   auto const et1 = device( blue, "et1" );
   blue.ip( "link set et1 down" );
   ASSERT_TRUE( turnUntil( [ & ] { return !( et1->flags() & IFF_UP ); } ) );
   blue.ip( "link set et1 mtu 1400" );
   ASSERT_TRUE( turnUntil( [ & ] { return et1->mtu() == 1400; } ) );
   EXPECT_EQ( device( blue, "et1" ), et1 );
   EXPECT_THAT( recorder_.told, ElementsAre() );
}

TEST_F( DeviceWatcherTest, ADeviceThatDoesNotCarryEthernetFramesIsMarked ) {
   TestNetNs const blue;
   blue.ip( "tuntap add dev tun0 mode tun" );
   blue.ip( "tuntap add dev tap0 mode tap" );
   watchAndWait( blue );
   EXPECT_EQ( device( blue, "tun0" )->linkLayer(), Quill::Name( "none" ) );
   EXPECT_TRUE( device( blue, "tap0" )->linkLayer().empty() );
   EXPECT_EQ( device( blue, "lo" )->linkLayer(), Quill::Name( "loopback" ) );
   // Those that this kernel has.
   for ( auto const & [ kind, layer ] :
         { std::pair( "wireguard", "none" ), std::pair( "sit local 10.0.0.1", "sit" ),
           std::pair( "gre local 10.0.0.1", "gre" ), std::pair( "dummy", "" ) } ) {
      auto const add = "ip -n " + blue.text() + " link add dev x type " + kind + " 2>/dev/null";
      if ( std::system( add.c_str() ) == 0 ) {
         ASSERT_TRUE( turnUntil( [ & ] { return device( blue, "x" ) != nullptr; } ) );
         EXPECT_EQ( device( blue, "x" )->linkLayer(), Quill::Name( layer ) ) << kind;
         blue.ip( "link del x" );
      }
   }
}

TEST_F( DeviceWatcherTest, ARenamedDeviceIsRemovedAndAdded ) {
   TestNetNs const blue;
   TestNetNs const far;
   blue.veth( "et1", far, "peer1" );
   watchAndWait( blue );
   auto const index = blue.index( "et1" );
   blue.ip( "link set et1 down" );
   blue.ip( "link set et1 name et9" );
   ASSERT_TRUE( turnUntil( [ & ] { return has( "et9/" + std::to_string( index ) ); } ) );
   EXPECT_THAT( devices(), UnorderedElementsAre( "lo/1", "et9/" + std::to_string( index ) ) );
   EXPECT_THAT( recorder_.told, ElementsAre( "-" + std::to_string( index ), "+et9" ) );
}

TEST_F( DeviceWatcherTest, DevicesThatSwapNamesAreFollowed ) {
   TestNetNs const blue;
   TestNetNs const far;
   blue.ip( "link add et1 index 71 type veth peer name peer1 netns " + far.text() );
   blue.ip( "link add et2 index 72 type veth peer name peer2 netns " + far.text() );
   watchAndWait( blue );
   blue.ip( "link set et1 name tmp" );
   blue.ip( "link set et2 name et1" );
   blue.ip( "link set tmp name et2" );
   ASSERT_TRUE( turnUntil( [ & ] { return has( "et2/71" ); } ) );
   EXPECT_THAT( devices(), UnorderedElementsAre( "lo/1", "et1/72", "et2/71" ) );
}

TEST_F( DeviceWatcherTest, ARecreatedDeviceGetsItsNewIndex ) {
   TestNetNs const blue;
   TestNetNs const far;
   blue.ip( "link add et1 index 71 type veth peer name peer1 netns " + far.text() );
   watchAndWait( blue );
   blue.ip( "link del et1" );
   blue.ip( "link add et1 index 72 type veth peer name peer1 netns " + far.text() );
   ASSERT_TRUE( turnUntil( [ & ] { return has( "et1/72" ); } ) );
   EXPECT_THAT( devices(), UnorderedElementsAre( "lo/1", "et1/72" ) );
   blue.ip( "link del et1" ); // then a lower index again
   blue.ip( "link add et1 index 70 type veth peer name peer1 netns " + far.text() );
   ASSERT_TRUE( turnUntil( [ & ] { return has( "et1/70" ); } ) );
   EXPECT_THAT( devices(), UnorderedElementsAre( "lo/1", "et1/70" ) );
}

// The new device is reported while the old one is still in the status, as if the message of its
// deletion was lost.
TEST_F( DeviceWatcherTest, ANameMovesToItsNewIndex ) {
   TestNetNs const blue;
   TestNetNs const far;
   blue.ip( "link add et1 index 72 type veth peer name peer1 netns " + far.text() );
   status_ = Quill::make< KernelNetInfo::Status >( blue.name() );
   for ( auto const & [ index, name ] : { std::pair( 71u, "et1" ), std::pair( 99u, "gone" ) } ) {
      auto const old = Quill::make< KernelNetInfo::Interface >( index );
      old->deviceNameIs( name );
      old->mtuIs( 1500 );
      status_->interfaceAdd( old );
   }
   recorder_.notifierIs( status_ );
   watcher_.emplace( loop_, NetNsDirectories().open( blue.name() ), status_ );
   ASSERT_TRUE( turnUntil( [ & ] { return status_->synchronized(); } ) );
   EXPECT_THAT( devices(), UnorderedElementsAre( "lo/1", "et1/72" ) );
   auto const at = [ & ]( char const * told ) {
      return std::find( recorder_.told.begin(), recorder_.told.end(), told );
   };
   EXPECT_LT( at( "-71" ), at( "+et1" ) ); // never two devices with the same name
   EXPECT_THAT( recorder_.told, Contains( "-99" ) );
}

TEST_F( DeviceWatcherTest, AReusedIndexIsFollowed ) {
   TestNetNs const blue;
   TestNetNs const far;
   blue.ip( "link add et1 index 71 type veth peer name peer1 netns " + far.text() );
   watchAndWait( blue );
   blue.ip( "link del et1" );
   blue.ip( "link add et9 index 71 type veth peer name peer1 netns " + far.text() );
   ASSERT_TRUE( turnUntil( [ & ] { return has( "et9/71" ); } ) );
   EXPECT_THAT( devices(), UnorderedElementsAre( "lo/1", "et9/71" ) );
}

TEST_F( DeviceWatcherTest, ADeviceThatMovesIsRemovedFromTheOldNamespaceAndAddedToTheNew ) {
   TestNetNs const blue;
   TestNetNs const red;
   TestNetNs const far;
   blue.ip( "link add et1 index 71 type veth peer name peer1 netns " + far.text() );
   watchAndWait( blue );
   auto const redStatus = Quill::make< KernelNetInfo::Status >( red.name() );
   DeviceWatcher redWatcher( loop_, NetNsDirectories().open( red.name() ), redStatus );
   blue.ip( "link set et1 netns " + red.text() );
   ASSERT_TRUE( turnUntil( [ & ] { return redStatus->interfaces() == 2; } ) );
   EXPECT_THAT( devices(), ElementsAre( "lo/1" ) );
   EXPECT_EQ( redStatus->interface( red.index( "et1" ) )->deviceName(), Quill::Name( "et1" ) );
}

TEST_F( DeviceWatcherTest, APortThatLeavesItsBridgeRemains ) {
   TestNetNs const blue;
   TestNetNs const far;
   blue.veth( "et1", far, "peer1" );
   blue.ip( "link add br0 type bridge" );
   blue.ip( "link set et1 master br0" );
   watchAndWait( blue );
   auto const et1 = deviceText( blue, "et1" );
   blue.ip( "link set et1 nomaster" );
   blue.veth( "et2", far, "peer2" ); // reported later
   ASSERT_TRUE( turnUntil( [ & ] { return has( deviceText( blue, "et2" ) ); } ) );
   EXPECT_TRUE( has( et1 ) );
   EXPECT_THAT( recorder_.told,
                ::testing::Not( Contains( "-" + std::to_string( blue.index( "et1" ) ) ) ) );
}

// --- Lost messages -------------------------------------------------------------------------------

TEST_F( DeviceWatcherTest, AnOverrunCausesANewDump ) {
   TestNetNs const blue;
   TestNetNs const far;
   blue.veth( "stays", far, "peer0" );
   blue.veth( "goes", far, "peer1" );
   watch( blue, 4096 );
   ASSERT_TRUE( turnUntil( [ & ] { return status_->synchronized(); } ) );
   auto const goes = deviceText( blue, "goes" );
   ASSERT_TRUE( has( goes ) );
   auto const stays = status_->interface( blue.index( "stays" ) );
   // Far more than fits into the buffer, while the loop does not turn.
   for ( int i = 0; i < 40; ++i ) {
      blue.ip( "link set stays mtu " + std::to_string( 1400 + i ) );
   }
   blue.ip( "link del goes" );
   blue.veth( "comes", far, "peer2" );
   auto const comes = deviceText( blue, "comes" );
   ASSERT_TRUE( turnUntil( [ & ] { return has( comes ) && !has( goes ); } ) );
   EXPECT_GE( status_->resyncs(), 1u );
   EXPECT_TRUE( status_->synchronized() );
   EXPECT_EQ( status_->interface( blue.index( "stays" ) ), stays ); // the same entity
   EXPECT_EQ( stays->mtu(), 1439u );
   EXPECT_THAT( devices(), UnorderedElementsAre( "lo/1", deviceText( blue, "stays" ), comes ) );
}

TEST_F( DeviceWatcherTest, AnOverrunDuringTheFirstDumpCausesAnotherBeforeItIsComplete ) {
   TestNetNs const blue;
   TestNetNs const far;
   blue.veth( "et1", far, "peer1" );
   watch( blue, 4096 ); // the dump is requested, and waits in the socket
   for ( int i = 0; i < 40; ++i ) {
      blue.ip( "link set et1 mtu " + std::to_string( 1400 + i ) );
   }
   ASSERT_TRUE( turnUntil( [ & ] { return status_->synchronized(); } ) );
   EXPECT_GE( status_->resyncs(), 1u );
   EXPECT_EQ( device( blue, "et1" )->mtu(), 1439u );
}

// When it takes the request, or when it answers.
TEST_F( DeviceWatcherTest, ADumpThatTheKernelRejectsIsRequestedAgain ) {
   TestNetNs const blue;
   for ( int const error : { ENOBUFS, 0 } ) {
      nextRequest = [ error ]( nlmsghdr & request ) {
         request.nlmsg_type = RTM_MAX + 1; // which is answered with an error
         return error;
      };
      watch( blue );
      EXPECT_FALSE( nextRequest );
      EXPECT_TRUE( turnUntil( [ & ] { return status_->synchronized(); } ) ) << error;
      EXPECT_THAT( devices(), ElementsAre( "lo/1" ) );
   }
}

TEST_F( DeviceWatcherTest, ALargeBufferHoldsManyChanges ) {
   TestNetNs const blue;
   TestNetNs const far;
   blue.veth( "et1", far, "peer1" );
   watchAndWait( blue );
   std::string batch;
   for ( int i = 0; i < 1000; ++i ) {
      batch += "link set et1 mtu " + std::to_string( 1000 + i % 500 ) + "\\n";
   }
   Valen::Test::run( "printf '" + batch + "' | ip -n " + blue.text() + " -batch -" );
   ASSERT_TRUE( turnUntil( [ & ] { return device( blue, "et1" )->mtu() == 1499; } ) );
   settle();
   EXPECT_EQ( status_->resyncs(), 0u );
}

TEST_F( DeviceWatcherTest, AllOfManyDevicesAreFound ) {
   TestNetNs const blue;
   std::string batch;
   for ( int i = 0; i < 300; ++i ) {
      auto const number = std::to_string( i );
      batch += "link add a" + number + " type veth peer name b" + number + "\\n";
   }
   Valen::Test::run( "printf '" + batch + "' | ip -n " + blue.text() + " -batch -" );
   watchAndWait( blue ); // a dump of many datagrams
   EXPECT_EQ( status_->interfaces(), 601u );
   watcher_.reset();
   blue.ip( "link add late type veth peer name late2" );
   watch( blue, 4096 ); // again with a small buffer
   ASSERT_TRUE( turnUntil( [ & ] { return status_->synchronized(); } ) );
   EXPECT_EQ( status_->interfaces(), 603u );
}

// --- Closing -------------------------------------------------------------------------------------

TEST_F( DeviceWatcherTest, AClosedWatcherDoesNotChangeTheStatus ) {
   TestNetNs const blue;
   TestNetNs const far;
   watchAndWait( blue );
   auto const descriptors = loop_.descriptors();
   watcher_->close();
   watcher_->close();
   EXPECT_EQ( loop_.descriptors(), descriptors - 1 );
   blue.veth( "et1", far, "peer1" );
   settle();
   EXPECT_THAT( devices(), ElementsAre( "lo/1" ) );
}

TEST_F( DeviceWatcherTest, ANotificationOfTheStatusMayCloseTheWatcher ) {
   TestNetNs const blue;
   blue.ip( "link add et1 type veth peer name et2" );
   status_ = Quill::make< KernelNetInfo::Status >( blue.name() );
   recorder_.notifierIs( status_ );
   recorder_.onChange = [ & ] { watcher_->close(); };
   watcher_.emplace( loop_, NetNsDirectories().open( blue.name() ), status_ );
   settle();
   EXPECT_EQ( recorder_.told.size(), 1u );
   EXPECT_FALSE( status_->synchronized() );
}

TEST_F( DeviceWatcherTest, TheWatcherKnowsItsNamespace ) {
   TestNetNs const blue;
   watchAndWait( blue );
   EXPECT_EQ( watcher_->netNsIdentity(), *NetNsDirectories().identity( blue.name() ) );
}

} // namespace
} // namespace Valen::Linux
