#include "tracking/AllVrfStatusLocalSm.h"

#include "tests/support/FaultRecorder.h"
#include "tests/support/LeakCheck.h"
#include "tests/support/TraceCapture.h"

#include <gmock/gmock.h>

namespace Valen {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::string const handleVrf = "void Valen::AllVrfStatusLocalSm::handleVrf(L3::VrfName)";
std::string const handleVrfL3Intf = "void Valen::AllVrfStatusLocalSm::handleVrfL3Intf(L3::VrfName)";
std::string const handleDefaultVrf = "void Valen::AllVrfStatusLocalSm::handleDefaultVrf()";
std::string const handleState = "void Valen::VrfStatusLocalSm::handleState()";
std::string const handleChildDestruction = "void Valen::VrfStatusLocalSm::handleDestruction()";
std::string const reinstantiating =
   "Reinstantiating the pointer interface where constructor parameter attribute ";

class AllVrfStatusLocalSmTest : public testing::Test, protected Valen::Test::LeakCheck {
 protected:
   Quill::Ptr< Ip::VrfStatusLocal > addStatus( char const * vrf, char const * netNs,
                                               Ip::VrfState state = Ip::VrfState::active ) {
      auto const status = Quill::make< Ip::VrfStatusLocal >( vrf );
      status->stateIs( state );
      status->networkNamespaceIs( netNs );
      statuses->vrfAdd( status );
      return status;
   }
   Quill::Ptr< VrfL3Intf > addSet( char const * vrf ) { return allVrf->vrfL3IntfIs( vrf ); }
   void start() {
      sm = allVrfStatusLocalSmFactory( statuses, allVrf );
      trace.clear();
   }

