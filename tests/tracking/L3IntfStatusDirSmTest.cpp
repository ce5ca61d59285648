#include "tracking/L3IntfStatusDirSm.h"

#include "tests/support/LeakCheck.h"
#include "tests/support/OnChange.h"
#include "tests/support/TraceCapture.h"

#include <gmock/gmock.h>

namespace Valen {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

std::string const handleIntf = "void Valen::L3IntfStatusDirSm::handleIntf(Corvid::IntfId)";
std::string const handleVrf = "void Valen::L3IntfStatusSm::handleVrf()";
std::string const handleChildInitialized = "void Valen::L3IntfStatusSm::handleInitialized()";
std::string const handleChildDestruction = "void Valen::L3IntfStatusSm::handleDestruction()";

// The notifications of AllVrf::vrfL3Intf.
class SetWatcher final : public AllVrf::NotifieeConst {
 public:
   void onAttribute( Quill::AttrId attributeId, void const * key ) override {
      if ( attributeId == AllVrf::vrfL3IntfAttr::id ) {
         auto const & name = *static_cast< L3::VrfName const * >( key );
         told.push_back( ( notifier()->vrfL3IntfHas( name ) ? "+" : "-" ) + name.stdString() );
      }
   }
   std::vector< std::string > told;
};

class L3IntfStatusDirSmTest : public testing::Test, protected Valen::Test::LeakCheck {
 protected:
   Quill::Ptr< L3::Intf::Status > addStatus( char const * intfId, char const * vrf ) {
      auto const status = Quill::make< L3::Intf::Status >( intfId );
      status->vrfIs( vrf );
      statusDir->intfStatusAdd( status );
      return status;
   }
   Quill::Ptr< Intf > addIntf( char const * intfId ) {
      return allIntf->intfIs( intfId,
                              Quill::Ptr< IntfMessage const >( allIntf->intfMessageIs( intfId ) ) );
   }
   void start() {
      sm = l3IntfStatusDirSmFactory( statusDir, allVrf, allIntf );
      trace.clear();
   }
   // The interfaces in the set of a VRF; "none" if the set does not exist.
   std::vector< std::string > intfsIn( char const * vrf ) const {
      auto const set = allVrf->vrfL3Intf( vrf );
      if ( !set ) {
         return { "none" };
      }
      std::vector< std::string > ids;
      for ( auto const & intf : set->intf() ) {
         ids.push_back( intf->intfId().stdString() );
      }
      return ids;
   }

