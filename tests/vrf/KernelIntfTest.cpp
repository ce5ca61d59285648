#include "vrf/KernelIntf.h"

#include "tests/support/LeakCheck.h"
#include "tests/support/TraceCapture.h"
#include "types/KernelNetInfo.h"

#include "platform/quill/Exception.h"

#include <gmock/gmock.h>

#include <map>

namespace Valen {
namespace {

using Test::LeakCheck;
using Test::TraceCapture;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using Texts = std::vector< std::string >;

// Publishes what the test has put at a path.
class FakeMounts final : public Orrery::MountProvider {
 public:
   Quill::Ptr< Quill::Entity > mount( std::string_view path ) override {
      calls.push_back( "mount " + std::string( path ) );
      auto const found = published.find( std::string( path ) );
      return found == published.end() ? nullptr : found->second;
   }
   void unmount( std::string_view path ) override {
      calls.push_back( "unmount " + std::string( path ) );
   }

   std::map< std::string, Quill::Ptr< Quill::Entity > > published;
   Texts calls;
};

class KernelIntfTest : public ::testing::Test {
 protected:
   KernelIntfTest() {
      entityManager->mountProviderIs( "kni/", &mounts );
      publish( "ns-a" );
      publish( "ns-b" );
      kernelIntf = kernelIntfFactory( allIntfStatusDir, allIntfStatusLocalDir, entityManager );
   }

   void publish( std::string const & name ) {
      mounts.published[ "kni/ns/" + name + "/status" ] =
         Quill::make< KernelNetInfo::Status >( name.c_str() );
   }
   // The kernel of that namespace has a new device.
   void addDevice( std::string const & netNs, U32 ifIndex, char const * deviceName ) {
      auto const device = Quill::make< KernelNetInfo::Interface >( ifIndex );
      device->deviceNameIs( deviceName );
      Quill::ptrCast< KernelNetInfo::Status >( mounts.published[ "kni/ns/" + netNs + "/status" ] )
         ->interfaceAdd( device );
   }
   Quill::Ptr< Interface::DeviceIntfStatusDir > directory( char const * vrf ) const {
      auto const ofVrf = kernelIntf->vrfDeviceIntfStatusDir()->deviceVrfIntfStatusDir( vrf );
      return ofVrf ? ofVrf->deviceIntfStatusDir( "devices" ) : nullptr;
   }

