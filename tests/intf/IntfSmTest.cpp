#include "intf/IntfSm.h"

#include "intf/IntfIoSm.h"
#include "tests/intf/IntfTest.h"

namespace Valen {
namespace {

using namespace std::chrono_literals;
using Test::assertion;
using Test::onChange;
using Test::Texts;
using Test::TraceToStderr;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class IntfSmTest : public Test::IntfTest {
 protected:
   void create() {
      sm = IntfSm::IntfSmIs( "Ethernet1", intf, rawTxPam, clock.scheduler(), configDir, statusDir );
   }
   // A record with a supporting configuration and a kernel device.
   void makeReady() {
      intf->intfConfigIs( intfConfig );
      deviceIs( "et1", 7 );
   }
   void createActive() {
      makeReady();
      create();
   }

   bool hasEntry() const { return statusDir->intfStatusHas( "Ethernet1" ); }
   // Entry, link and I/O reactor exist together or not at all.
   bool isActive() const {
      EXPECT_EQ( hasEntry(), sm->intfIoSm() != nullptr );
      EXPECT_EQ( statusDir->intfStatus( "Ethernet1" ), intf->intfStatus() );
      return hasEntry();
   }

   static std::string line( std::string const & function, std::string const & text ) {
      return "void Valen::IntfSm::" + function + "(): " + text;
   }
   // The entry trace of a handler.
   std::string state( std::string const & function ) const {
      return line( function, "Ethernet1, intfConfig " + Quill::display( intf->intfConfig() ) +
                                ", device " + Quill::display( intf->device() ) );
   }

   Quill::Ptr< IntfSm > sm;
};

using IntfSmDeathTest = IntfSmTest;

std::string const unmet = "have not met all requirements to create intfStatus in statusDir";

// --- Creation ------------------------------------------------------------------------------------

TEST_F( IntfSmTest, AnInterfaceWithoutConfigurationIsIdle ) {
   create();
   EXPECT_TRUE( sm->initialized() );
   EXPECT_FALSE( isActive() );
   EXPECT_THAT( trace.texts(), ElementsAre( line( "handleInitialized", "Ethernet1" ),
                                            line( "maybeCreateIntfStatus",
                                                  "Ethernet1, intfConfig null, device no device" ),
                                            line( "maybeCreateIntfStatus", unmet ) ) );
}

TEST_F( IntfSmTest, EveryLineIsTheUnitsAndEntriesAreLevelZero ) {
   create();
   for ( auto const & traced : trace.lines() ) {
      EXPECT_EQ( traced.unit, "IntfSm" );
   }
   EXPECT_EQ( trace.texts( 0 ).size(), 2u );
   EXPECT_THAT( trace.texts( 1 ), ElementsAre( line( "maybeCreateIntfStatus", unmet ) ) );
}

TEST_F( IntfSmTest, CreationKeepsWhatItWasGiven ) {
   sm = intfSmFactory( "Ethernet1", intf, rawTxPam, clock.scheduler(), configDir, statusDir );
   EXPECT_EQ( sm->intfId(), Corvid::IntfId( "Ethernet1" ) );
   EXPECT_EQ( sm->intf(), intf );
   EXPECT_EQ( sm->rawTxPam(), rawTxPam );
   EXPECT_EQ( sm->taskScheduler(), clock.scheduler() );
   EXPECT_EQ( sm->configDir(), configDir );
   EXPECT_EQ( sm->statusDir(), statusDir );
   EXPECT_STREQ( sm->reactorName(), "IntfSm" );
}

TEST_F( IntfSmTest, AReadyInterfaceIsActiveFromTheStart ) {
   createActive();
   ASSERT_TRUE( isActive() );
   EXPECT_TRUE( intf->intfStatus()->shouldDelay() );
   EXPECT_EQ( sm->intfIoSm()->intfConfig(), intfConfig );
   EXPECT_EQ( sm->intfIoSm()->rawTxPam(), rawTxPam );
   EXPECT_EQ( sm->intfIoSm()->configDir(), configDir );
   EXPECT_EQ( sm->intfIoSm()->taskScheduler(), clock.scheduler() );
}

TEST_F( IntfSmDeathTest, EveryPreconditionEndsTheProcessWithItsText ) {
   auto const make = [ & ]( Quill::Ptr< Intf > const & record ) {
      intfSmFactory( "Ethernet1", record, rawTxPam, clock.scheduler(), configDir, statusDir );
   };
   auto const bare = Quill::make< Intf >( "Ethernet1", nullptr );
   auto const stray = statusDir->intfStatusIs( "Ethernet1" );
   intf->intfStatusIs( stray );
   configDir->globalConfigIs( nullptr );
   EXPECT_DEATH( make( bare ), assertion( "nullptr != configDir()->globalConfig()" ) );
   configDir->globalConfigIs( globalConfig );
   EXPECT_DEATH( make( bare ), assertion( "nullptr != intf()->intfMessage()" ) );
   auto const l3IntfStatus = intf->l3IntfStatus();
   intf->l3IntfStatusIs( nullptr );
   EXPECT_DEATH( make( intf ), assertion( "nullptr != intf()->l3IntfStatus()" ) );
   intf->l3IntfStatusIs( l3IntfStatus );
   EXPECT_DEATH( make( intf ), assertion( "nullptr == intf()->intfStatus()" ) );
   intf->intfStatusIs( nullptr );
   EXPECT_DEATH( make( intf ), assertion( "!statusDir()->intfStatusHas( intfId() )" ) );
}

// --- Becoming ready ------------------------------------------------------------------------------

TEST_F( IntfSmTest, TheDeviceThatWasMissingMakesTheInterfaceActive ) {
   intf->intfConfigIs( intfConfig );
   create();
   ASSERT_FALSE( isActive() );
   Texts order;
   auto const entry = onChange< Status::StatusDir::intfStatusAttr >( statusDir, [ & ] {
      EXPECT_EQ( intf->intfStatus(), nullptr );
      order.push_back( "entry" );
   } );
   auto const link = onChange< Intf::intfStatusAttr >( intf, [ & ] {
      EXPECT_EQ( sm->intfIoSm(), nullptr );
      EXPECT_FALSE( intf->intfStatus()->shouldDelay() );
      order.push_back( "link" );
   } );
   trace.clear();
   deviceIs( "et1", 7 );
   EXPECT_TRUE( isActive() );
   EXPECT_TRUE( intf->intfStatus()->shouldDelay() );
   EXPECT_THAT( order, ElementsAre( "entry", "link" ) );
   EXPECT_THAT( trace.texts( 0 ),
                ElementsAre( state( "handleDevice" ), state( "maybeCreateIntfStatus" ),
                             HasSubstr( "IntfIoSm::handleInitialized(): Ethernet1, " ) ) );
   EXPECT_TRUE( trace.texts()[ 0 ].ends_with( ", device et1 (index 7)" ) );
}

TEST_F( IntfSmTest, TheConfigurationThatWasMissingMakesTheInterfaceActive ) {
   deviceIs( "et1", 7 );
   create();
   ASSERT_FALSE( isActive() );
   trace.clear();
   intf->intfConfigIs( intfConfig );
   EXPECT_TRUE( isActive() );
   EXPECT_EQ( trace.texts().front(), state( "handleIntfConfig" ) );
   EXPECT_THAT( trace.texts( 1 ), IsEmpty() );
}

TEST_F( IntfSmTest, AnUnsupportingConfigurationNeverMakesAnEntry ) {
   intfConfig->adminShutdownDelaySupportedIs( false );
   create();
   trace.clear();
   intf->intfConfigIs( intfConfig );
   deviceIs( "et1", 7 );
   EXPECT_FALSE( isActive() );
   EXPECT_EQ( trace.count( line( "maybeCreateIntfStatus", unmet ) ), 2u );
}

TEST_F( IntfSmTest, NoOtherAttributeOfTheRecordCounts ) {
   createActive();
   trace.clear();
   intf->l3IntfStatusIs( Quill::make< L3::Intf::Status >( "Ethernet1" ) );
   EXPECT_THAT( trace.lines(), IsEmpty() );
}

TEST_F( IntfSmDeathTest, AStrayEntryEndsTheProcessWhenTheInterfaceBecomesReady ) {
   create();
   intf->intfConfigIs( intfConfig );
   auto const stray = statusDir->intfStatusIs( "Ethernet1" );
   EXPECT_DEATH( deviceIs( "et1", 7 ), assertion( "!statusDir()->intfStatusHas( intfId() )" ) );
   intf->intfStatusIs( stray );
   EXPECT_DEATH( deviceIs( "et1", 7 ), assertion( "nullptr == intf()->intfStatus()" ) );
}

// --- While active --------------------------------------------------------------------------------

TEST_F( IntfSmTest, AnotherDeviceKeepsTheRunningDelayAndIsUsedNext ) {
   queue( "agent", { "bye" } );
   createActive();
   shutdown();
   auto const running = sm->intfIoSm();
   trace.clear();
   deviceIs( "et1", 8 );
   EXPECT_EQ( sm->intfIoSm(), running );
   EXPECT_TRUE( intf->intfStatus()->delayed() );
   EXPECT_THAT( trace.texts(),
                ElementsAre( state( "handleDevice" ), state( "maybeCreateIntfStatus" ),
                             line( "maybeCreateIntfStatus", "intfIoSm already exists" ) ) );
   EXPECT_EQ( trace.lines().back().level, 1 );
   reenable();
   shutdown();
   EXPECT_EQ( pams.packets.back().ifIndex, 8u );
}

TEST_F( IntfSmDeathTest, TheRunningReactorInsistsOnItsEntryAndItsLink ) {
   createActive();
   statusDir->intfStatusDel( "Ethernet1" );
   EXPECT_DEATH( deviceIs( "et1", 8 ), assertion( "statusDir()->intfStatusHas( intfId() )" ) );
   intf->intfStatusIs( nullptr );
   EXPECT_DEATH( deviceIs( "et1", 8 ), assertion( "nullptr != intf()->intfStatus()" ) );
}

TEST_F( IntfSmDeathTest, AConfigurationThatTurnsUnsupportingInPlaceEndsTheProcess ) {
   createActive();
   intfConfig->adminShutdownDelaySupportedIs( false );
   EXPECT_DEATH( deviceIs( "et1", 8 ), assertion( "nullptr == intfIoSm()" ) );
}

TEST_F( IntfSmDeathTest, AConfigurationSwappedDirectlyEndsTheProcess ) {
   createActive();
   auto const swap = [ & ] {
      TraceToStderr const sink;
      intf->intfConfigIs( newIntfConfig( "Ethernet1" ) );
   };
   EXPECT_DEATH( swap(),
                 HasSubstr( line( "maybeCreateIntfStatus", "removing stale intfIoSm" ) + "\n" ) );
   EXPECT_DEATH( swap(), assertion( "nullptr == intf()->intfStatus()" ) );
}

TEST_F( IntfSmTest, AConfigurationSwappedThroughNullMakesAFreshPair ) {
   createActive();
   auto const oldEntry = intf->intfStatus();
   auto const other = newIntfConfig( "Ethernet1" );
   intf->intfConfigIs( nullptr );
   EXPECT_FALSE( isActive() );
   intf->intfConfigIs( other );
   EXPECT_TRUE( isActive() );
   EXPECT_NE( intf->intfStatus(), oldEntry );
   EXPECT_EQ( sm->intfIoSm()->intfConfig(), other );
}

// --- Ceasing to be ready -------------------------------------------------------------------------

TEST_F( IntfSmTest, TheDeviceGoneRemovesReactorThenLinkThenEntry ) {
   createActive();
   shutdown();
   auto const entry = intf->intfStatus();
   Texts order;
   auto const flags = onChange< Status::IntfStatus::shouldDelayAttr >( entry, [ & ] {
      EXPECT_FALSE( entry->delayed() );
      EXPECT_EQ( intf->intfStatus(), entry );
      order.push_back( "reactor" );
   } );
   auto const link = onChange< Intf::intfStatusAttr >( intf, [ & ] {
      EXPECT_FALSE( entry->shouldDelay() );
      EXPECT_TRUE( hasEntry() );
      order.push_back( "link" );
   } );
   auto const dir = onChange< Status::StatusDir::intfStatusAttr >(
      statusDir, [ & ] { order.push_back( "entry" ); } );
   trace.clear();
   intf->deviceIs( defaultDevice() );
   EXPECT_FALSE( isActive() );
   EXPECT_THAT( order, ElementsAre( "reactor", "link", "entry" ) );
   EXPECT_THAT( trace.texts(),
                ElementsAre( state( "handleDevice" ), state( "maybeDeleteIntfStatus" ),
                             "void Valen::IntfIoSm::handleDestruction(): Ethernet1" ) );
   EXPECT_EQ( clock.advance( 60s ), 0u );
}

TEST_F( IntfSmTest, TheConfigurationGoneRemovesTheEntry ) {
   createActive();
   trace.clear();
   intf->intfConfigIs( nullptr );
   EXPECT_FALSE( isActive() );
   EXPECT_THAT(
      trace.texts( 0 ),
      ElementsAre(
         line( "handleIntfConfig", "Ethernet1, intfConfig null, device et1 (index 7)" ),
         line( "maybeDeleteIntfStatus", "Ethernet1, intfConfig null, device et1 (index 7)" ),
         "void Valen::IntfIoSm::handleDestruction(): Ethernet1" ) );
   deviceIs( "et2", 9 );
   EXPECT_FALSE( isActive() );
   intf->intfConfigIs( intfConfig );
   EXPECT_TRUE( isActive() );
}

TEST_F( IntfSmTest, LosingADeviceWhileIdleChangesNothing ) {
   deviceIs( "et1", 7 );
   create();
   intf->deviceIs( defaultDevice() );
   EXPECT_FALSE( isActive() );
   EXPECT_TRUE( trace.has( state( "maybeDeleteIntfStatus" ) ) );
}

TEST_F( IntfSmDeathTest, AReactorOrAnEntryWithoutALinkEndsTheProcess ) {
   create();
   auto const stray = statusDir->intfStatusIs( "Ethernet1" );
   EXPECT_DEATH( sm->maybeDeleteIntfStatus(),
                 assertion( "!statusDir()->intfStatusHas( intfId() )" ) );
   statusDir->intfStatusDel( "Ethernet1" );
   makeReady();
   intf->intfStatusIs( nullptr );
   EXPECT_DEATH( sm->maybeDeleteIntfStatus(), assertion( "nullptr == intfIoSm()" ) );
}

// --- Before initialization -----------------------------------------------------------------------

TEST_F( IntfSmTest, ChangesBeforeInitializationAreIgnored ) {
   create();
   sm->initializedIs( false );
   trace.clear();
   makeReady();
   sm->maybeCreateIntfStatus();
   EXPECT_FALSE( isActive() );
   EXPECT_THAT( trace.texts( 1 ),
                ElementsAre( line( "handleIntfConfig", "not initialized" ),
                             line( "handleDevice", "not initialized" ),
                             line( "maybeCreateIntfStatus", "not initialized" ) ) );
   EXPECT_EQ( trace.texts( 0 ).size(), 3u );
}

TEST_F( IntfSmDeathTest, RemovingBeforeInitializationEndsTheProcess ) {
   create();
   sm->initializedIs( false );
   EXPECT_DEATH( sm->maybeDeleteIntfStatus(), assertion( "initialized()" ) );
}

// --- The watched record --------------------------------------------------------------------------

TEST_F( IntfSmTest, AnotherRecordRunsBothHandlersOnceConfigurationFirst ) {
   create();
   auto const other = Quill::make< Intf >( "Ethernet1", message );
   trace.clear();
   sm->intfIs( other );
   EXPECT_EQ( sm->intf(), other );
   std::string const nothing = "Ethernet1, intfConfig null, device no device";
   EXPECT_THAT( trace.texts(), ElementsAre( line( "handleIntfConfig", nothing ),
                                            line( "maybeDeleteIntfStatus", nothing ),
                                            line( "handleDevice", nothing ),
                                            line( "maybeDeleteIntfStatus", nothing ) ) );
   trace.clear();
   sm->intfIs( other );
   makeReady(); // the old record
   EXPECT_THAT( trace.lines(), IsEmpty() );
}

TEST_F( IntfSmTest, WithoutARecordNothingIsWatchedAndRemovalIsHarmless ) {
   create();
   trace.clear();
   sm->intfDel();
   makeReady();
   EXPECT_THAT( trace.lines(), IsEmpty() );
   sm->handleDevice();
   EXPECT_EQ( trace.texts().front(),
              line( "handleDevice", "Ethernet1, intfConfig null, device no device" ) );
   sm = nullptr;
   EXPECT_EQ( trace.texts().back(), line( "handleDestruction", "Ethernet1" ) );
}

TEST_F( IntfSmTest, TheSameIoReactorAgainIsKeptEvenFromInsideItsHandler ) {
   createActive();
   auto const watch = onChange< Status::IntfStatus::delayedAttr >(
      intf->intfStatus(), [ & ] { sm->intfIoSmIs( sm->intfIoSm() ); } );
   shutdown();
   EXPECT_TRUE( intf->intfStatus()->delayed() );
   reenable();
   EXPECT_EQ( sm->intfIoSm()->abortCount(), 1u );
}

TEST_F( IntfSmTest, InactiveNotificationsSilenceTheRecord ) {
   create();
   sm->hasNotificationActiveIs( false );
   makeReady();
   EXPECT_FALSE( isActive() );
}

// --- Removal -------------------------------------------------------------------------------------

TEST_F( IntfSmTest, RemovalWhileActiveLeavesNothing ) {
   createActive();
   shutdown();
   auto const entry = intf->intfStatus();
   auto const dir = onChange< Status::StatusDir::intfStatusAttr >( statusDir, [ & ] {
      EXPECT_FALSE( entry->shouldDelay() ) << "the reactor is removed before the entry";
      EXPECT_EQ( intf->intfStatus(), nullptr ) << "and so does the link";
   } );
   trace.clear();
   sm = nullptr;
   EXPECT_FALSE( hasEntry() );
   EXPECT_EQ( intf->intfStatus(), nullptr );
   EXPECT_FALSE( entry->delayed() );
   EXPECT_FALSE( entry->shouldDelay() );
   EXPECT_THAT( trace.texts(),
                ElementsAre( line( "handleDestruction", "Ethernet1" ),
                             "void Valen::IntfIoSm::handleDestruction(): Ethernet1" ) );
   intf->deviceIs( defaultDevice() );
   EXPECT_EQ( trace.lines().size(), 2u );
}

TEST_F( IntfSmTest, RemovalWhileIdleIsHarmless ) {
   create();
   sm = nullptr;
   EXPECT_FALSE( hasEntry() );
}

TEST_F( IntfSmTest, RemovalFromInsideItsOwnHandlerWaitsForTheHandler ) {
   intf->intfConfigIs( intfConfig );
   create();
   bool alive = false;
   auto const watch = onChange< Intf::intfStatusAttr >( intf, [ & ] {
      if ( sm ) {
         Quill::Reactor::retire( std::move( sm ) );
         alive = IntfSm::quillAllocation.live == 1;
      }
   } );
   deviceIs( "et1", 7 );
   EXPECT_TRUE( alive ) << "it stays alive until its handler returns";
   EXPECT_EQ( IntfSm::quillAllocation.live, 0u );
   EXPECT_EQ( IntfIoSm::quillAllocation.live, 0u );
   EXPECT_FALSE( hasEntry() );
   EXPECT_EQ( intf->intfStatus(), nullptr );
}

TEST_F( IntfSmTest, RemovalWhileItsRecordIsExchangedWaitsToo ) {
   create();
   auto const other = Quill::make< Intf >( "Ethernet1", message );
   other->intfConfigIs( intfConfig );
   other->deviceIs( { nullptr, "et1", 7 } );
   bool alive = false;
   auto const watch = onChange< Intf::intfStatusAttr >( other, [ & ] {
      if ( sm ) {
         Quill::Reactor::retire( std::move( sm ) );
         alive = IntfSm::quillAllocation.live == 1;
      }
   } );
   sm->intfIs( other );
   EXPECT_TRUE( alive );
   EXPECT_EQ( IntfSm::quillAllocation.live, 0u );
   EXPECT_FALSE( hasEntry() );
}

TEST_F( IntfSmTest, RemovalFromInsideTheIoReactorsHandlerLeavesNothing ) {
   createActive();
   auto const entry = intf->intfStatus();
   auto const watch = onChange< Status::IntfStatus::delayedAttr >( entry, [ & ] {
      if ( sm ) {
         Quill::Reactor::retire( std::move( sm ) );
         EXPECT_FALSE( hasEntry() );
         trace.clear();
         reenable(); // silenced: must not be notified
         EXPECT_THAT( trace.lines(), IsEmpty() );
      }
   } );
   shutdown();
   EXPECT_EQ( IntfIoSm::quillAllocation.live, 0u );
   EXPECT_FALSE( entry->delayed() );
   EXPECT_FALSE( entry->shouldDelay() );
   EXPECT_EQ( clock.scheduler()->armedTasks(), 0u );
}

TEST_F( IntfSmTest, LosingTheDeviceWhileSendingLeavesNothing ) {
   queue( "agent", { "1", "2" } );
   createActive();
   auto const entry = intf->intfStatus();
   pams.afterSend = [ & ] {
      if ( pams.sends == 1 ) {
         intf->deviceIs( defaultDevice() );
      }
   };
   shutdown();
   EXPECT_FALSE( isActive() );
   EXPECT_EQ( IntfIoSm::quillAllocation.live, 0u );
   EXPECT_FALSE( entry->delayed() );
   EXPECT_EQ( clock.scheduler()->armedTasks(), 0u );
}

// The device comes back at once, so that a successor has the record when the old reactor's sending ends.
TEST_F( IntfSmTest, RegainingTheDeviceWhileSendingLeavesTheSuccessorAlone ) {
   queue( "agent", { "1", "2" } );
   createActive();
   pams.afterSend = [ & ] {
      if ( pams.sends == 1 ) {
         intf->deviceIs( defaultDevice() );
         deviceIs( "et1", 8 );
      }
   };
   shutdown();
   ASSERT_TRUE( isActive() );
   EXPECT_EQ( IntfIoSm::quillAllocation.live, 1u );
   EXPECT_TRUE( intf->intfStatus()->shouldDelay() );
   EXPECT_FALSE( intf->intfStatus()->delayed() );
   EXPECT_EQ( clock.scheduler()->armedTasks(), 0u );
}

} // namespace
} // namespace Valen