   Quill::Ptr< L3::Intf::StatusDir > const statusDir = Quill::make< L3::Intf::StatusDir >();
   Quill::Ptr< AllVrf > const allVrf = allVrfFactory();
   Quill::Ptr< AllIntf > const allIntf = allIntfFactory();
   Valen::Test::TraceCapture trace;
   Quill::Ptr< L3IntfStatusDirSm > sm;
};

TEST_F( L3IntfStatusDirSmTest, KeepsWhatItWasMadeFrom ) {
   start();
   EXPECT_EQ( sm->l3IntfStatusDir(), statusDir );
   EXPECT_EQ( sm->allVrf(), allVrf );
   EXPECT_EQ( sm->allIntf(), allIntf );
   EXPECT_EQ( sm->l3IntfStatusSms(), 0u );
   EXPECT_STREQ( sm->reactorName(), "L3IntfStatusDirSm" );
}

TEST_F( L3IntfStatusDirSmTest, ReplaysTheStatusesThatExist ) {
   auto const intf = addIntf( "Ethernet1" );
   addIntf( "Ethernet3" ); // without a status: not visited
   auto const status = addStatus( "Ethernet1", "red" );
   addStatus( "Ethernet2", "red" );
   sm = l3IntfStatusDirSmFactory( statusDir, allVrf, allIntf );
   EXPECT_THAT( trace.texts(),
                ElementsAre( "void Valen::L3IntfStatusDirSm::handleInitialized(): ",
                             "void Valen::L3IntfStatusDirSm::handleIntf(Corvid::IntfId): Ethernet1",
                             "void Valen::L3IntfStatusDirSm::handleIntf(Corvid::IntfId): adding "
                             "l3IntfStatusSm",
                             "void Valen::L3IntfStatusSm::handleInitialized(): Ethernet1, vrf red",
                             "void Valen::L3IntfStatusSm::handleVrf(): Ethernet1, vrf red",
                             "void Valen::L3IntfStatusDirSm::handleIntf(Corvid::IntfId): Ethernet2",
                             "void Valen::L3IntfStatusDirSm::handleIntf(Corvid::IntfId): intf not "
                             "present" ) );
   EXPECT_EQ( intf->l3IntfStatus(), status );
   EXPECT_THAT( intfsIn( "red" ), ElementsAre( "Ethernet1" ) );
}

TEST_F( L3IntfStatusDirSmTest, TracesUnderTheUnitsOddName ) {
   addIntf( "Ethernet1" );
   start();
   addStatus( "Ethernet1", "red" );
   statusDir->intfStatusDel( "Ethernet1" );
   ASSERT_FALSE( trace.lines().empty() );
   for ( auto const & line : trace.lines() ) {
      EXPECT_EQ( line.unit, "L3InfStatusDirSm" );
   }
   EXPECT_THAT( trace.texts( 1 ),
                ElementsAre( handleIntf + ": adding l3IntfStatusSm",
                             handleIntf + ": removing l3IntfStatusSm",
                             handleChildDestruction + ": removing vrfL3Intf for red" ) );
}

TEST_F( L3IntfStatusDirSmTest, StatusAndInterfaceMakeAChildInEitherOrder ) {
   start();
   addStatus( "Ethernet1", "red" );
   EXPECT_FALSE( sm->l3IntfStatusSm( "Ethernet1" ) );
   auto const first = addIntf( "Ethernet1" );
   auto const second = addIntf( "Ethernet2" );
   auto const status = addStatus( "Ethernet2", "red" );
   ASSERT_TRUE( sm->l3IntfStatusSm( "Ethernet1" ) );
   EXPECT_EQ( sm->l3IntfStatusSm( "Ethernet1" )->intf(), first );
   auto const child = sm->l3IntfStatusSm( "Ethernet2" );
   EXPECT_EQ( child->intf(), second );
   EXPECT_EQ( child->intfId(), "Ethernet2" );
   EXPECT_EQ( child->l3IntfStatus(), status );
   EXPECT_EQ( child->allVrf(), allVrf );
   EXPECT_EQ( child->vrfL3Intf(), allVrf->vrfL3Intf( "red" ) );
   EXPECT_TRUE( child->initialized() );
   EXPECT_STREQ( child->reactorName(), "L3IntfStatusSm" );
   EXPECT_THAT( intfsIn( "red" ), UnorderedElementsAre( "Ethernet1", "Ethernet2" ) );
}

TEST_F( L3IntfStatusDirSmTest, MovingTheOnlyMemberRemovesTheOldSet ) {
   start();
   addIntf( "Ethernet1" );
   auto const status = addStatus( "Ethernet1", "red" );
   trace.clear();
   status->vrfIs( "blue" );
   EXPECT_THAT( intfsIn( "red" ), ElementsAre( "none" ) );
   EXPECT_THAT( intfsIn( "blue" ), ElementsAre( "Ethernet1" ) );
   EXPECT_EQ( allVrf->vrfL3Intfs(), 1u );
   EXPECT_THAT( trace.texts(), ElementsAre( handleVrf + ": Ethernet1, vrf blue",
                                            handleVrf + ": removing vrfL3Intf for red" ) );
}

TEST_F( L3IntfStatusDirSmTest, MovingIntoAnExistingSetJoinsIt ) {
   start();
   addIntf( "Ethernet1" );
   addIntf( "Ethernet2" );
   auto const status = addStatus( "Ethernet1", "red" );
   addStatus( "Ethernet2", "blue" );
   auto const blue = allVrf->vrfL3Intf( "blue" );
   status->vrfIs( "blue" );
   EXPECT_EQ( allVrf->vrfL3Intf( "blue" ), blue );
   EXPECT_THAT( intfsIn( "blue" ), UnorderedElementsAre( "Ethernet1", "Ethernet2" ) );
   EXPECT_THAT( intfsIn( "red" ), ElementsAre( "none" ) );
}

TEST_F( L3IntfStatusDirSmTest, AMoveLetsGoOfTheOldSetLast ) {
   start();
   addIntf( "Ethernet1" );
   auto const status = addStatus( "Ethernet1", "red" );
   auto const * const child = sm->l3IntfStatusSm( "Ethernet1" ).get();
   auto const red = allVrf->vrfL3Intf( "red" );
   std::vector< Quill::Ptr< VrfL3Intf > > seen;
   auto const see = [ & ] { seen.push_back( child->vrfL3Intf() ); };
   auto const left = Valen::Test::onChange< VrfL3Intf::intfAttr >( red, see );
   auto const removedOrMade = Valen::Test::onChange< AllVrf::vrfL3IntfAttr >( allVrf, see );
   status->vrfIs( "blue" );
   // The interface leaves red; red is removed; blue is made.
   EXPECT_THAT( seen, ElementsAre( red, red, nullptr ) );
   EXPECT_EQ( child->vrfL3Intf(), allVrf->vrfL3Intf( "blue" ) );
}

TEST_F( L3IntfStatusDirSmTest, TheEndOfAChildLetsGoOfTheSetLast ) {
   start();
   addIntf( "Ethernet1" );
   addStatus( "Ethernet1", "red" );
   auto const * const child = sm->l3IntfStatusSm( "Ethernet1" ).get();
   auto const red = allVrf->vrfL3Intf( "red" );
   std::vector< Quill::Ptr< VrfL3Intf > > seen;
   auto const see = [ & ] { seen.push_back( child->vrfL3Intf() ); };
   auto const left = Valen::Test::onChange< VrfL3Intf::intfAttr >( red, see );
   auto const removed = Valen::Test::onChange< AllVrf::vrfL3IntfAttr >( allVrf, see );
   statusDir->intfStatusDel( "Ethernet1" );
   EXPECT_THAT( seen, ElementsAre( red, red ) );
}

// A watcher moves the interface again while it leaves its set. The last VRF is the one that counts.
TEST_F( L3IntfStatusDirSmTest, AMoveDuringAMoveEndsInTheLastVrf ) {
   for ( std::string const last : { "green", "red" } ) {
      start();
      auto const intf = addIntf( "Ethernet1" );
      auto const status = addStatus( "Ethernet1", "red" );
      bool moved = false;
      auto const leaving =
         Valen::Test::onChange< VrfL3Intf::intfAttr >( allVrf->vrfL3Intf( "red" ), [ & ] {
            if ( !std::exchange( moved, true ) ) {
               status->vrfIs( last.c_str() );
            }
         } );
      SetWatcher watcher;
      watcher.notifierIs( Quill::Ptr< AllVrf const >( allVrf ) );
      status->vrfIs( "blue" );
      EXPECT_EQ( allVrf->vrfL3Intfs(), 1u );
      EXPECT_THAT( intfsIn( last.c_str() ), ElementsAre( "Ethernet1" ) );
      EXPECT_EQ( sm->l3IntfStatusSm( "Ethernet1" )->vrfL3Intf(),
                 allVrf->vrfL3Intf( last.c_str() ) );
      EXPECT_THAT( watcher.told, ElementsAre( "-red", "+" + last ) );
      statusDir->intfStatusDel( "Ethernet1" );
   }
}

// The same while its new set is made.
TEST_F( L3IntfStatusDirSmTest, AMoveWhileTheNewSetIsMadeEndsInTheLastVrf ) {
   for ( std::string const last : { "green", "blue" } ) {
      start();
      addIntf( "Ethernet1" );
      auto const status = addStatus( "Ethernet1", "red" );
      bool moved = false;
      auto const made = Valen::Test::onChange< AllVrf::vrfL3IntfAttr >( allVrf, [ & ] {
         if ( allVrf->vrfL3IntfHas( "blue" ) && !std::exchange( moved, true ) ) {
            status->vrfIs( "green" );
            status->vrfIs( last.c_str() );
         }
      } );
      status->vrfIs( "blue" );
      EXPECT_EQ( allVrf->vrfL3Intfs(), 1u );
      EXPECT_THAT( intfsIn( last.c_str() ), ElementsAre( "Ethernet1" ) );
      EXPECT_EQ( sm->l3IntfStatusSm( "Ethernet1" )->vrfL3Intf(),
                 allVrf->vrfL3Intf( last.c_str() ) );
      statusDir->intfStatusDel( "Ethernet1" );
      EXPECT_EQ( allVrf->vrfL3Intfs(), 0u );
   }
}

TEST_F( L3IntfStatusDirSmTest, ANotificationWithoutAChangeRecreatesTheSet ) {
   start();
   addIntf( "Ethernet1" );
   addStatus( "Ethernet1", "red" );
   auto const old = allVrf->vrfL3Intf( "red" );
   SetWatcher watcher;
   watcher.notifierIs( Quill::Ptr< AllVrf const >( allVrf ) );
   trace.clear();
   sm->l3IntfStatusSm( "Ethernet1" )->handleVrf();
   EXPECT_NE( allVrf->vrfL3Intf( "red" ), old );
   EXPECT_THAT( intfsIn( "red" ), ElementsAre( "Ethernet1" ) );
   EXPECT_THAT( watcher.told, ElementsAre( "-red", "+red" ) );
   EXPECT_THAT( trace.texts(), ElementsAre( handleVrf + ": Ethernet1, vrf red",
                                            handleVrf + ": removing vrfL3Intf for red" ) );
}

TEST_F( L3IntfStatusDirSmTest, ANotificationWithoutChangeKeepsASharedSet ) {
   start();
   addIntf( "Ethernet1" );
   addIntf( "Ethernet2" );
   addStatus( "Ethernet1", "red" );
   addStatus( "Ethernet2", "red" );
   auto const old = allVrf->vrfL3Intf( "red" );
   trace.clear();
   sm->l3IntfStatusSm( "Ethernet1" )->handleVrf();
   EXPECT_EQ( allVrf->vrfL3Intf( "red" ), old );
   EXPECT_THAT( intfsIn( "red" ), UnorderedElementsAre( "Ethernet1", "Ethernet2" ) );
   EXPECT_THAT( trace.texts(), ElementsAre( handleVrf + ": Ethernet1, vrf red" ) );
}

TEST_F( L3IntfStatusDirSmTest, TheSetSurvivesWithTheOtherInterface ) {
   start();
   auto const intf = addIntf( "Ethernet1" );
   addIntf( "Ethernet2" );
   addStatus( "Ethernet1", "red" );
   addStatus( "Ethernet2", "red" );
   auto const set = allVrf->vrfL3Intf( "red" );
   trace.clear();
   statusDir->intfStatusDel( "Ethernet1" );
   EXPECT_EQ( allVrf->vrfL3Intf( "red" ), set );
   EXPECT_THAT( intfsIn( "red" ), ElementsAre( "Ethernet2" ) );
   EXPECT_FALSE( intf->l3IntfStatus() );
   EXPECT_THAT( trace.texts(),
                ElementsAre( handleIntf + ": Ethernet1", handleIntf + ": removing l3IntfStatusSm",
                             handleChildDestruction + ": Ethernet1, vrf red" ) );
}

TEST_F( L3IntfStatusDirSmTest, AnEmptyVrfNameIsAVrfLikeAnyOther ) {
   start();
   addIntf( "Ethernet1" );
   auto const status = addStatus( "Ethernet1", "" );
   EXPECT_THAT( intfsIn( "" ), ElementsAre( "Ethernet1" ) );
   trace.clear();
   status->vrfIs( "default" );
   EXPECT_THAT( intfsIn( "default" ), ElementsAre( "Ethernet1" ) );
   EXPECT_THAT( intfsIn( "" ), ElementsAre( "none" ) );
   EXPECT_THAT( trace.texts(), ElementsAre( handleVrf + ": Ethernet1, vrf default",
                                            handleVrf + ": removing vrfL3Intf for " ) );
}

TEST_F( L3IntfStatusDirSmTest, RemovalIsTracedWithoutAChildToo ) {
   start();
   addStatus( "Ethernet1", "red" );
   trace.clear();
   statusDir->intfStatusDel( "Ethernet1" );
   EXPECT_THAT( trace.texts(), ElementsAre( handleIntf + ": Ethernet1",
                                            handleIntf + ": removing l3IntfStatusSm" ) );
}

TEST_F( L3IntfStatusDirSmTest, AnInterfaceThatLeavesTheModelKeepsItsChild ) {
   start();
   auto const intf = addIntf( "Ethernet1" );
   auto const status = addStatus( "Ethernet1", "red" );
   auto const child = sm->l3IntfStatusSm( "Ethernet1" );
   trace.clear();
   allIntf->intfDel( "Ethernet1" );
   EXPECT_EQ( sm->l3IntfStatusSm( "Ethernet1" ), child );
   EXPECT_EQ( intf->l3IntfStatus(), status );
   EXPECT_THAT( intfsIn( "red" ), ElementsAre( "Ethernet1" ) );
   EXPECT_THAT( trace.texts(),
                ElementsAre( handleIntf + ": Ethernet1", handleIntf + ": intf not present" ) );
}

TEST_F( L3IntfStatusDirSmTest, ARepeatedNotificationKeepsTheChild ) {
   start();
   addIntf( "Ethernet1" );
   addStatus( "Ethernet1", "red" );
   auto const child = sm->l3IntfStatusSm( "Ethernet1" );
   trace.clear();
   sm->handleIntf( "Ethernet1" );
   EXPECT_EQ( sm->l3IntfStatusSm( "Ethernet1" ), child );
   EXPECT_THAT( trace.texts(),
                ElementsAre( handleIntf + ": Ethernet1", handleIntf + ": adding l3IntfStatusSm",
                             handleIntf + ": l3IntfStatusSm already exists" ) );
}

TEST_F( L3IntfStatusDirSmTest, AnotherStatusReplacesTheChildOldOneFirst ) {
   start();
   auto const intf = addIntf( "Ethernet1" );
   addStatus( "Ethernet1", "red" );
   // A replacement is one change if the removal was not notified.
   sm->hasNotificationActiveIs( false );
   statusDir->intfStatusDel( "Ethernet1" );
   auto const other = addStatus( "Ethernet1", "blue" );
   sm->hasNotificationActiveIs( true );
   trace.clear();
   sm->handleIntf( "Ethernet1" );
   EXPECT_EQ( sm->l3IntfStatusSm( "Ethernet1" )->l3IntfStatus(), other );
   EXPECT_EQ( intf->l3IntfStatus(), other );
   EXPECT_EQ( allVrf->vrfL3Intfs(), 1u );
   EXPECT_THAT( intfsIn( "blue" ), ElementsAre( "Ethernet1" ) );
   EXPECT_THAT( trace.texts(),
                ElementsAre( handleIntf + ": Ethernet1", handleIntf + ": adding l3IntfStatusSm",
                             handleIntf + ": removing stale l3IntfStatusSm",
                             handleChildDestruction + ": Ethernet1, vrf red",
                             handleChildDestruction + ": removing vrfL3Intf for red",
                             handleChildInitialized + ": Ethernet1, vrf blue",
                             handleVrf + ": Ethernet1, vrf blue" ) );
}

TEST_F( L3IntfStatusDirSmTest, BeforeInitializationAChildIgnoresItsVrf ) {
   start();
   addIntf( "Ethernet1" );
   auto const status = addStatus( "Ethernet1", "red" );
   sm->l3IntfStatusSm( "Ethernet1" )->initializedIs( false );
   trace.clear();
   status->vrfIs( "blue" );
   EXPECT_THAT( intfsIn( "red" ), ElementsAre( "Ethernet1" ) );
   EXPECT_THAT( trace.texts(), ElementsAre( handleVrf + ": Ethernet1, vrf blue",
                                            handleVrf + ": not initialized" ) );
   EXPECT_EQ( trace.lines().back().level, 1 );
}

TEST_F( L3IntfStatusDirSmTest, AChildWithoutASetLeavesNone ) {
   start();
   auto const intf = addIntf( "Ethernet1" );
   addStatus( "Ethernet1", "red" );
   sm->l3IntfStatusSm( "Ethernet1" )->vrfL3IntfIs( nullptr );
   trace.clear();
   statusDir->intfStatusDel( "Ethernet1" );
   EXPECT_FALSE( intf->l3IntfStatus() );
   EXPECT_THAT( trace.messages( handleChildDestruction ), ElementsAre( "Ethernet1, vrf red" ) );
   allVrf->vrfL3Intf( "red" )->intfDelAll();
}

TEST_F( L3IntfStatusDirSmTest, EveryDecisionIsLevelOneAndEveryEntryLevelZero ) {
   start();
   auto status = addStatus( "Ethernet1", "red" );
   addIntf( "Ethernet1" );
   sm->handleIntf( "Ethernet1" );
   status->vrfIs( "blue" );
   sm->hasNotificationActiveIs( false );
   statusDir->intfStatusDel( "Ethernet1" );
   status = addStatus( "Ethernet1", "red" );
   sm->hasNotificationActiveIs( true );
   sm->handleIntf( "Ethernet1" );
   sm->l3IntfStatusSm( "Ethernet1" )->initializedIs( false );
   status->vrfIs( "blue" );
   statusDir->intfStatusDel( "Ethernet1" );
   EXPECT_THAT(
      trace.texts( 1 ),
      ElementsAre(
         handleIntf + ": intf not present", handleIntf + ": adding l3IntfStatusSm",
         handleIntf + ": adding l3IntfStatusSm", handleIntf + ": l3IntfStatusSm already exists",
         handleVrf + ": removing vrfL3Intf for red", handleIntf + ": adding l3IntfStatusSm",
         handleIntf + ": removing stale l3IntfStatusSm",
         handleChildDestruction + ": removing vrfL3Intf for blue", handleVrf + ": not initialized",
         handleIntf + ": removing l3IntfStatusSm",
         handleChildDestruction + ": removing vrfL3Intf for red" ) );
   EXPECT_EQ( trace.texts( 0 ).size() + trace.texts( 1 ).size(), trace.texts().size() );
}

TEST_F( L3IntfStatusDirSmTest, TheSameValuesReturnTheSameChild ) {
   start();
   auto const intf = addIntf( "Ethernet1" );
   auto const status = addStatus( "Ethernet1", "red" );
   auto const child = sm->l3IntfStatusSm( "Ethernet1" );
   EXPECT_EQ( sm->l3IntfStatusSmIs( "Ethernet1", intf, status, allVrf ), child );
   EXPECT_EQ( sm->l3IntfStatusSms(), 1u );
}

TEST_F( L3IntfStatusDirSmTest, OtherValuesFailWithTheNameInUse ) {
   start();
   auto const intf = addIntf( "Ethernet1" );
   auto const status = addStatus( "Ethernet1", "red" );
   auto const child = sm->l3IntfStatusSm( "Ethernet1" );
   auto const textOf = [ & ]( Quill::Ptr< Intf > otherIntf,
                              Quill::Ptr< L3::Intf::Status const > otherStatus,
                              Quill::Ptr< AllVrf > otherVrf ) -> std::string {
      try {
         sm->l3IntfStatusSmIs( "Ethernet1", otherIntf, otherStatus, otherVrf );
      } catch ( Quill::NameInUseException const & e ) {
         return e.what();
      }
      return "no failure";
   };
   std::string const start = "Reinstantiating the pointer interface where constructor parameter "
                             "attribute ";
   auto const other = addIntf( "Ethernet2" );
   EXPECT_EQ( textOf( other, status, allVrf ),
              start + "_intf has a different value of " + Quill::display( other ) +
                 " than the current value of " + Quill::display( intf ) );
   EXPECT_EQ( textOf( intf, nullptr, allVrf ),
              start + "_l3IntfStatus has a different value of null than the current value of " +
                 Quill::display( status ) );
   EXPECT_EQ( textOf( intf, status, nullptr ),
              start + "_allVrf has a different value of null than the current value of " +
                 Quill::display( allVrf ) );
   EXPECT_EQ( sm->l3IntfStatusSm( "Ethernet1" ), child );
}

TEST_F( L3IntfStatusDirSmTest, RemovalOfAnUnknownChildHasNoEffect ) {
   start();
   sm->l3IntfStatusSmDel( "Ethernet9" );
   EXPECT_THAT( trace.texts(), IsEmpty() );
}

TEST_F( L3IntfStatusDirSmTest, DestructionTakesEveryChildAlong ) {
   start();
   auto const first = addIntf( "Ethernet1" );
   auto const second = addIntf( "Ethernet2" );
   addStatus( "Ethernet1", "red" );
   addStatus( "Ethernet2", "red" );
   trace.clear();
   sm = nullptr;
   EXPECT_FALSE( first->l3IntfStatus() );
   EXPECT_FALSE( second->l3IntfStatus() );
   EXPECT_EQ( allVrf->vrfL3Intfs(), 0u );
   EXPECT_EQ( trace.texts().front(), "void Valen::L3IntfStatusDirSm::handleDestruction(): " );
   EXPECT_THAT(
      trace.messages( handleChildDestruction ),
      ElementsAre( "Ethernet1, vrf red", "Ethernet2, vrf red", "removing vrfL3Intf for red" ) );
}

} // namespace
} // namespace Valen
