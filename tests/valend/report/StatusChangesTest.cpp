#include "valend/report/StatusChanges.h"

#include "tests/valend/DaemonFixture.h"

#include <algorithm>

namespace Valend {
namespace {

using namespace Test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;

class StatusChangesTest : public DaemonFixture {
 protected:
   void follow() {
      changes.emplace( store, feeder,
                       StatusChanges::Changed{
                          [ this ]( auto const & interface ) { changed.push_back( interface ); },
                          [ this ]( auto const & place ) {
                             changed.push_back( place.netNs + "/" + place.device );
                          } } );
      changed.clear();
   }
   // What has changed since the last call, each once.
   std::vector< std::string > seen() {
      auto seen = std::exchange( changed, {} );
      std::sort( seen.begin(), seen.end() );
      seen.erase( std::unique( seen.begin(), seen.end() ), seen.end() );
      return seen;
   }
   Quill::Ptr< KernelNetInfo::Interface > device( std::string const & netNs, U32 ifIndex ) const {
      auto const status = store.entityManager->mounted( "kni/ns/" + netNs + "/status" );
      return Quill::ptrCast< KernelNetInfo::Status >( status )->interface( ifIndex );
   }

   std::vector< std::string > changed;
   std::optional< StatusChanges > changes;
};

TEST_F( StatusChangesTest, AttributesOfStatusEntriesAreFollowed ) {
   start( twoInterfaces() );
   follow();
   store.statusDir->intfStatus( "Ethernet2" )->delayedIs( true );
   EXPECT_THAT( seen(), ElementsAre( "Ethernet2" ) );
   store.statusDir->agentActiveIs( false );
   EXPECT_THAT( seen(), IsEmpty() );
}

TEST_F( StatusChangesTest, StatusEntriesThatComeAndGoAreFollowed ) {
   follow();
   store.statusDir->intfStatusIs( "Ethernet1" );
   EXPECT_THAT( seen(), ElementsAre( "Ethernet1" ) );
   store.statusDir->intfStatus( "Ethernet1" )->delayedIs( true );
   EXPECT_THAT( seen(), ElementsAre( "Ethernet1" ) );
   auto const former = store.statusDir->intfStatus( "Ethernet1" );
   store.statusDir->intfStatusDel( "Ethernet1" );
   EXPECT_THAT( seen(), ElementsAre( "Ethernet1" ) );
   former->delayedIs( false );
   EXPECT_THAT( seen(), IsEmpty() ) << "it belongs to no interface any more";
}

TEST_F( StatusChangesTest, InterfacesThatAreConfiguredAndRemovedAreNoticed ) {
   follow();
   feeder.apply( twoInterfaces() );
   EXPECT_THAT( seen(), ElementsAre( "Ethernet1", "Ethernet2" ) );
   auto config = twoInterfaces();
   config.interfaces.erase( "Ethernet2" );
   config.agents.at( "lldp" ).erase( "Ethernet2" );
   feeder.apply( config );
   EXPECT_THAT( seen(), ElementsAre( "Ethernet2" ) );
}

TEST_F( StatusChangesTest, AttributesOfDevicesAreFollowedInEachNamespace ) {
   start( twoInterfaces() );
   follow();
   device( "default", 7 )->flagsIs( 1 );
   EXPECT_THAT( seen(), ElementsAre( "default/et1" ) );
   device( "ns-red", 7 )->mtuIs( 9000 );
   EXPECT_THAT( seen(), ElementsAre( "ns-red/et2" ) );
}

TEST_F( StatusChangesTest, DevicesThatComeAndGoAreFollowed ) {
   start( twoInterfaces() );
   follow();
   kernel.deviceIs( "ns-red", "et9", 9 );
   EXPECT_THAT( seen(), ElementsAre( "ns-red/et9" ) );
   device( "ns-red", 9 )->flagsIs( 1 );
   EXPECT_THAT( seen(), ElementsAre( "ns-red/et9" ) );
   auto const former = device( "ns-red", 9 );
   kernel.deviceDel( "ns-red", "et9" );
   EXPECT_THAT( seen(), ElementsAre( "ns-red/et9" ) );
   former->flagsIs( 2 );
   EXPECT_THAT( seen(), IsEmpty() );
}

TEST_F( StatusChangesTest, ADeviceThatWasExchangedIsOneThatWentAndOneThatCame ) {
   start( twoInterfaces() );
   follow();
   kernel.deviceIs( "default", "et8", 7 ); // the index of et1
   EXPECT_THAT( seen(), IsSupersetOf( { "default/et1", "default/et8" } ) );
   device( "default", 7 )->flagsIs( 1 );
   EXPECT_THAT( seen(), ElementsAre( "default/et8" ) );
}

TEST_F( StatusChangesTest, ADeviceThatIsRenamedIsFollowedByItsNewName ) {
   start( twoInterfaces() );
   follow();
   device( "default", 7 )->deviceNameIs( "et8" );
   EXPECT_THAT( seen(), IsSupersetOf( { "default/et1", "default/et8" } ) );
   device( "default", 7 )->flagsIs( 1 );
   EXPECT_THAT( seen(), ElementsAre( "default/et8" ) );
   device( "default", 7 )->deviceNameIs( "et9" );
   EXPECT_THAT( seen(), ElementsAre( "default/et8", "default/et9" ) );
}

TEST_F( StatusChangesTest, ANewNamespaceIsFollowedWhenItIsLookedFor ) {
   auto config = twoInterfaces();
   config.vrfs.clear();
   config.interfaces.erase( "Ethernet2" );
   config.agents.at( "lldp" ).erase( "Ethernet2" );
   start( config );
   follow();
   feeder.apply( twoInterfaces() );
   turn();
   seen();
   changes->followNamespaces();
   device( "ns-red", 7 )->flagsIs( 1 );
   EXPECT_THAT( seen(), ElementsAre( "ns-red/et2" ) );
   auto const former = device( "ns-red", 7 );
   feeder.apply( config );
   changes->followNamespaces();
   seen();
   former->flagsIs( 2 );
   EXPECT_THAT( seen(), IsEmpty() ) << "the namespace is not configured any more";
}

TEST_F( StatusChangesTest, WhatIsStillFollowedIsNotFollowedAnew ) {
   start( twoInterfaces() );
   follow();
   changes->followNamespaces();
   EXPECT_THAT( seen(), IsEmpty() ) << "devices that are known are no change";
   device( "default", 7 )->flagsIs( 1 );
   EXPECT_THAT( changed, ElementsAre( "default/et1" ) ) << "once";
}

} // namespace
} // namespace Valend
