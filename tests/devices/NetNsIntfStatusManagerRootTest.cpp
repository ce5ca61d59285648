// Device directories: which device carries which interface, and how they follow every change.
#include "devices/NetNsIntfStatusManagerRoot.h"

#include "tests/support/LeakCheck.h"
#include "tests/support/OnChange.h"

#include <gmock/gmock.h>

namespace Interface {
namespace {

using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;
using Valen::Test::LeakCheck;
using Valen::Test::onChange;
using Texts = std::vector< std::string >;

// The devices and the directory of one namespace.
struct NetNs {
   explicit NetNs( char const * name )
       : status( Quill::make< KernelNetInfo::Status >( name ) ),
         directory( Quill::make< DeviceIntfStatusDir >( "devices" ) ) {}

   // An empty `linkLayer` is Ethernet.
   void addDevice( U32 ifIndex, char const * deviceName, char const * linkLayer = "" ) {
      auto const device = Quill::make< KernelNetInfo::Interface >( ifIndex );
      device->deviceNameIs( deviceName );
      device->linkLayerIs( linkLayer );
      status->interfaceAdd( device );
   }
   void removeDevice( U32 ifIndex ) { status->interfaceDel( ifIndex ); }
   void renameDevice( U32 ifIndex, char const * deviceName ) {
      status->interface( ifIndex )->deviceNameIs( deviceName );
   }

   // The directory as "interface=device (index n)".
   Texts entries() const {
      Texts texts;
      for ( auto const & entry : directory->intfStatusAndDeviceName() ) {
         texts.push_back( entry.key.stdString() + "=" + entry.value.displayValue() );
      }
      return texts;
   }
   DeviceIntfStatusDir::IntfStatusAndDeviceName entry( char const * intfId ) const {
      return directory->intfStatusAndDeviceName( intfId );
   }

   Quill::Ptr< KernelNetInfo::Status > status;
   Quill::Ptr< DeviceIntfStatusDir > directory;
};

class NetNsIntfStatusManagerTest : public ::testing::Test {
 protected:
   void create( bool filterByNetNs = true ) {
      root = NetNsIntfStatusManagerRoot::NetNsIntfStatusManagerRootIs(
         allIntfStatusDir, allIntfStatusLocalDir, filterByNetNs );
      manage( red );
   }
   void manage( NetNs const & netNs ) {
      root->intfStatusManagerIs( netNs.directory, netNs.status, netNs.status->netNsName() );
   }
   void configureDevice( char const * intfId, char const * deviceName ) {
      allIntfStatusDir->intfStatusIs( intfId )->deviceNameIs( deviceName );
   }
   void configureNetNs( char const * intfId, char const * netNs ) {
      allIntfStatusLocalDir->intfStatusLocalIs( intfId )->netNsNameIs( netNs );
   }