   Quill::Ptr< Ip::AllVrfStatusLocal > const statuses = Quill::make< Ip::AllVrfStatusLocal >();
   Quill::Ptr< AllVrf > const allVrf = allVrfFactory();
   Valen::Test::TraceCapture trace;
   Valen::Test::FaultRecorder faults;
   Quill::Ptr< AllVrfStatusLocalSm > sm;
};

TEST_F( AllVrfStatusLocalSmTest, KeepsWhatItWasMadeFrom ) {
   start();
   EXPECT_EQ( sm->allVrfStatusLocal(), statuses );
   EXPECT_EQ( sm->allVrf(), allVrf );
   EXPECT_EQ( sm->vrfStatusLocalSms(), 0u );
   EXPECT_STREQ( sm->reactorName(), "AllVrfStatusLocalSm" );
}

TEST_F( AllVrfStatusLocalSmTest, ReplaysStatusesButNotSets ) {
   addStatus( "red", "ns-red" );
   addStatus( "green", "ns-green" );
   addSet( "red" );
   addSet( "default" );
   sm = allVrfStatusLocalSmFactory( statuses, allVrf );
   EXPECT_THAT( trace.texts(),
                ElementsAre( "void Valen::AllVrfStatusLocalSm::handleInitialized(): ",
                             handleVrf + ": vrf red", handleVrf + ": adding VrfStatusLocalSm",
                             handleState + ": vrf red, state1", handleVrf + ": vrf green",
                             handleVrf + ": vrfL3Intf not present" ) );
   EXPECT_TRUE( allVrf->vrfHas( "red" ) );
   EXPECT_FALSE( allVrf->vrfHas( "default" ) );
}

TEST_F( AllVrfStatusLocalSmTest, TracesOnOneHandleEntryAtLevelZeroAndDecisionsAtLevelOne ) {
   start();
   addStatus( "red", "ns-red" );
   addSet( "red" );
   sm->handleVrf( "red" );
   allVrf->vrfL3IntfDel( "red" );
   addSet( "red" );
   statuses->vrfDel( "red" );
   addSet( "default" );
   sm->handleDefaultVrf();
   sm->hasNotificationActiveIs( false );
   allVrf->vrfL3IntfDel( "default" );
   addSet( "default" );
   sm->handleDefaultVrf();
   for ( auto const & line : trace.lines() ) {
      EXPECT_EQ( line.unit, "AllVrfStatusLocalSm" );
   }
   EXPECT_THAT(
      trace.texts( 1 ),
      ElementsAre(
         handleVrf + ": vrfL3Intf not present", handleVrf + ": adding VrfStatusLocalSm",
         handleVrf + ": adding VrfStatusLocalSm", handleVrf + ": vrfStatusLocalSm already exists",
         handleVrf + ": vrfL3Intf not present", handleVrf + ": adding VrfStatusLocalSm",
         handleVrf + ": removing stale vrfStatusLocalSm", handleVrf + ": removing VrfStatusLocalSm",
         handleDefaultVrf + ": vrf already exists", handleDefaultVrf + ": removing stale vrf" ) );
   EXPECT_EQ( trace.texts( 0 ).size() + trace.texts( 1 ).size(), trace.texts().size() );
}

TEST_F( AllVrfStatusLocalSmTest, AVrfThatIsUpWithInterfacesHasItsRecord ) {
   start();
   auto const set = addSet( "red" );
   EXPECT_THAT( trace.texts(),
                ElementsAre( handleVrfL3Intf + ": vrf red", handleVrf + ": vrf red" ) );
   trace.clear();
   auto const status = addStatus( "red", "ns-red" );
   auto const vrf = allVrf->vrf( "red" );
   ASSERT_TRUE( vrf );
   EXPECT_EQ( vrf->nsName(), "ns-red" );
   EXPECT_EQ( vrf->vrfL3Intf(), set );
   auto const child = sm->vrfStatusLocalSm( "red" );
   ASSERT_TRUE( child );
   EXPECT_EQ( child->vrfName(), "red" );
   EXPECT_EQ( child->vrfStatusLocal(), status );
   EXPECT_EQ( child->vrfL3Intf(), set );
   EXPECT_EQ( child->allVrf(), allVrf );
   EXPECT_STREQ( child->reactorName(), "VrfStatusLocalSm" );
   EXPECT_THAT( trace.texts(),
                ElementsAre( handleVrf + ": vrf red", handleVrf + ": adding VrfStatusLocalSm",
                             handleState + ": vrf red, state1" ) );
}

TEST_F( AllVrfStatusLocalSmTest, AStatusWaitsForTheSet ) {
   start();
   addStatus( "red", "ns-red" );
   EXPECT_FALSE( sm->vrfStatusLocalSm( "red" ) );
   EXPECT_THAT( trace.texts(),
                ElementsAre( handleVrf + ": vrf red", handleVrf + ": vrfL3Intf not present" ) );
   addSet( "red" );
   EXPECT_TRUE( allVrf->vrfHas( "red" ) );
}

TEST_F( AllVrfStatusLocalSmTest, OnlyStateOneHasTheRecord ) {
   start();
   addSet( "red" );
   auto const status = addStatus( "red", "ns-red", Ip::VrfState::initializing );
   auto const child = sm->vrfStatusLocalSm( "red" );
   EXPECT_FALSE( allVrf->vrfHas( "red" ) );
   trace.clear();
   status->stateIs( Ip::VrfState::active );
   EXPECT_TRUE( allVrf->vrfHas( "red" ) );
   status->stateIs( Ip::VrfState::deleting );
   EXPECT_FALSE( allVrf->vrfHas( "red" ) );
   status->stateIs( Ip::VrfState::active );
   EXPECT_TRUE( allVrf->vrfHas( "red" ) );
   status->stateIs( static_cast< Ip::VrfState >( 17 ) );
   EXPECT_FALSE( allVrf->vrfHas( "red" ) );
   EXPECT_EQ( sm->vrfStatusLocalSm( "red" ), child );
   EXPECT_THAT( trace.texts(),
                ElementsAre( handleState + ": vrf red, state1", handleState + ": vrf red, state2",
                             handleState + ": vrf red, state1",
                             handleState + ": vrf red, state17" ) );
   for ( auto const & line : trace.lines() ) {
      EXPECT_EQ( line.level, 0 );
   }
}

TEST_F( AllVrfStatusLocalSmTest, ARemovedStatusTakesChildAndRecordAlong ) {
   start();
   addSet( "red" );
   addStatus( "red", "ns-red" );
   trace.clear();
   statuses->vrfDel( "red" );
   EXPECT_FALSE( sm->vrfStatusLocalSm( "red" ) );
   EXPECT_FALSE( allVrf->vrfHas( "red" ) );
   EXPECT_THAT( trace.texts(),
                ElementsAre( handleVrf + ": vrf red", handleVrf + ": removing VrfStatusLocalSm",
                             handleChildDestruction + ": vrf red" ) );
}

TEST_F( AllVrfStatusLocalSmTest, ARemovedStatusWithoutChildIsSilent ) {
   start();
   addStatus( "red", "ns-red" );
   trace.clear();
   statuses->vrfDel( "red" );
   EXPECT_THAT( trace.texts(), ElementsAre( handleVrf + ": vrf red" ) );
}

TEST_F( AllVrfStatusLocalSmTest, ARemovedSetLeavesChildAndRecord ) {
   start();
   auto const set = addSet( "red" );
   addStatus( "red", "ns-red" );
   auto const child = sm->vrfStatusLocalSm( "red" );
   auto const vrf = allVrf->vrf( "red" );
   trace.clear();
   allVrf->vrfL3IntfDel( "red" );
   EXPECT_EQ( sm->vrfStatusLocalSm( "red" ), child );
   EXPECT_EQ( allVrf->vrf( "red" ), vrf );
   EXPECT_EQ( vrf->vrfL3Intf(), set );
   EXPECT_THAT( trace.texts(), ElementsAre( handleVrfL3Intf + ": vrf red", handleVrf + ": vrf red",
                                            handleVrf + ": vrfL3Intf not present" ) );
}

TEST_F( AllVrfStatusLocalSmTest, AnotherSetReplacesTheChildOldOneFirst ) {
   start();
   addSet( "red" );
   addStatus( "red", "ns-red" );
   allVrf->vrfL3IntfDel( "red" );
   auto const old = allVrf->vrf( "red" );
   trace.clear();
   auto const set = addSet( "red" );
   ASSERT_TRUE( allVrf->vrf( "red" ) );
   EXPECT_NE( allVrf->vrf( "red" ), old );
   EXPECT_EQ( allVrf->vrf( "red" )->vrfL3Intf(), set );
   EXPECT_EQ( sm->vrfStatusLocalSm( "red" )->vrfL3Intf(), set );
   EXPECT_THAT( faults.messages(), IsEmpty() );
   EXPECT_THAT( trace.texts(), ElementsAre( handleVrfL3Intf + ": vrf red", handleVrf + ": vrf red",
                                            handleVrf + ": adding VrfStatusLocalSm",
                                            handleVrf + ": removing stale vrfStatusLocalSm",
                                            handleChildDestruction + ": vrf red",
                                            handleState + ": vrf red, state1" ) );
}

TEST_F( AllVrfStatusLocalSmTest, AnotherStatusReplacesTheChild ) {
   start();
   addSet( "red" );
   addStatus( "red", "ns-red" );
   // A replacement is one change if the removal was not notified.
   sm->hasNotificationActiveIs( false );
   statuses->vrfDel( "red" );
   auto const other = addStatus( "red", "ns-other" );
   sm->hasNotificationActiveIs( true );
   trace.clear();
   sm->handleVrf( "red" );
   EXPECT_EQ( sm->vrfStatusLocalSm( "red" )->vrfStatusLocal(), other );
   EXPECT_EQ( allVrf->vrf( "red" )->nsName(), "ns-other" );
   EXPECT_THAT( trace.messages( handleVrf ), ElementsAre( "vrf red", "adding VrfStatusLocalSm",
                                                          "removing stale vrfStatusLocalSm" ) );
}

TEST_F( AllVrfStatusLocalSmTest, ARepeatedNotificationKeepsTheChild ) {
   start();
   addSet( "red" );
   addStatus( "red", "ns-red" );
   auto const child = sm->vrfStatusLocalSm( "red" );
   trace.clear();
   sm->handleVrf( "red" );
   EXPECT_EQ( sm->vrfStatusLocalSm( "red" ), child );
   EXPECT_THAT( trace.texts(),
                ElementsAre( handleVrf + ": vrf red", handleVrf + ": adding VrfStatusLocalSm",
                             handleVrf + ": vrfStatusLocalSm already exists" ) );
}

// --- The default VRF -----------------------------------------------------------------------------

TEST_F( AllVrfStatusLocalSmTest, TheDefaultVrfNeedsNoStatus ) {
   start();
   auto const set = addSet( "default" );
   auto const vrf = allVrf->vrf( "default" );
   ASSERT_TRUE( vrf );
   EXPECT_EQ( vrf->nsName(), Corvid::NamespaceName::defaultNamespace() );
   EXPECT_EQ( vrf->vrfL3Intf(), set );
   EXPECT_EQ( sm->vrfStatusLocalSms(), 0u );
   EXPECT_THAT( trace.texts(),
                ElementsAre( handleVrfL3Intf + ": vrf default", handleDefaultVrf + ": " ) );
}

TEST_F( AllVrfStatusLocalSmTest, TheDefaultVrfsRecordIsKeptForTheSameSet ) {
   start();
   addSet( "default" );
   auto const vrf = allVrf->vrf( "default" );
   trace.clear();
   sm->handleVrfL3Intf( "default" );
   EXPECT_EQ( allVrf->vrf( "default" ), vrf );
   EXPECT_THAT( trace.messages( handleDefaultVrf ), ElementsAre( "", "vrf already exists" ) );
   EXPECT_EQ( trace.lines().back().level, 1 );
}

TEST_F( AllVrfStatusLocalSmTest, TheDefaultVrfsRecordIsRecreatedForAnotherSet ) {
   start();
   addSet( "default" );
   auto const old = allVrf->vrf( "default" );
   sm->hasNotificationActiveIs( false );
   allVrf->vrfL3IntfDel( "default" );
   auto const set = addSet( "default" );
   sm->hasNotificationActiveIs( true );
   trace.clear();
   sm->handleDefaultVrf();
   EXPECT_NE( allVrf->vrf( "default" ), old );
   EXPECT_EQ( allVrf->vrf( "default" )->vrfL3Intf(), set );
   EXPECT_THAT( trace.texts(),
                ElementsAre( handleDefaultVrf + ": ", handleDefaultVrf + ": removing stale vrf" ) );
}

TEST_F( AllVrfStatusLocalSmTest, TheDefaultVrfsRecordIsDeletedSilentlyWithTheSet ) {
   start();
   addSet( "default" );
   trace.clear();
   allVrf->vrfL3IntfDel( "default" );
   EXPECT_FALSE( allVrf->vrfHas( "default" ) );
   EXPECT_THAT( trace.texts(),
                ElementsAre( handleVrfL3Intf + ": vrf default", handleDefaultVrf + ": " ) );
}

TEST_F( AllVrfStatusLocalSmTest, AStatusNamedDefaultHasAChildLikeAnyOther ) {
   start();
   addStatus( "default", "ns-x", Ip::VrfState::initializing );
   addSet( "default" );
   EXPECT_TRUE( allVrf->vrfHas( "default" ) );
   sm->handleVrf( "default" ); // the child's state takes the record away
   EXPECT_TRUE( sm->vrfStatusLocalSm( "default" ) );
   EXPECT_FALSE( allVrf->vrfHas( "default" ) );
}

// --- Failures ------------------------------------------------------------------------------------

TEST_F( AllVrfStatusLocalSmTest, AnotherNamespaceInPlaceIsAFaultOfTheHandler ) {
   start();
   auto const set = addSet( "red" );
   auto const status = addStatus( "red", "ns-red", Ip::VrfState::initializing );
   auto const record = allVrf->vrfIs( "red", "ns-old", Quill::Ptr< VrfL3Intf const >( set ) );
   status->stateIs( Ip::VrfState::active );
   EXPECT_EQ( allVrf->vrf( "red" ), record );
   EXPECT_THAT( faults.messages(),
                ElementsAre( "fault in VrfStatusLocalSm on state: " + reinstantiating +
                             "_nsName has a different value of ns-red than the current value of "
                             "ns-old" ) );
}

TEST_F( AllVrfStatusLocalSmTest, AForeignRecordFailsTheConstructionOfTheChild ) {
   start();
   auto const otherSet = Quill::make< VrfL3Intf >( "red" );
   auto const set = addSet( "red" );
   allVrf->vrfIs( "red", "ns-red", Quill::Ptr< VrfL3Intf const >( otherSet ) );
   addStatus( "red", "ns-red" );
   EXPECT_FALSE( sm->vrfStatusLocalSm( "red" ) );
   EXPECT_EQ( allVrf->vrf( "red" )->vrfL3Intf(), otherSet );
   EXPECT_THAT( faults.messages(),
                ElementsAre( "fault in AllVrfStatusLocalSm on vrf red: " + reinstantiating +
                             "_vrfL3Intf has a different value of " + Quill::display( set ) +
                             " than the current value of " + Quill::display( otherSet ) ) );
}

TEST_F( AllVrfStatusLocalSmTest, AForeignRecordIsDeletedInAnyOtherState ) {
   start();
   auto const set = addSet( "red" );
   allVrf->vrfIs( "red", "ns-old", Quill::Ptr< VrfL3Intf const >( set ) );
   addStatus( "red", "ns-red", Ip::VrfState::deleting );
   EXPECT_FALSE( allVrf->vrfHas( "red" ) );
}

TEST_F( AllVrfStatusLocalSmTest, AForeignRecordIsDeletedWithTheChild ) {
   start();
   auto const set = addSet( "red" );
   addStatus( "red", "ns-red", Ip::VrfState::initializing );
   allVrf->vrfIs( "red", "ns-old", Quill::Ptr< VrfL3Intf const >( set ) );
   statuses->vrfDel( "red" );
   EXPECT_FALSE( allVrf->vrfHas( "red" ) );
}

TEST_F( AllVrfStatusLocalSmTest, TheSameValuesReturnTheSameChild ) {
   start();
   auto const set = addSet( "red" );
   auto const status = addStatus( "red", "ns-red" );
   auto const child = sm->vrfStatusLocalSm( "red" );
   EXPECT_EQ( sm->vrfStatusLocalSmIs( "red", status, set, allVrf ), child );
}

TEST_F( AllVrfStatusLocalSmTest, OtherValuesFailWithTheNameInUse ) {
   start();
   auto const set = addSet( "red" );
   auto const status = addStatus( "red", "ns-red" );
   auto const child = sm->vrfStatusLocalSm( "red" );
   auto const textOf = [ & ]( Quill::Ptr< Ip::VrfStatusLocal const > otherStatus,
                              Quill::Ptr< VrfL3Intf > otherSet,
                              Quill::Ptr< AllVrf > otherVrf ) -> std::string {
      try {
         sm->vrfStatusLocalSmIs( "red", otherStatus, otherSet, otherVrf );
      } catch ( Quill::NameInUseException const & e ) {
         return e.what();
      }
      return "no failure";
   };
   EXPECT_EQ( textOf( nullptr, set, allVrf ),
              reinstantiating +
                 "_vrfStatusLocal has a different value of null than the current value of " +
                 Quill::display( status ) );
   EXPECT_EQ( textOf( status, nullptr, allVrf ),
              reinstantiating +
                 "_vrfL3Intf has a different value of null than the current value of " +
                 Quill::display( set ) );
   EXPECT_EQ( textOf( status, set, nullptr ),
              reinstantiating + "_allVrf has a different value of null than the current value of " +
                 Quill::display( allVrf ) );
   EXPECT_EQ( sm->vrfStatusLocalSm( "red" ), child );
   EXPECT_TRUE( allVrf->vrfHas( "red" ) );
}

// --- The end -------------------------------------------------------------------------------------

TEST_F( AllVrfStatusLocalSmTest, DestructionTakesChildrenAndRecordsButNotTheDefaults ) {
   start();
   addSet( "red" );
   addSet( "blue" );
   addSet( "default" );
   addStatus( "red", "ns-red" );
   addStatus( "blue", "ns-blue", Ip::VrfState::deleting );
   trace.clear();
   sm = nullptr;
   EXPECT_EQ( allVrf->vrfs(), 1u );
   EXPECT_TRUE( allVrf->vrfHas( "default" ) );
   EXPECT_THAT( trace.texts(),
                ElementsAre( "void Valen::AllVrfStatusLocalSm::handleDestruction(): ",
                             handleChildDestruction + ": vrf red",
                             handleChildDestruction + ": vrf blue" ) );
}

TEST_F( AllVrfStatusLocalSmTest, DestructionTakesTheDefaultsRecordWhereAChildHasIt ) {
   start();
   addSet( "default" );
   addStatus( "default", "default" ); // the same namespace: the child finds its record
   ASSERT_TRUE( sm->vrfStatusLocalSm( "default" ) );
   sm = nullptr;
   EXPECT_EQ( allVrf->vrfs(), 0u );
}

} // namespace
} // namespace Valen
