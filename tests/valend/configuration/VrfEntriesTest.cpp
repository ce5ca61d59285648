#include "valend/configuration/VrfEntries.h"

#include "tests/valend/DaemonFixture.h"

namespace Valend {
namespace {

using namespace Test;
using Ip::VrfState;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// The entries as the feeder uses them, with the library.
class VrfEntriesTest : public DaemonFixture {
 protected:
   VrfState stateOf( std::string const & vrf ) const {
      return store.allVrfStatusLocal->vrf( vrf )->state();
   }
   std::vector< std::string > raised() const {
      std::vector< std::string > texts;
      for ( auto const & condition : conditions.raised() ) {
         texts.push_back( condition.name + ": " + condition.text );
      }
      return texts;
   }
};

// --- Namespaces ----------------------------------------------------------------------------------

TEST_F( VrfEntriesTest, TheDefaultVrfHasNoStatusEntry ) {
   start( twoInterfaces() );
   EXPECT_FALSE( store.allVrfStatusLocal->vrfHas( "default" ) );
   EXPECT_EQ( store.allVrfStatusLocal->vrfs(), 1u );
}

TEST_F( VrfEntriesTest, AnEntryBecomesActiveWhenItsNamespaceIsCreated ) {
   kernel.deviceIs( "default", "et1", 7 );
   feeder.apply( twoInterfaces() );
   libraryStart();
   EXPECT_EQ( stateOf( "red" ), VrfState::initializing );
   EXPECT_FALSE( ready( "Ethernet2" ) );
   EXPECT_TRUE( ready( "Ethernet1" ) );
   EXPECT_EQ( feeder.vrfError( "red" ), "no namespace ns-red" );
   EXPECT_TRUE( feeder.namespaceMissing( "red" ) );

   kernel.netNsIs( "ns-red", "1:2" );
   kernel.deviceIs( "ns-red", "et2", 7 );
   feeder.namespaceChanged( "ns-red" );
   EXPECT_EQ( stateOf( "red" ), VrfState::active );
   EXPECT_TRUE( ready( "Ethernet2" ) );
   EXPECT_EQ( feeder.vrfError( "red" ), "" );
   EXPECT_FALSE( feeder.namespaceMissing( "red" ) );
}

TEST_F( VrfEntriesTest, AnInterfaceIsNotReadyAfterItsNamespaceIsDeleted ) {
   start( twoInterfaces() );
   kernel.netNsDel( "ns-red" );
   feeder.namespaceChanged( "ns-red" );
   EXPECT_EQ( stateOf( "red" ), VrfState::initializing );
   EXPECT_FALSE( ready( "Ethernet2" ) );
   EXPECT_TRUE( ready( "Ethernet1" ) );
}

TEST_F( VrfEntriesTest, ARecreatedNamespaceGetsANewEndpoint ) {
   start( twoInterfaces() );
   auto const endpoints = sent.live;
   auto const status = store.statusDir->intfStatus( "Ethernet2" );
   kernel.netNsIs( "ns-red", "1:99" );
   feeder.namespaceChanged( "ns-red" );
   EXPECT_TRUE( ready( "Ethernet2" ) );
   EXPECT_NE( store.statusDir->intfStatus( "Ethernet2" ), status );
   EXPECT_EQ( sent.live, endpoints );
}

TEST_F( VrfEntriesTest, ANamespaceWithoutAVrfChangesNothing ) {
   start( twoInterfaces() );
   auto const entry = store.allVrfStatusLocal->vrf( "red" );
   feeder.namespaceChanged( "ns-other" );
   EXPECT_EQ( store.allVrfStatusLocal->vrf( "red" ), entry );
}

TEST_F( VrfEntriesTest, OfTwoNamesOfOneNamespaceOnlyOneIsUsed ) {
   auto config = twoInterfaces();
   config.vrfs[ "blue" ] = "ns-blue";
   kernel.netNsIs( "ns-blue", "1:2" ); // the same as ns-red
   start( config );
   EXPECT_EQ( stateOf( "blue" ), VrfState::active );
   EXPECT_EQ( stateOf( "red" ), VrfState::initializing );
   EXPECT_EQ( feeder.vrfError( "red" ), "namespace \"ns-red\" is already used by VRF \"blue\"" );
   EXPECT_FALSE( ready( "Ethernet2" ) );

   kernel.netNsIs( "ns-blue", "1:3" );
   feeder.namespaceChanged( "ns-blue" );
   EXPECT_EQ( stateOf( "blue" ), VrfState::active );
   EXPECT_EQ( stateOf( "red" ), VrfState::active );
   EXPECT_TRUE( ready( "Ethernet2" ) );

   kernel.netNsIs( "ns-blue", "1:2" );
   feeder.namespaceChanged( "ns-blue" );
   EXPECT_EQ( stateOf( "red" ), VrfState::initializing );
   config.vrfs.erase( "blue" );
   feeder.apply( config );
   EXPECT_EQ( stateOf( "red" ), VrfState::active );
   EXPECT_TRUE( ready( "Ethernet2" ) );
}

TEST_F( VrfEntriesTest, ANamedVrfNeverUsesTheNamespaceOfTheDaemon ) {
   start( twoInterfaces() );
   kernel.netNsIs( "ns-red", "1:1" ); // the default's
   feeder.namespaceChanged( "ns-red" );
   EXPECT_EQ( stateOf( "red" ), VrfState::initializing );
   EXPECT_EQ( feeder.vrfError( "red" ), "namespace \"ns-red\" is already used by VRF \"default\"" );
}

// --- Faults --------------------------------------------------------------------------------------

TEST_F( VrfEntriesTest, AVrfThatFailsIsRetriedWithGrowingPauses ) {
   sent.enableErrno = EMFILE;
   start( twoInterfaces() );
   auto const atStart = faults.count();
   EXPECT_EQ( atStart, 4u ) << "the library tries each VRF twice while it starts";
   EXPECT_FALSE( ready( "Ethernet1" ) );
   EXPECT_FALSE( ready( "Ethernet2" ) );
   EXPECT_THAT( feeder.vrfError( "red" ), ::testing::HasSubstr( "open ns-red" ) );
   advance( 999ms );
   EXPECT_EQ( faults.count(), atStart );
   advance( 2ms );
   EXPECT_EQ( faults.count(), atStart + 2 );
   advance( 1990ms );
   EXPECT_EQ( faults.count(), atStart + 2 ) << "the second pause is longer";
   advance( 20ms );
   EXPECT_EQ( faults.count(), atStart + 4 );

   sent.enableErrno = 0;
   advance( 4010ms );
   EXPECT_EQ( faults.count(), atStart + 4 );
   EXPECT_TRUE( ready( "Ethernet1" ) );
   EXPECT_TRUE( ready( "Ethernet2" ) );
   EXPECT_EQ( feeder.vrfError( "red" ), "" );
   EXPECT_THAT( framesOf( "Ethernet1" ), ElementsAre( "default/7:a", "default/7:b" ) );
}

TEST_F( VrfEntriesTest, ARemovedVrfIsNotRetried ) {
   sent.enableErrno = EMFILE;
   start( twoInterfaces() );
   feeder.apply( Settings::Config() );
   auto const count = faults.count();
   sent.enableErrno = 0;
   advance( 5000ms );
   EXPECT_EQ( faults.count(), count );
   EXPECT_EQ( store.allVrfStatusLocal->vrfs(), 0u );
}

TEST_F( VrfEntriesTest, TheErrorOfAVrfIsACondition ) {
   start( twoInterfaces() );
   EXPECT_THAT( raised(), IsEmpty() );
   kernel.netNsDel( "ns-red" );
   feeder.namespaceChanged( "ns-red" );
   EXPECT_THAT( raised(), ElementsAre( "vrf/red: no namespace ns-red" ) );
   kernel.netNsIs( "ns-red", "1:1" ); // the same as the default VRF's
   feeder.namespaceChanged( "ns-red" );
   EXPECT_THAT( raised(), ElementsAre( "vrf/red: namespace \"ns-red\" is already used by VRF "
                                       "\"default\"" ) );
   kernel.netNsIs( "ns-red", "1:2" );
   feeder.namespaceChanged( "ns-red" );
   EXPECT_THAT( raised(), IsEmpty() );
}

TEST_F( VrfEntriesTest, TheConditionOfARemovedVrfIsCleared ) {
   feeder.apply( twoInterfaces() ); // its namespace does not exist
   ASSERT_TRUE( conditions.isRaised( "vrf/red" ) );
   feeder.apply( Settings::Config() );
   EXPECT_THAT( raised(), IsEmpty() );
}

TEST_F( VrfEntriesTest, TheConditionOfAFailedVrfLastsUntilARetrySucceeds ) {
   std::vector< std::string > logged;
   Conditions logging{ [ & ]( LogLevel, auto const & text ) { logged.push_back( text ); } };
   kernel.netNsIs( "ns-red", "1:2" );
   int attempts = 0;
   VrfEntries * entries = nullptr;
   VrfEntries own( store, kernel, clock.scheduler(), logging, [ & ] {
      if ( ++attempts == 1 ) {
         entries->failed( "default", "too many open files" );
      }
   } );
   entries = &own;
   own.failed( "default", "too many open files" );
   EXPECT_THAT( logged, ElementsAre( "vrf/default: too many open files" ) );
   clock.advance( 1000ms );
   EXPECT_EQ( attempts, 1 );
   EXPECT_THAT( logged, ElementsAre( "vrf/default: too many open files" ) )
      << "a retry that fails again does not clear the condition in between";
   clock.advance( 2000ms );
   EXPECT_EQ( attempts, 2 );
   EXPECT_THAT( logged,
                ElementsAre( "vrf/default: too many open files", "vrf/default: recovered" ) );
}

TEST_F( VrfEntriesTest, ANamespaceThatCouldNotBeOpenedIsLookedAtAgain ) {
   kernel.lookError = "cannot open ns-red: Cannot allocate memory";
   start( twoInterfaces() );
   EXPECT_EQ( stateOf( "red" ), VrfState::initializing );
   EXPECT_THAT( raised(), ElementsAre( "vrf/red: " + kernel.lookError ) );
   kernel.lookError.clear();
   advance( 1001ms );
   EXPECT_EQ( stateOf( "red" ), VrfState::active );
   EXPECT_TRUE( ready( "Ethernet2" ) );
   EXPECT_THAT( raised(), IsEmpty() );
}

TEST_F( VrfEntriesTest, TheTextFollowsWhatIsThere ) {
   feeder.apply( twoInterfaces() ); // its namespace does not exist
   EXPECT_THAT( raised(), ElementsAre( "vrf/red: no namespace ns-red" ) );
   advance( 60'000ms );
   kernel.lookError = "ns-red is a directory";
   advance( 5001ms );
   EXPECT_THAT( raised(), ElementsAre( "vrf/red: ns-red is a directory" ) );
   EXPECT_FALSE( feeder.namespaceMissing( "red" ) );
   kernel.lookError.clear();
   advance( 5001ms );
   EXPECT_THAT( raised(), ElementsAre( "vrf/red: no namespace ns-red" ) );
   EXPECT_TRUE( feeder.namespaceMissing( "red" ) );
}

TEST_F( VrfEntriesTest, AnEntryIsNotRenewedWhileItsNamespaceLooksTheSame ) {
   feeder.apply( twoInterfaces() );
   auto const entry = store.allVrfStatusLocal->vrf( "red" );
   advance( 20'000ms );
   EXPECT_EQ( store.allVrfStatusLocal->vrf( "red" ), entry );
}

TEST_F( VrfEntriesTest, AnEndpointThatTheLibraryDoesNotReportIsRetried ) {
   sent.enableErrno = EINVAL; // to the library, the namespace does not exist
   start( twoInterfaces() );
   EXPECT_EQ( faults.count(), 0u );
   auto const entry = store.allVrfStatusLocal->vrf( "red" );
   feeder.namespaceFailed( "ns-red", "cannot enter ns-red: Invalid argument" );
   feeder.namespaceFailed( "default", "cannot open /proc" );
   EXPECT_THAT( raised(), ElementsAre( "vrf/default: cannot open /proc",
                                       "vrf/red: cannot enter ns-red: Invalid argument" ) );
   sent.enableErrno = 0;
   advance( 1001ms );
   EXPECT_NE( store.allVrfStatusLocal->vrf( "red" ), entry ) << "it was added again";
   EXPECT_TRUE( ready( "Ethernet1" ) );
   EXPECT_TRUE( ready( "Ethernet2" ) );
   EXPECT_THAT( raised(), IsEmpty() );
}

TEST_F( VrfEntriesTest, AChangeOfTheNamespaceIsTheRetry ) {
   sent.enableErrno = EMFILE;
   start( twoInterfaces() );
   ASSERT_TRUE( conditions.isRaised( "vrf/red" ) );
   sent.enableErrno = 0;
   feeder.namespaceChanged( "ns-red" );
   EXPECT_FALSE( conditions.isRaised( "vrf/red" ) );
   EXPECT_TRUE( ready( "Ethernet2" ) );
   auto const entry = store.allVrfStatusLocal->vrf( "red" );
   advance( 5000ms );
   EXPECT_EQ( store.allVrfStatusLocal->vrf( "red" ), entry ) << "nothing is left to retry";
}

} // namespace
} // namespace Valend