   LeakCheck leakCheck;
   Quill::Ptr< AllIntfStatusDir > allIntfStatusDir = Quill::make< AllIntfStatusDir >();
   Quill::Ptr< AllIntfStatusLocalDir > allIntfStatusLocalDir =
      Quill::make< AllIntfStatusLocalDir >();
   NetNs red{ "ns-red" };
   NetNs blue{ "ns-blue" };
   Quill::Ptr< NetNsIntfStatusManagerRoot > root;
};

// --- Devices and interfaces ---------------------------------------------------------------------

TEST_F( NetNsIntfStatusManagerTest, ADeviceIsTheInterfacesOfItsOwnName ) {
   create();
   red.addDevice( 7, "Ethernet1" );
   EXPECT_THAT( red.entries(), UnorderedElementsAre( "Ethernet1=Ethernet1 (index 7)" ) );
   EXPECT_EQ( red.entry( "Ethernet1" ).intfStatus, nullptr );
}

TEST_F( NetNsIntfStatusManagerTest, ADeviceThatDoesNotCarryEthernetFramesIsNotTaken ) {
   configureDevice( "Ethernet1", "tun0" );
   red.addDevice( 7, "tun0", "none" );
   create();
   EXPECT_THAT( red.entries(), IsEmpty() );
   red.addDevice( 8, "tun1", "none" );
   EXPECT_THAT( red.entries(), IsEmpty() );
   red.removeDevice( 7 );
   red.addDevice( 7, "tun0" ); // the same device, with another link layer now
   EXPECT_THAT( red.entries(), UnorderedElementsAre( "Ethernet1=tun0 (index 7)" ) );
}

TEST_F( NetNsIntfStatusManagerTest, AConfiguredDeviceNameTakesPrecedence ) {
   configureDevice( "Ethernet1", "et1" );
   create();
   red.addDevice( 7, "et1" );
   EXPECT_THAT( red.entries(), UnorderedElementsAre( "Ethernet1=et1 (index 7)" ) );
   EXPECT_EQ( red.entry( "Ethernet1" ).intfStatus, allIntfStatusDir->intfStatus( "Ethernet1" ) );
}

TEST_F( NetNsIntfStatusManagerTest, AnInterfaceConfiguredElsewhereDoesNotTakeTheDeviceOfItsName ) {
   configureDevice( "Ethernet1", "et1" );
   create();
   red.addDevice( 7, "Ethernet1" );
   EXPECT_THAT( red.entries(), IsEmpty() );
   red.addDevice( 8, "et1" );
   EXPECT_THAT( red.entries(), UnorderedElementsAre( "Ethernet1=et1 (index 8)" ) );
}

TEST_F( NetNsIntfStatusManagerTest, AnInterfaceConfiguredToItsOwnNameTakesIt ) {
   configureDevice( "Ethernet1", "Ethernet1" );
   create();
   red.addDevice( 7, "Ethernet1" );
   EXPECT_THAT( red.entries(), UnorderedElementsAre( "Ethernet1=Ethernet1 (index 7)" ) );
}

TEST_F( NetNsIntfStatusManagerTest, DevicesThatAreAlreadyThereAreTaken ) {
   configureDevice( "Ethernet1", "et1" );
   configureNetNs( "Ethernet2", "ns-blue" );
   red.addDevice( 1, "lo" );
   red.addDevice( 7, "et1" );
   red.addDevice( 8, "Ethernet2" );
   red.addDevice( 9, "" );
   create();
   EXPECT_THAT( red.entries(),
                UnorderedElementsAre( "lo=lo (index 1)", "Ethernet1=et1 (index 7)" ) );
}

TEST_F( NetNsIntfStatusManagerTest, AnInterfaceOfAnotherNamespaceIsNotTaken ) {
   configureNetNs( "Ethernet1", "ns-blue" );
   create();
   manage( blue );
   red.addDevice( 7, "Ethernet1" );
   blue.addDevice( 7, "Ethernet1" );
   EXPECT_THAT( red.entries(), IsEmpty() );
   EXPECT_THAT( blue.entries(), UnorderedElementsAre( "Ethernet1=Ethernet1 (index 7)" ) );
}

TEST_F( NetNsIntfStatusManagerTest, AnEmptyNamespaceIsNoFilter ) {
   configureNetNs( "Ethernet1", "" );
   create();
   red.addDevice( 7, "Ethernet1" );
   EXPECT_EQ( red.entries().size(), 1u );
}

TEST_F( NetNsIntfStatusManagerTest, WithoutTheFilterNamespacesDoNotCount ) {
   configureNetNs( "Ethernet1", "ns-blue" );
   create( false );
   EXPECT_FALSE( root->filterByNetNs() );
   red.addDevice( 7, "Ethernet1" );
   EXPECT_EQ( red.entries().size(), 1u );
}

TEST_F( NetNsIntfStatusManagerTest, TheSameDeviceNameInTwoNamespacesIsTwoInterfaces ) {
   configureDevice( "Ethernet1", "et1" );
   configureNetNs( "Ethernet1", "ns-red" );
   configureDevice( "Ethernet2", "et1" );
   configureNetNs( "Ethernet2", "ns-blue" );
   create();
   manage( blue );
   red.addDevice( 7, "et1" );
   blue.addDevice( 7, "et1" );
   EXPECT_THAT( red.entries(), UnorderedElementsAre( "Ethernet1=et1 (index 7)" ) );
   EXPECT_THAT( blue.entries(), UnorderedElementsAre( "Ethernet2=et1 (index 7)" ) );
}

TEST_F( NetNsIntfStatusManagerTest, WhereSeveralAreConfiguredTheNamespacesOwnThenTheFirstIsTaken ) {
   configureDevice( "Ethernet1", "et1" );
   configureDevice( "Ethernet2", "et1" );
   create();
   red.addDevice( 7, "et1" );
   EXPECT_THAT( red.entries(), UnorderedElementsAre( "Ethernet1=et1 (index 7)" ) );
   configureNetNs( "Ethernet2", "ns-red" );
   EXPECT_THAT( red.entries(), UnorderedElementsAre( "Ethernet2=et1 (index 7)" ) );
   configureDevice( "Ethernet2", "" );
   EXPECT_THAT( red.entries(), UnorderedElementsAre( "Ethernet1=et1 (index 7)" ) );
}

TEST_F( NetNsIntfStatusManagerTest, AConfiguredInterfaceElsewhereLeavesTheDeviceToItsNamesake ) {
   configureDevice( "Ethernet1", "et1" );
   configureNetNs( "Ethernet1", "ns-blue" );
   create();
   red.addDevice( 7, "et1" );
   EXPECT_THAT( red.entries(), UnorderedElementsAre( "et1=et1 (index 7)" ) );
}

TEST_F( NetNsIntfStatusManagerTest, WithoutDirectoriesEveryDeviceIsItsNamesakes ) {
   root = NetNsIntfStatusManagerRoot::NetNsIntfStatusManagerRootIs( nullptr, nullptr, true );
   manage( red );
   red.addDevice( 7, "et1" );
   EXPECT_THAT( red.entries(), UnorderedElementsAre( "et1=et1 (index 7)" ) );
   EXPECT_EQ( root->intfStatus( "et1" ), nullptr );
   EXPECT_STREQ( root->reactorName(), "NetNsIntfStatusManagerRoot" );
}

// --- Changes of devices --------------------------------------------------------------------------

TEST_F( NetNsIntfStatusManagerTest, ARemovedDeviceLeavesTheDirectory ) {
   create();
   red.addDevice( 7, "Ethernet1" );
   red.removeDevice( 7 );
   EXPECT_THAT( red.entries(), IsEmpty() );
   red.removeDevice( 7 );
}

TEST_F( NetNsIntfStatusManagerTest, ADeviceRecreatedUnderItsNameHasItsNewIndex ) {
   create();
   red.addDevice( 7, "Ethernet1" );
   red.removeDevice( 7 );
   red.addDevice( 12, "Ethernet1" );
   EXPECT_THAT( red.entries(), UnorderedElementsAre( "Ethernet1=Ethernet1 (index 12)" ) );
}

TEST_F( NetNsIntfStatusManagerTest, OfTwoIndexesTheLastSeenIsUsedAndTheOldOneIsIgnored ) {
   create();
   red.addDevice( 12, "Ethernet1" );
   red.addDevice( 7, "Ethernet1" );
   EXPECT_EQ( red.entry( "Ethernet1" ).ifIndex, 7u );
   U32 changes = 0;
   auto const watch = onChange< DeviceIntfStatusDir::intfStatusAndDeviceNameAttr >(
      red.directory, [ & ] { ++changes; } );
   red.removeDevice( 12 );
   EXPECT_EQ( red.entry( "Ethernet1" ).ifIndex, 7u );
   EXPECT_EQ( changes, 0u );
   red.removeDevice( 7 );
   EXPECT_THAT( red.entries(), IsEmpty() );
}

TEST_F( NetNsIntfStatusManagerTest, TheOlderIndexReturnsWhenTheNewerOneIsRemoved ) {
   create();
   red.addDevice( 7, "Ethernet1" );
   red.addDevice( 8, "other" );
   red.renameDevice( 8, "Ethernet1" );
   EXPECT_THAT( red.entries(), UnorderedElementsAre( "Ethernet1=Ethernet1 (index 8)" ) );
   red.removeDevice( 8 );
   EXPECT_THAT( red.entries(), UnorderedElementsAre( "Ethernet1=Ethernet1 (index 7)" ) );
}

TEST_F( NetNsIntfStatusManagerTest, ARepeatedNotificationOfADeviceDoesNotMakeItTheLastSeen ) {
   create();
   red.addDevice( 7, "Ethernet1" );
   red.addDevice( 8, "Ethernet1" );
   root->intfStatusManager( "ns-red" )->handleInterface( 7 );
   EXPECT_THAT( red.entries(), UnorderedElementsAre( "Ethernet1=Ethernet1 (index 8)" ) );
}

TEST_F( NetNsIntfStatusManagerTest, ARenamedDeviceChangesHands ) {
   configureDevice( "Ethernet1", "et1" );
   create();
   red.addDevice( 7, "et1" );
   red.renameDevice( 7, "et2" );
   EXPECT_THAT( red.entries(), UnorderedElementsAre( "et2=et2 (index 7)" ) );
   red.renameDevice( 7, "et1" );
   EXPECT_THAT( red.entries(), UnorderedElementsAre( "Ethernet1=et1 (index 7)" ) );
   red.renameDevice( 7, "" );
   EXPECT_THAT( red.entries(), IsEmpty() );
}

TEST_F( NetNsIntfStatusManagerTest, TwoDevicesMaySwapTheirNames ) {
   create();
   red.addDevice( 7, "et1" );
   red.addDevice( 8, "et2" );
   red.renameDevice( 7, "tmp" );
   red.renameDevice( 8, "et1" );
   red.renameDevice( 7, "et2" );
   EXPECT_THAT( red.entries(), UnorderedElementsAre( "et1=et1 (index 8)", "et2=et2 (index 7)" ) );
}

TEST_F( NetNsIntfStatusManagerTest, ARemovedDeviceIsNoLongerWatched ) {
   create();
   red.addDevice( 7, "Ethernet1" );
   auto const device = red.status->interface( 7 );
   red.removeDevice( 7 );
   EXPECT_FALSE( device->hasNotifiees() );
   device->deviceNameIs( "et9" );
   EXPECT_THAT( red.entries(), IsEmpty() );
}

// A publisher that replaces the entity of an index notifies once, afterwards.
TEST_F( NetNsIntfStatusManagerTest, AnExchangedDeviceIsReplacedInOneStep ) {
   create();
   red.addDevice( 7, "et1" );
   auto const manager = root->intfStatusManager( "ns-red" );
   auto const old = red.status->interface( 7 );
   manager->hasNotificationActiveIs( false );
   red.removeDevice( 7 );
   red.addDevice( 7, "et2" );
   manager->hasNotificationActiveIs( true );
   manager->handleInterface( 7 );
   EXPECT_THAT( red.entries(), UnorderedElementsAre( "et2=et2 (index 7)" ) );
   EXPECT_FALSE( old->hasNotifiees() );
   U32 changes = 0;
   auto const watch = onChange< DeviceIntfStatusDir::intfStatusAndDeviceNameAttr >(
      red.directory, [ & ] { ++changes; } );
   manager->handleInterface( 7 );
   EXPECT_EQ( changes, 0u );
}

// --- Changes of interfaces -----------------------------------------------------------------------

TEST_F( NetNsIntfStatusManagerTest, AStatusAddedLaterIsEntered ) {
   create();
   red.addDevice( 7, "Ethernet1" );
   auto const status = allIntfStatusDir->intfStatusIs( "Ethernet1" );
   EXPECT_EQ( red.entry( "Ethernet1" ).intfStatus, status );
   allIntfStatusDir->intfStatusDel( "Ethernet1" );
   EXPECT_EQ( red.entry( "Ethernet1" ).intfStatus, nullptr );
   EXPECT_EQ( red.entry( "Ethernet1" ).ifIndex, 7u );
   EXPECT_FALSE( status->hasNotifiees() );
}

TEST_F( NetNsIntfStatusManagerTest, ADeviceNameConfiguredLaterMovesTheDevice ) {
   create();
   red.addDevice( 7, "et1" );
   red.addDevice( 8, "Ethernet1" );
   configureDevice( "Ethernet1", "et1" );
   EXPECT_THAT( red.entries(), UnorderedElementsAre( "Ethernet1=et1 (index 7)" ) );
   allIntfStatusDir->intfStatusDel( "Ethernet1" );
   EXPECT_THAT( red.entries(),
                UnorderedElementsAre( "et1=et1 (index 7)", "Ethernet1=Ethernet1 (index 8)" ) );
}

TEST_F( NetNsIntfStatusManagerTest, AnInterfaceMovesFromOneDeviceToTheOtherInOneStep ) {
   configureDevice( "Ethernet1", "et1" );
   create();
   red.addDevice( 7, "et1" );
   red.addDevice( 8, "et2" );
   bool gone = false;
   auto const watch =
      onChange< DeviceIntfStatusDir::intfStatusAndDeviceNameAttr >( red.directory, [ & ] {
         gone = gone || !red.directory->intfStatusAndDeviceNameHas( "Ethernet1" );
      } );
   configureDevice( "Ethernet1", "et2" );
   EXPECT_THAT( red.entries(),
                UnorderedElementsAre( "Ethernet1=et2 (index 8)", "et1=et1 (index 7)" ) );
   EXPECT_FALSE( gone );
}

TEST_F( NetNsIntfStatusManagerTest, ANamespaceConfiguredLaterMovesTheInterface ) {
   create();
   manage( blue );
   red.addDevice( 7, "Ethernet1" );
   blue.addDevice( 9, "Ethernet1" );
   configureNetNs( "Ethernet1", "ns-red" );
   EXPECT_EQ( red.entries().size(), 1u );
   EXPECT_THAT( blue.entries(), IsEmpty() );
   configureNetNs( "Ethernet1", "ns-blue" );
   EXPECT_THAT( red.entries(), IsEmpty() );
   EXPECT_THAT( blue.entries(), UnorderedElementsAre( "Ethernet1=Ethernet1 (index 9)" ) );
   auto const local = allIntfStatusLocalDir->intfStatusLocal( "Ethernet1" );
   allIntfStatusLocalDir->intfStatusLocalDel( "Ethernet1" );
   EXPECT_EQ( red.entries().size(), 1u );
   EXPECT_EQ( blue.entries().size(), 1u );
   EXPECT_FALSE( local->hasNotifiees() );
}

TEST_F( NetNsIntfStatusManagerTest, TheNextInLineTakesTheDeviceOfOneThatLeaves ) {
   configureDevice( "Ethernet1", "et1" );
   configureDevice( "Ethernet2", "et1" );
   create();
   red.addDevice( 7, "et1" );
   configureNetNs( "Ethernet1", "ns-blue" );
   EXPECT_THAT( red.entries(), UnorderedElementsAre( "Ethernet2=et1 (index 7)" ) );
   allIntfStatusDir->intfStatusDel( "Ethernet2" );
   EXPECT_THAT( red.entries(), UnorderedElementsAre( "et1=et1 (index 7)" ) );
   configureNetNs( "Ethernet1", "" );
   EXPECT_THAT( red.entries(), UnorderedElementsAre( "Ethernet1=et1 (index 7)" ) );
}

// --- Managers ------------------------------------------------------------------------------------

TEST_F( NetNsIntfStatusManagerTest, AManagerKnowsWhatItWasMadeFrom ) {
   create();
   auto const manager = root->intfStatusManager( "ns-red" );
   EXPECT_EQ( manager->namespaceName(), Corvid::NamespaceName( "ns-red" ) );
   EXPECT_EQ( manager->deviceIntfStatusDir(), red.directory );
   EXPECT_EQ( manager->kernelNetInfoStatus(), red.status );
   EXPECT_STREQ( manager->reactorName(), "NetNsIntfStatusManager" );
   EXPECT_EQ( root->intfStatusManagers(), 1u );
   EXPECT_EQ( root->allIntfStatusDir(), allIntfStatusDir );
   EXPECT_EQ( root->allIntfStatusLocalDir(), allIntfStatusLocalDir );
}

TEST_F( NetNsIntfStatusManagerTest, TheSameManagerAgainIsKept ) {
   create();
   auto const manager = root->intfStatusManager( "ns-red" );
   manage( red );
   EXPECT_EQ( root->intfStatusManager( "ns-red" ), manager );
}

TEST_F( NetNsIntfStatusManagerTest, AManagerOfOtherKernelInformationIsReplaced ) {
   create();
   red.addDevice( 7, "et1" );
   auto const oldStatus = red.status;
   red.status = Quill::make< KernelNetInfo::Status >( "ns-red" );
   red.addDevice( 8, "et2" );
   manage( red );
   EXPECT_THAT( red.entries(), UnorderedElementsAre( "et2=et2 (index 8)" ) );
   EXPECT_FALSE( oldStatus->hasNotifiees() );
   EXPECT_EQ( root->intfStatusManagers(), 1u );
}

TEST_F( NetNsIntfStatusManagerTest, WithoutKernelInformationThereAreNoDevices ) {
   create();
   root->intfStatusManagerIs( blue.directory, nullptr, "ns-blue" );
   configureDevice( "Ethernet1", "et1" );
   EXPECT_THAT( blue.entries(), IsEmpty() );
   EXPECT_EQ( root->intfStatusManagers(), 2u );
}

TEST_F( NetNsIntfStatusManagerTest, ADeletedManagerEmptiesItsDirectoryAndWatchesNothing ) {
   create();
   manage( blue );
   red.addDevice( 7, "et1" );
   red.addDevice( 8, "et2" );
   blue.addDevice( 7, "et1" );
   root->intfStatusManagerDel( "ns-red" );
   EXPECT_THAT( red.entries(), IsEmpty() );
   EXPECT_FALSE( red.status->hasNotifiees() );
   EXPECT_FALSE( red.status->interface( 7 )->hasNotifiees() );
   EXPECT_EQ( blue.entries().size(), 1u );
   root->intfStatusManagerDel( "ns-red" );
   root->intfStatusManagerDel( "" );
   EXPECT_EQ( root->intfStatusManagers(), 1u );
}

TEST_F( NetNsIntfStatusManagerTest, TheRootTakesItsManagersAlong ) {
   configureDevice( "Ethernet1", "et1" );
   create();
   red.addDevice( 7, "et1" );
   root = nullptr;
   EXPECT_THAT( red.entries(), IsEmpty() );
   EXPECT_FALSE( allIntfStatusDir->hasNotifiees() );
   EXPECT_FALSE( allIntfStatusLocalDir->hasNotifiees() );
   EXPECT_FALSE( allIntfStatusDir->intfStatus( "Ethernet1" )->hasNotifiees() );
}

// --- Removal in the middle of a change ----------------------------------------------------------

// Runs `act` once, inside the next change of the red directory.
class Disrupter {
 public:
   Disrupter( NetNs & netNs, std::function< void() > act )
       : act_( std::move( act ) ),
         watch_( onChange< DeviceIntfStatusDir::intfStatusAndDeviceNameAttr >(
            netNs.directory, [ this ] {
               if ( auto const once = std::exchange( act_, nullptr ) ) {
                  once();
               }
            } ) ) {}

