#include "linux/KernelNetInfoProvider.h"

#include "linux/NetNsWatcher.h"
#include "platform/orrery/QuillShoal.h"
#include "tests/linux/Privileges.h"
#include "tests/linux/TestNetwork.h"

#include <fstream>
#include <gmock/gmock.h>

namespace Valen::Linux {
namespace {

using namespace std::chrono_literals;
using Valen::Test::TestNetNs;

class KernelNetInfoProviderTest : public Valen::Test::NetworkTest {
 protected:
   Quill::Ptr< KernelNetInfo::Status > mount( std::string const & name ) {
      return Quill::ptrCast< KernelNetInfo::Status >(
         provider_.mount( "kni/ns/" + name + "/status" ) );
   }
   bool synchronized( KernelNetInfo::Status const & status ) {
      return turnUntil( [ & ] { return status.synchronized(); } );
   }
   static bool hasDevice( KernelNetInfo::Status const & status, std::string_view name ) {
      for ( auto const & device : status.interface() ) {
         if ( device->deviceName() == Quill::Name( name ) ) {
            return true;
         }
      }
      return false;
   }

   KernelNetInfoProvider provider_{ loop_ };
};

TEST_F( KernelNetInfoProviderTest, AMountedPathHasTheDevicesOfTheNamespace ) {
   TestNetNs const blue;
   TestNetNs const far;
   blue.veth( "et1", far, "peer1" );
   auto const status = mount( blue.text() );
   ASSERT_TRUE( status );
   EXPECT_EQ( status->netNsName(), blue.name() );
   ASSERT_TRUE( synchronized( *status ) );
   EXPECT_TRUE( hasDevice( *status, "et1" ) );
   EXPECT_EQ( status->error(), Quill::String() );
   EXPECT_EQ( provider_.status( blue.name() ), status );
}

TEST_F( KernelNetInfoProviderTest, ADeviceIsFoundByTheNameThatItHasNow ) {
   TestNetNs const blue;
   TestNetNs const far;
   blue.veth( "et1", far, "peer1" );
   EXPECT_EQ( provider_.device( blue.name(), "et1" ), nullptr ) << "it is not watched";
   auto const status = mount( blue.text() );
   ASSERT_TRUE( synchronized( *status ) );
   auto const device = provider_.device( blue.name(), "et1" );
   ASSERT_TRUE( device );
   EXPECT_EQ( status->interface( device->ifIndex() ), device );
   EXPECT_EQ( provider_.device( blue.name(), "et2" ), nullptr );
   blue.ip( "link set et1 down name et2" );
   ASSERT_TRUE( turnUntil( [ & ] { return provider_.device( blue.name(), "et2" ) != nullptr; } ) );
   EXPECT_EQ( provider_.device( blue.name(), "et1" ), nullptr );
}

TEST_F( KernelNetInfoProviderTest, ProvidesMountsOfTheStore ) {
   TestNetNs const blue;
   auto const store = Quill::make< Orrery::EntityManager >();
   store->mountProviderIs( KernelNetInfoProvider::prefix, &provider_ );
   QuillShoal::Mount mount( store );
   mount.handleInitialized();
   auto const path = KernelNetInfoProvider::path( blue.name() );
   EXPECT_EQ( path, "kni/ns/" + blue.text() + "/status" );
   mount.doMount( path, "KernelNetInfo::Status", { QuillShoal::MountType::reader } );
   EXPECT_EQ( mount.getEntity( path ), provider_.status( blue.name() ) );
   mount.doUnmount( path );
   EXPECT_EQ( provider_.status( blue.name() ), nullptr );
}

TEST_F( KernelNetInfoProviderTest, RepeatedMountsAndUnmountsAreHarmless ) {
   auto const status = mount( "default" );
   EXPECT_EQ( mount( "default" ), status );
   provider_.unmount( "kni/ns/unknown/status" );
   provider_.unmount( "nonsense" );
   provider_.unmount( "kni/ns/default/status" );
   provider_.unmount( "kni/ns/default/status" );
   EXPECT_EQ( provider_.status( "default" ), nullptr );
}

TEST_F( KernelNetInfoProviderTest, OtherPathsAreNull ) {
   for ( auto const * const path :
         { "", "kni/ns/", "kni/ns//status", "kni/ns/status", "kni/ns/a/b/status",
           "kni/ns/../status", "kni/ns/a", "x/kni/ns/a/status", "kni/ns/a/status/" } ) {
      EXPECT_EQ( provider_.mount( path ), nullptr ) << path;
   }
   EXPECT_EQ( provider_.mount( "kni/ns/" + std::string( 151, 'x' ) + "/status" ), nullptr );
}

TEST_F( KernelNetInfoProviderTest, DefaultIsTheProcesssOwnNamespace ) {
   auto const status = mount( "default" );
   ASSERT_TRUE( synchronized( *status ) );
   EXPECT_TRUE( hasDevice( *status, "lo" ) );
}

TEST_F( KernelNetInfoProviderTest, AMissingNamespaceIsReportedAndFoundLater ) {
   auto const name = TestNetNs::newName();
   auto const status = mount( name );
   ASSERT_TRUE( status );
   EXPECT_EQ( status->error().stdString(),
              "network namespace \"" + name +
                 "\" does not exist in /run/netns; create it with \"ip netns add " + name + "\"" );
   settle( 50ms );
   EXPECT_EQ( status->interfaces(), 0u );
   TestNetNs const late( name );
   ASSERT_TRUE( synchronized( *status ) ); // without refresh()
   EXPECT_EQ( status->error(), Quill::String() );
   EXPECT_TRUE( hasDevice( *status, "lo" ) );
}

TEST_F( KernelNetInfoProviderTest, RefreshFindsTheNamespaceAtOnce ) {
   auto const name = TestNetNs::newName();
   auto const status = mount( name );
   TestNetNs const late( name );
   provider_.refresh( late.name() );
   EXPECT_EQ( status->error(), Quill::String() );
   provider_.refresh( "vt-missing" ); // not mounted: no effect
   ASSERT_TRUE( synchronized( *status ) );
}

TEST_F( KernelNetInfoProviderTest, AFileThatIsNotANamespaceIsReported ) {
   TestNetNs const any;
   auto const name = TestNetNs::newName();
   auto const path = std::string( NetNsDirectories::usual ) + "/" + name;
   std::ofstream( path ).flush();
   auto const status = mount( name );
   ::unlink( path.c_str() );
   EXPECT_EQ( status->error().stdString(),
              path + " is not a network namespace; remove the file, or mount a network namespace "
                     "on it" );
}

TEST_F( KernelNetInfoProviderTest, ARecreatedNamespaceReplacesTheOldOne ) {
   TestNetNs blue;
   TestNetNs const far;
   blue.veth( "old", far, "peer1" );
   auto const status = mount( blue.text() );
   ASSERT_TRUE( synchronized( *status ) );
   ASSERT_TRUE( hasDevice( *status, "old" ) );
   blue.destroy();
   blue.create();
   blue.veth( "new", far, "peer2" );
   settle( 20ms );
   EXPECT_TRUE( hasDevice( *status, "old" ) ); // the watcher's socket keeps it alive
   provider_.refresh( blue.name() );
   EXPECT_EQ( status->interfaces(), 0u );
   EXPECT_FALSE( status->synchronized() );
   ASSERT_TRUE( synchronized( *status ) );
   EXPECT_FALSE( hasDevice( *status, "old" ) );
   EXPECT_TRUE( hasDevice( *status, "new" ) );
}

TEST_F( KernelNetInfoProviderTest, ADeletedNamespaceHasNoDevices ) {
   TestNetNs blue;
   TestNetNs const far;
   blue.veth( "et1", far, "peer1" );
   auto const status = mount( blue.text() );
   ASSERT_TRUE( synchronized( *status ) );
   blue.destroy();
   provider_.refresh( blue.name() );
   EXPECT_EQ( status->interfaces(), 0u );
   EXPECT_FALSE( status->synchronized() );
   EXPECT_NE( status->error(), Quill::String() );
   settle( 20ms );
   // Nothing keeps the namespace alive any more: the other end of the pair is gone as well.
   EXPECT_TRUE( turnUntil( [ & ] { return far.index( "peer1" ) == 0; } ) );
}

TEST_F( KernelNetInfoProviderTest, RefreshOfTheSameNamespaceChangesNothing ) {
   TestNetNs const blue;
   auto const status = mount( blue.text() );
   ASSERT_TRUE( synchronized( *status ) );
   auto const lo = status->interface( 1 );
   provider_.refresh( blue.name() );
   EXPECT_TRUE( status->synchronized() );
   EXPECT_EQ( status->interface( 1 ), lo );
}

TEST_F( KernelNetInfoProviderTest, RunningOutOfDescriptorsDoesNotEndAWatch ) {
   TestNetNs const blue;
   TestNetNs const red;
   auto const watched = mount( blue.text() );
   ASSERT_TRUE( synchronized( *watched ) );
   Quill::Ptr< KernelNetInfo::Status > wanted;
   {
      Valen::Test::DescriptorLimit const none( 0 );
      provider_.refresh( blue.name() );
      wanted = mount( red.text() );
   }
   EXPECT_TRUE( watched->synchronized() );
   EXPECT_EQ( watched->error(), Quill::String() );
   EXPECT_THAT( wanted->error().stdString(), ::testing::HasSubstr( "no file descriptor left" ) );
   ASSERT_TRUE( synchronized( *wanted ) );
   EXPECT_EQ( wanted->error(), Quill::String() );
}

TEST_F( KernelNetInfoProviderTest, AnUnmountedStatusIsEmptyAndRemainsValid ) {
   TestNetNs const blue;
   TestNetNs const far;
   auto const status = mount( blue.text() );
   ASSERT_TRUE( synchronized( *status ) );
   provider_.unmount( KernelNetInfoProvider::path( blue.name() ) );
   EXPECT_EQ( status->interfaces(), 0u );
   EXPECT_FALSE( status->synchronized() );
   blue.veth( "et1", far, "peer1" );
   settle();
   EXPECT_EQ( status->interfaces(), 0u );
   EXPECT_NE( mount( blue.text() ), status );
}

TEST_F( KernelNetInfoProviderTest, ANotificationOfTheStatusMayUnmountIt ) {
   struct Unmounter final : Quill::NotifieeOf< KernelNetInfo::Status > {
      void onAttribute( Quill::AttrId, void const * ) override {
         ++told;
         provider->unmount( KernelNetInfoProvider::path( notifier()->netNsName() ) );
      }
      KernelNetInfoProvider * provider = nullptr;
      int told = 0;
   };
   TestNetNs const blue;
   Unmounter unmounter;
   unmounter.provider = &provider_;
   unmounter.notifierIs( mount( blue.text() ) );
   ASSERT_TRUE( turnUntil( [ & ] { return unmounter.told > 0; } ) );
   settle();
   EXPECT_EQ( unmounter.notifier()->interfaces(), 0u );
   EXPECT_EQ( provider_.status( blue.name() ), nullptr );
}

// The namespace watcher and the provider together.
TEST_F( KernelNetInfoProviderTest, FollowsTheNamespaceWatcher ) {
   NetNsWatcher const watcher( loop_, NetNsDirectories(),
                               [ this ]( Corvid::NamespaceName const & name,
                                         NetNsWatcher::Change ) { provider_.refresh( name ); } );
   auto const name = TestNetNs::newName();
   auto const status = mount( name );
   settle( 300ms ); // until its own pauses have become long
   TestNetNs blue( name );
   ASSERT_TRUE( turnUntil( [ & ] { return status->synchronized(); }, 150ms ) );
   blue.destroy();
   ASSERT_TRUE( turnUntil( [ & ] { return !status->synchronized(); } ) );
   blue.create();
   ASSERT_TRUE( synchronized( *status ) );
}

} // namespace
} // namespace Valen::Linux