   LeakCheck leakCheck;
   TraceCapture trace;
   FakeMounts mounts;
   Quill::Ptr< Interface::AllIntfStatusDir > allIntfStatusDir =
      Quill::make< Interface::AllIntfStatusDir >();
   Quill::Ptr< Interface::AllIntfStatusLocalDir > allIntfStatusLocalDir =
      Quill::make< Interface::AllIntfStatusLocalDir >();
   Quill::Ptr< Orrery::EntityManager > entityManager = Quill::make< Orrery::EntityManager >();
   Quill::Ptr< KernelIntf > kernelIntf;
};

TEST_F( KernelIntfTest, CreationMakesAnEmptyDirectoryAndAFilteringRoot ) {
   EXPECT_EQ( kernelIntf->namespaceNames(), 0u );
   EXPECT_EQ( kernelIntf->vrfDeviceIntfStatusDir()->name(),
              Quill::Name( "KernelIntf::VrfDeviceIntfStatusDir" ) );
   EXPECT_EQ( kernelIntf->vrfDeviceIntfStatusDir()->deviceVrfIntfStatusDirs(), 0u );
   auto const & root = kernelIntf->intfStatusManagerRoot();
   EXPECT_EQ( root->allIntfStatusDir(), allIntfStatusDir );
   EXPECT_EQ( root->allIntfStatusLocalDir(), allIntfStatusLocalDir );
   EXPECT_TRUE( root->filterByNetNs() );
   EXPECT_TRUE( root->hasNotificationActive() );
   EXPECT_EQ( kernelIntf->allIntfStatusDir(), allIntfStatusDir );
   EXPECT_EQ( kernelIntf->allIntfStatusLocalDir(), allIntfStatusLocalDir );
   EXPECT_EQ( kernelIntf->entityManager(), entityManager );
   EXPECT_THAT( trace.lines(), IsEmpty() );
}

TEST_F( KernelIntfTest, TheMountPathNamesTheNamespace ) {
   EXPECT_EQ( KernelIntf::mountPath( "ns-blue" ), Quill::String( "kni/ns/ns-blue/status" ) );
}

TEST_F( KernelIntfTest, AVrfIsMountedListedAndRecorded ) {
   auto const devices = kernelIntf->vrfIs( "red", "ns-a" );
   EXPECT_THAT( mounts.calls, ElementsAre( "mount kni/ns/ns-a/status" ) );
   EXPECT_EQ( devices, directory( "red" ) );
   EXPECT_EQ( devices->name(), Quill::Name( "devices" ) );
   EXPECT_EQ( kernelIntf->namespaceName( "red" ), Corvid::NamespaceName( "ns-a" ) );
   EXPECT_EQ( kernelIntf->namespaceNames(), 1u );
   auto const manager = kernelIntf->intfStatusManagerRoot()->intfStatusManager( "ns-a" );
   ASSERT_NE( manager, nullptr );
   EXPECT_EQ( manager->deviceIntfStatusDir(), devices );
   EXPECT_EQ( manager->kernelNetInfoStatus(), mounts.published[ "kni/ns/ns-a/status" ] );
   addDevice( "ns-a", 7, "et1" );
   EXPECT_EQ( devices->intfStatusAndDeviceName( "et1" ).ifIndex, 7u );
}

TEST_F( KernelIntfTest, AddingAndRemovingAreTraced ) {
   kernelIntf->vrfIs( "red", "ns-a" );
   kernelIntf->vrfDel( "red" );
   EXPECT_THAT( trace.texts( 0 ),
                ElementsAre( "Interface::DeviceIntfStatusDir::Ptr Valen::KernelIntf::vrfIs("
                             "L3::VrfName, Corvid::NamespaceName): vrf red, ns ns-a",
                             "void Valen::KernelIntf::vrfDel(L3::VrfName): vrf red" ) );
   EXPECT_EQ( trace.lines().size(), 2u );
   EXPECT_EQ( trace.lines().front().unit, "KernelIntf" );
}

TEST_F( KernelIntfTest, TwoVrfsHaveTheirOwnMountsAndDirectories ) {
   auto const red = kernelIntf->vrfIs( "red", "ns-a" );
   auto const blue = kernelIntf->vrfIs( "blue", "ns-b" );
   EXPECT_THAT( mounts.calls,
                ElementsAre( "mount kni/ns/ns-a/status", "mount kni/ns/ns-b/status" ) );
   EXPECT_NE( red, blue );
   EXPECT_EQ( blue->name(), Quill::Name( "devices" ) );
   EXPECT_EQ( blue, directory( "blue" ) );
   EXPECT_EQ( kernelIntf->namespaceNames(), 2u );
   addDevice( "ns-b", 7, "et1" );
   EXPECT_EQ( red->intfStatusAndDeviceNames(), 0u );
   EXPECT_EQ( blue->intfStatusAndDeviceNames(), 1u );
}

TEST_F( KernelIntfTest, RemovingOneVrfLeavesTheOther ) {
   kernelIntf->vrfIs( "red", "ns-a" );
   auto const blue = kernelIntf->vrfIs( "blue", "ns-b" );
   mounts.calls.clear();
   kernelIntf->vrfDel( "red" );
   EXPECT_THAT( mounts.calls, ElementsAre( "unmount kni/ns/ns-a/status" ) );
   EXPECT_EQ( directory( "red" ), nullptr );
   EXPECT_EQ( kernelIntf->namespaceName( "red" ), Corvid::NamespaceName() );
   EXPECT_EQ( kernelIntf->namespaceNames(), 1u );
   auto const & root = kernelIntf->intfStatusManagerRoot();
   EXPECT_EQ( root->intfStatusManager( "ns-a" ), nullptr );
   EXPECT_NE( root->intfStatusManager( "ns-b" ), nullptr );
   EXPECT_EQ( directory( "blue" ), blue );
   addDevice( "ns-b", 7, "et1" );
   EXPECT_EQ( blue->intfStatusAndDeviceNames(), 1u );
   EXPECT_NE( entityManager->mounted( "kni/ns/ns-b/status" ), nullptr );
}

// The order: manager, mount, directory, record.
TEST_F( KernelIntfTest, RemovingUndoesAddingInReverseOrder ) {
   auto const devices = kernelIntf->vrfIs( "red", "ns-a" );
   addDevice( "ns-a", 7, "et1" );
   struct : Orrery::MountProvider {
      Quill::Ptr< Quill::Entity > mount( std::string_view ) override { return nullptr; }
      void unmount( std::string_view ) override { atUnmount(); }
      std::function< void() > atUnmount;
   } provider;
   bool unmounted = false;
   provider.atUnmount = [ & ] {
      unmounted = true;
      EXPECT_EQ( kernelIntf->intfStatusManagerRoot()->intfStatusManagers(), 0u );
      EXPECT_EQ( devices->intfStatusAndDeviceNames(), 0u );
      EXPECT_EQ( directory( "red" ), devices );
      EXPECT_EQ( kernelIntf->namespaceNames(), 1u );
   };
   entityManager->mountProviderIs( "kni/", &provider );
   kernelIntf->vrfDel( "red" );
   EXPECT_TRUE( unmounted );
   EXPECT_EQ( directory( "red" ), nullptr );
   EXPECT_EQ( kernelIntf->namespaceNames(), 0u );
}

TEST_F( KernelIntfTest, RemovingAnUnknownVrfChangesNothing ) {
   auto const red = kernelIntf->vrfIs( "red", "ns-a" );
   mounts.calls.clear();
   kernelIntf->vrfDel( "green" );
   EXPECT_TRUE( trace.has( "void Valen::KernelIntf::vrfDel(L3::VrfName): vrf green" ) );
   EXPECT_THAT( mounts.calls, IsEmpty() );
   EXPECT_EQ( kernelIntf->namespaceNames(), 1u );
   EXPECT_EQ( directory( "red" ), red );
   EXPECT_EQ( kernelIntf->intfStatusManagerRoot()->intfStatusManagers(), 1u );
   EXPECT_EQ( entityManager->mounts(), 1u );
}

TEST_F( KernelIntfTest, AddingAVrfAgainIsHarmless ) {
   auto const devices = kernelIntf->vrfIs( "red", "ns-a" );
   auto const manager = kernelIntf->intfStatusManagerRoot()->intfStatusManager( "ns-a" );
   addDevice( "ns-a", 7, "et1" );
   EXPECT_EQ( kernelIntf->vrfIs( "red", "ns-a" ), devices );
   EXPECT_EQ( kernelIntf->intfStatusManagerRoot()->intfStatusManager( "ns-a" ), manager );
   EXPECT_EQ( devices->intfStatusAndDeviceNames(), 1u );
   EXPECT_THAT( mounts.calls, ElementsAre( "mount kni/ns/ns-a/status" ) );
}

TEST_F( KernelIntfTest, AVrfThatMovesLeavesItsNamespace ) {
   auto const devices = kernelIntf->vrfIs( "red", "ns-a" );
   addDevice( "ns-a", 7, "et1" );
   mounts.calls.clear();
   trace.clear();
   EXPECT_EQ( kernelIntf->vrfIs( "red", "ns-b" ), devices );
   EXPECT_THAT( mounts.calls,
                ElementsAre( "unmount kni/ns/ns-a/status", "mount kni/ns/ns-b/status" ) );
   EXPECT_EQ( kernelIntf->namespaceName( "red" ), Corvid::NamespaceName( "ns-b" ) );
   EXPECT_EQ( kernelIntf->namespaceNames(), 1u );
   EXPECT_EQ( kernelIntf->intfStatusManagerRoot()->intfStatusManagers(), 1u );
   EXPECT_EQ( devices->intfStatusAndDeviceNames(), 0u );
   EXPECT_EQ( trace.texts().size(), 1u );
}

TEST_F( KernelIntfTest, AVrfThatMovesLeavesItsNamespaceToTheVrfThatHasItNow ) {
   kernelIntf->vrfIs( "red", "ns-a" );
   auto const blue = kernelIntf->vrfIs( "blue", "ns-a" );
   addDevice( "ns-a", 7, "et1" );
   auto const red = kernelIntf->vrfIs( "red", "ns-b" );
   EXPECT_EQ( entityManager->mounts(), 2u );
   EXPECT_EQ( kernelIntf->intfStatusManagerRoot()->intfStatusManagers(), 2u );
   EXPECT_EQ( blue->intfStatusAndDeviceName( "et1" ).ifIndex, 7u );
   EXPECT_EQ( red->intfStatusAndDeviceNames(), 0u );
}

TEST_F( KernelIntfTest, AVrfCanComeBack ) {
   kernelIntf->vrfIs( "red", "ns-a" );
   kernelIntf->vrfDel( "red" );
   addDevice( "ns-a", 7, "et1" );
   auto const devices = kernelIntf->vrfIs( "red", "ns-a" );
   EXPECT_EQ( devices->intfStatusAndDeviceName( "et1" ).ifIndex, 7u );
}

TEST_F( KernelIntfTest, ANamespaceWithNothingPublishedHasNoDevices ) {
   auto const devices = kernelIntf->vrfIs( "red", "ns-unknown" );
   ASSERT_NE( devices, nullptr );
   auto const manager = kernelIntf->intfStatusManagerRoot()->intfStatusManager( "ns-unknown" );
   ASSERT_NE( manager, nullptr );
   EXPECT_EQ( manager->kernelNetInfoStatus(), nullptr );
}

TEST_F( KernelIntfTest, AnEntityOfAnotherTypeCountsAsNothing ) {
   mounts.published[ "kni/ns/ns-odd/status" ] = Quill::make< Quill::Dir >();
   kernelIntf->vrfIs( "red", "ns-odd" );
   auto const manager = kernelIntf->intfStatusManagerRoot()->intfStatusManager( "ns-odd" );
   ASSERT_NE( manager, nullptr );
   EXPECT_EQ( manager->kernelNetInfoStatus(), nullptr );
   EXPECT_EQ( entityManager->mounts(), 1u );
}

TEST_F( KernelIntfTest, ANamespaceNameOfMoreThan150BytesIsRejected ) {
   try {
      kernelIntf->vrfIs( "red", std::string( 151, 'n' ).c_str() );
      FAIL() << "nothing was thrown";
   } catch ( Quill::RangeException const & exception ) {
      EXPECT_STREQ( exception.what(), "NamespaceName::bytes > 150 not allowed" );
   }
   EXPECT_EQ( kernelIntf->namespaceNames(), 0u );
   EXPECT_NO_THROW( kernelIntf->vrfIs( "red", std::string( 150, 'n' ).c_str() ) );
}

TEST_F( KernelIntfTest, NamespaceNamesAreAnOrdinaryMap ) {
   kernelIntf->namespaceNameIs( "red", "ns-a" );
   kernelIntf->namespaceNameIs( "blue", "ns-b" );
   kernelIntf->namespaceNameIs( "red", "ns-c" );
   EXPECT_EQ( kernelIntf->namespaceName( "red" ), Corvid::NamespaceName( "ns-c" ) );
   EXPECT_EQ( kernelIntf->namespaceNames(), 2u );
   kernelIntf->namespaceNameDel( "red" );
   EXPECT_EQ( kernelIntf->namespaceNames(), 1u );
   kernelIntf->namespaceNameDelAll();
   EXPECT_EQ( kernelIntf->namespaceNames(), 0u );
}

TEST_F( KernelIntfTest, DestructionRemovesEveryVrf ) {
   auto const red = kernelIntf->vrfIs( "red", "ns-a" );
   kernelIntf->vrfIs( "blue", "ns-b" );
   addDevice( "ns-a", 7, "et1" );
   trace.clear();
   kernelIntf = nullptr;
   EXPECT_THAT( trace.texts(),
                ElementsAre( "void Valen::KernelIntf::handleDestruction(): ",
                             "void Valen::KernelIntf::vrfDel(L3::VrfName): vrf red",
                             "void Valen::KernelIntf::vrfDel(L3::VrfName): vrf blue" ) );
   EXPECT_EQ( entityManager->mounts(), 0u );
   EXPECT_EQ( red->intfStatusAndDeviceNames(), 0u );
   EXPECT_FALSE( mounts.published[ "kni/ns/ns-a/status" ]->hasNotifiees() );
   EXPECT_FALSE( allIntfStatusDir->hasNotifiees() );
}

using KernelIntfDeathTest = KernelIntfTest;

// A record that is added again while it is being removed breaks the object's own invariant.
TEST_F( KernelIntfDeathTest, ANamespaceLeftBehindByDestructionEndsTheProcess ) {
   struct : Orrery::MountProvider {
      Quill::Ptr< Quill::Entity > mount( std::string_view ) override { return nullptr; }
      void unmount( std::string_view ) override { kernelIntf->namespaceNameIs( "blue", "ns-b" ); }
      KernelIntf * kernelIntf = nullptr;
   } provider;
   provider.kernelIntf = kernelIntf.get();
   kernelIntf->vrfIs( "red", "ns-a" );
   entityManager->mountProviderIs( "kni/", &provider );
   EXPECT_DEATH( kernelIntf->handleDestruction(),
                 ::testing::HasSubstr( "assertion failed: 0 == namespaceNames() at " ) );
   entityManager->mountProviderIs( "kni/", &mounts );
}

} // namespace
} // namespace Valen