 private:
   std::function< void() > act_;
   Valen::Test::OnChange< DeviceIntfStatusDir > watch_;
};

TEST_F( NetNsIntfStatusManagerTest, AManagerMayBeDeletedByItsWatcher ) {
   create();
   Disrupter const disrupter( red, [ & ] {
      root->intfStatusManagerDel( "ns-red" );
      EXPECT_THAT( red.entries(), IsEmpty() ) << "at once, though its handler is on the stack";
   } );
   red.addDevice( 7, "et1" );
   EXPECT_THAT( red.entries(), IsEmpty() );
   EXPECT_EQ( NetNsIntfStatusManager::quillAllocation.live, 0u );
}

TEST_F( NetNsIntfStatusManagerTest, ADeviceAddedWhileTheDirectoryIsEmptiedIsNotEntered ) {
   create();
   red.addDevice( 7, "et1" );
   Disrupter const disrupter( red, [ & ] { red.addDevice( 8, "et2" ); } );
   root->intfStatusManagerDel( "ns-red" );
   EXPECT_THAT( red.entries(), IsEmpty() );
}

TEST_F( NetNsIntfStatusManagerTest, AManagerMayBeDeletedInTheMiddleOfARename ) {
   create();
   red.addDevice( 7, "et1" );
   Disrupter const disrupter( red, [ & ] { root->intfStatusManagerDel( "ns-red" ); } );
   red.renameDevice( 7, "et2" );
   EXPECT_THAT( red.entries(), IsEmpty() );
   EXPECT_EQ( NetNsIntfStatusManager::quillAllocation.live, 0u );
}

TEST_F( NetNsIntfStatusManagerTest, TheRootMayGoInTheMiddleOfARename ) {
   create();
   red.addDevice( 7, "et1" );
   Disrupter const disrupter( red, [ & ] { Quill::Reactor::retire( std::move( root ) ); } );
   red.renameDevice( 7, "et2" );
   EXPECT_THAT( red.entries(), IsEmpty() );
   EXPECT_EQ( NetNsIntfStatusManagerRoot::quillAllocation.live, 0u );
}

TEST_F( NetNsIntfStatusManagerTest, TheRootMayBeDestroyedWhenADeviceIsAdded ) {
   create();
   Disrupter const disrupter( red, [ & ] { Quill::Reactor::retire( std::move( root ) ); } );
   red.addDevice( 7, "et1" );
   EXPECT_THAT( red.entries(), IsEmpty() );
   EXPECT_EQ( NetNsIntfStatusManagerRoot::quillAllocation.live, 0u );
}

TEST_F( NetNsIntfStatusManagerTest, TheRootMayGoWhenAnInterfaceChanges ) {
   configureDevice( "Ethernet1", "et1" );
   create();
   manage( blue );
   red.addDevice( 7, "et1" );
   blue.addDevice( 7, "et1" );
   Disrupter const disrupter( red, [ & ] { Quill::Reactor::retire( std::move( root ) ); } );
   configureDevice( "Ethernet1", "et2" );
   EXPECT_THAT( red.entries(), IsEmpty() );
   EXPECT_THAT( blue.entries(), IsEmpty() );
   EXPECT_EQ( NetNsIntfStatusManagerRoot::quillAllocation.live, 0u );
}

TEST_F( NetNsIntfStatusManagerTest, ADeviceMayGoInTheMiddleOfItsOwnRename ) {
   create();
   red.addDevice( 7, "et1" );
   Disrupter const disrupter( red, [ & ] { red.removeDevice( 7 ); } );
   red.renameDevice( 7, "et2" );
   EXPECT_THAT( red.entries(), IsEmpty() );
}

TEST_F( NetNsIntfStatusManagerTest, ADeviceMayBeRenamedAgainInTheMiddleOfItsRename ) {
   create();
   red.addDevice( 7, "et1" );
   Disrupter const disrupter( red, [ & ] { red.renameDevice( 7, "et3" ); } );
   red.renameDevice( 7, "et2" );
   EXPECT_THAT( red.entries(), UnorderedElementsAre( "et3=et3 (index 7)" ) );
}

TEST_F( NetNsIntfStatusManagerTest, AnInterfaceMayChangeAgainInTheMiddleOfItsChange ) {
   configureDevice( "Ethernet1", "et1" );
   create();
   red.addDevice( 7, "et1" );
   red.addDevice( 8, "et2" );
   red.addDevice( 9, "et3" );
   Disrupter const disrupter( red, [ & ] { configureDevice( "Ethernet1", "et3" ); } );
   configureDevice( "Ethernet1", "et2" );
   EXPECT_THAT( red.entries(), UnorderedElementsAre( "et1=et1 (index 7)", "et2=et2 (index 8)",
                                                     "Ethernet1=et3 (index 9)" ) );
}

} // namespace
} // namespace Interface
