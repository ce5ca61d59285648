// The configuration, status and platform entities that the library uses.
#include "tests/support/LeakCheck.h"
#include "types/ConfigTypes.h"
#include "types/InterfaceTypes.h"
#include "types/IpTypes.h"
#include "types/KernelNetInfo.h"
#include "types/StatusTypes.h"

#include <gmock/gmock.h>

namespace Valen {
namespace {

using Test::LeakCheck;
using ::testing::ElementsAre;

class EntityTypesTest : public ::testing::Test {
 protected:
   template < class Name > static std::string rangeErrorOf( std::size_t length ) {
      try {
         Name const name( std::string_view( std::string( length, 'x' ) ) );
         return "taken";
      } catch ( Quill::RangeException const & exception ) {
         return exception.what();
      }
   }

   LeakCheck leakCheck;
};

TEST_F( EntityTypesTest, AVrfNameHasAtMost100Bytes ) {
   EXPECT_EQ( rangeErrorOf< L3::VrfName >( 100 ), "taken" );
   EXPECT_EQ( rangeErrorOf< L3::VrfName >( 101 ),
              "VrfName::bytes > VrfName::maxLength not allowed" );
   EXPECT_THROW( L3::VrfName( Quill::String( std::string( 101, 'x' ) ) ), Quill::RangeException );
}

TEST_F( EntityTypesTest, ANamespaceNameHasAtMost150Bytes ) {
   EXPECT_EQ( rangeErrorOf< Corvid::NamespaceName >( 150 ), "taken" );
   EXPECT_EQ( rangeErrorOf< Corvid::NamespaceName >( 151 ),
              "NamespaceName::bytes > 150 not allowed" );
}

TEST_F( EntityTypesTest, ADeviceIsDisplayedByNameAndIndex ) {
   using Device = Interface::DeviceIntfStatusDir::IntfStatusAndDeviceName;
   EXPECT_EQ( Device().displayValue(), "no device" );
   EXPECT_EQ( ( Device{ nullptr, "et1", 7 } ).displayValue(), "et1 (index 7)" );
}

TEST_F( EntityTypesTest, AQueueKeepsItsMessagesInOrderByteForByte ) {
   auto const message = Quill::make< Config::Agent::Message >( "Ethernet1" );
   std::string const binary( "a\0b\xff", 4 );
   EXPECT_EQ( message->messages(), 0u );
   message->messageEnq( "first" );
   message->messageEnq( binary );
   message->messageEnq( "" );
   EXPECT_EQ( message->messages(), 3u );
   std::vector< std::string > texts;
   for ( auto const & text : message->message() ) {
      texts.push_back( text.stdString() );
   }
   EXPECT_THAT( texts, ElementsAre( "first", binary, "" ) );
   EXPECT_EQ( message->message( 1 ).stdString(), binary );
   EXPECT_EQ( message->message( 9 ), Quill::String() );
   EXPECT_EQ( message->intfId(), Corvid::IntfId( "Ethernet1" ) );
   message->messageDelAll();
   EXPECT_EQ( message->messages(), 0u );
}

TEST_F( EntityTypesTest, AMessageDirectoryMapsInterfacesToTheirQueues ) {
   auto const dir = Quill::make< Config::Agent::MessageDir >();
   auto const message = Quill::make< Config::Agent::Message >( "Ethernet1" );
   dir->messageIs( "Ethernet1", message );
   EXPECT_EQ( dir->message( "Ethernet1" ), message );
   EXPECT_EQ( dir->message( "Ethernet2" ), nullptr );
}

TEST_F( EntityTypesTest, AStatusEntryStartsWithBothFlagsDownInThisOrder ) {
   auto const dir = Quill::make< Status::StatusDir >();
   EXPECT_FALSE( dir->agentActive() );
   auto const status = dir->intfStatusIs( "Ethernet1" );
   EXPECT_EQ( dir->intfStatusIs( "Ethernet1" ), status );
   EXPECT_FALSE( status->delayed() );
   EXPECT_FALSE( status->shouldDelay() );
   EXPECT_TRUE( dir->intfStatusHas( "Ethernet1" ) );
   EXPECT_EQ( dir->intfStatuss(), 1u );
   auto const attributes = Status::IntfStatus::staticType().attributes;
   ASSERT_EQ( attributes.size(), 3u );
   EXPECT_STREQ( attributes[ 1 ].name, "delayed" );
   EXPECT_STREQ( attributes[ 2 ].name, "shouldDelay" );
   dir->intfStatusDelAll();
   EXPECT_EQ( dir->intfStatuss(), 0u );
}

TEST_F( EntityTypesTest, OnlyTheVrfStateOneIsActive ) {
   auto const vrf = Quill::make< Ip::AllVrfStatusLocal >()->vrfIs( "red" );
   EXPECT_EQ( vrf->state(), Ip::VrfState::initializing );
   EXPECT_EQ( static_cast< U32 >( Ip::VrfState::active ), 1u );
   EXPECT_EQ( vrf->vrfName(), L3::VrfName( "red" ) );
   EXPECT_TRUE( vrf->networkNamespace().empty() );
}

TEST_F( EntityTypesTest, InterfaceDirectoriesKeepTheirMembersById ) {
   auto const configs = Quill::make< Interface::AllIntfConfigDir >();
   auto const config = configs->intfConfigIs( "Ethernet1" );
   EXPECT_FALSE( config->adminShutdownDelaySupported() );
   EXPECT_FALSE( config->adminShutdownDelayable() );
   EXPECT_FALSE( config->adminShutdownDelayed() );
   auto const statuses = Quill::make< L3::Intf::StatusDir >();
   EXPECT_TRUE( statuses->intfStatusIs( "Ethernet1" )->vrf().empty() );
   EXPECT_EQ( statuses->intfStatus( "Ethernet1" )->intfId(), Corvid::IntfId( "Ethernet1" ) );
}

TEST_F( EntityTypesTest, KernelDevicesArePublishedComplete ) {
   auto const status = Quill::make< KernelNetInfo::Status >( "ns-red" );
   auto const device = Quill::make< KernelNetInfo::Interface >( 7 );
   device->deviceNameIs( "et1" );
   status->interfaceAdd( device );
   EXPECT_EQ( status->interface( 7 ), device );
   EXPECT_EQ( device->parent(), status.get() );
   EXPECT_EQ( device->flags(), 0u );
   EXPECT_EQ( device->mtu(), 0u );
   EXPECT_EQ( status->resyncs(), 0u );
   EXPECT_TRUE( status->error().empty() );
   EXPECT_FALSE( status->synchronized() );
   EXPECT_EQ( status->netNsName(), Corvid::NamespaceName( "ns-red" ) );
}

TEST_F( EntityTypesTest, ThePlacesOfDeviceDirectoriesAreNamed ) {
   auto const all = Quill::make< Interface::VrfDeviceIntfStatusDir >( "all" );
   auto const devices = all->deviceVrfIntfStatusDirIs( "red" )->deviceIntfStatusDirIs( "devices" );
   EXPECT_EQ( all->name(), Quill::Name( "all" ) );
   EXPECT_EQ( all->deviceVrfIntfStatusDir( "red" )->name(), Quill::Name( "red" ) );
   EXPECT_EQ( devices->name(), Quill::Name( "devices" ) );
}

} // namespace
} // namespace Valen
