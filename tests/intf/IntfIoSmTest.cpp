#include "intf/IntfIoSm.h"

#include "tests/intf/IntfTest.h"

namespace Valen {
namespace {

using namespace std::chrono_literals;
using Test::assertion;
using Test::onChange;
using Test::Texts;
using Test::TraceToStderr;
using Burst = Test::RecordingRawTxPams::Burst;
using Packet = Test::RecordingRawTxPams::Packet;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class IntfIoSmTest : public Test::IntfTest {
 protected:
   explicit IntfIoSmTest( char const * name = "Ethernet1" ) : IntfTest( name ) {
      deviceIs( "et1", 7 );
      intf->intfConfigIs( intfConfig );
      intf->intfStatusIs( statusDir->intfStatusIs( name ) );
   }

   void create() {
      sm = IntfIoSm::IntfIoSmIs( intf, rawTxPam, clock.scheduler(), intfConfig, configDir );
   }
   void createAndShutdown() {
      create();
      shutdown();
   }
   Status::IntfStatus & status() { return *intf->intfStatus(); }
   bool timerArmed() const { return sm->shutdownDelayTask()->taskScheduled(); }

   static std::string signature( std::string const & function ) {
      return "void Valen::IntfIoSm::" + function + "()";
   }

   Quill::Ptr< IntfIoSm > sm;
};

class IntfIoSmSubInterfaceTest : public IntfIoSmTest {
 protected:
   IntfIoSmSubInterfaceTest() : IntfIoSmTest( "Ethernet3/1" ) {}
};

using IntfIoSmDeathTest = IntfIoSmTest;

// --- Creation ------------------------------------------------------------------------------------

TEST_F( IntfIoSmTest, CreationAnnouncesThatAShutdownHasToWait ) {
   create();
   EXPECT_TRUE( status().shouldDelay() );
   EXPECT_FALSE( status().delayed() );
   EXPECT_TRUE( sm->initialized() );
   EXPECT_FALSE( timerArmed() );
   EXPECT_THAT( pams.bursts, IsEmpty() );
}

TEST_F( IntfIoSmTest, CreationKeepsWhatItWasGiven ) {
   sm = intfIoSmFactory( intf, rawTxPam, clock.scheduler(), intfConfig, configDir );
   EXPECT_EQ( sm->intf(), intf );
   EXPECT_EQ( sm->rawTxPam(), rawTxPam );
   EXPECT_EQ( sm->taskScheduler(), clock.scheduler() );
   EXPECT_EQ( sm->intfConfig(), intfConfig );
   EXPECT_EQ( sm->configDir(), configDir );
   EXPECT_EQ( sm->intfId(), Corvid::IntfId( "Ethernet1" ) );
   EXPECT_EQ( sm->ifIndex(), 7u );
   EXPECT_STREQ( sm->reactorName(), "IntfIoSm" );
}

TEST_F( IntfIoSmTest, CreationClearsDelayedBeforeItRaisesShouldDelay ) {
   status().delayedIs( true );
   Texts order;
   auto const delayed = onChange< Status::IntfStatus::delayedAttr >(
      intf->intfStatus(), [ & ] { order.push_back( "delayed" ); } );
   auto const shouldDelay = onChange< Status::IntfStatus::shouldDelayAttr >(
      intf->intfStatus(), [ & ] { order.push_back( "shouldDelay" ); } );
   create();
   EXPECT_THAT( order, ElementsAre( "delayed", "shouldDelay" ) );
}

TEST_F( IntfIoSmTest, CreationTracesTheInterfaceAndItsFlags ) {
   intfConfig->adminShutdownDelayableIs( false );
   status().delayedIs( true );
   create();
   EXPECT_THAT( trace.texts(),
                ElementsAre( "void Valen::IntfIoSm::handleInitialized(): Ethernet1, "
                             "adminShutdownDelayable false, adminShutdownDelayed false, "
                             "delayed true" ) );
   EXPECT_EQ( trace.lines().front().unit, "IntfSm" );
   EXPECT_EQ( trace.lines().front().level, 0 );
}

TEST_F( IntfIoSmTest, AShutdownAlreadyInForceIsLeftToTheNextChange ) {
   queue( "agent", { "bye" } );
   shutdown();
   create();
   EXPECT_THAT( pams.packets, IsEmpty() );
   EXPECT_FALSE( status().delayed() );
}

TEST_F( IntfIoSmTest, TheTimerIsNamedAfterTheInterface ) {
   create();
   EXPECT_EQ( sm->shutdownDelayTask()->name(), Quill::String( "shutdownDelay::Ethernet1" ) );
   EXPECT_EQ( sm->shutdownDelayTask()->priority(), Gantry::TaskPriority{ 2 } );
   EXPECT_EQ( sm->shutdownDelayTask()->scheduler(), clock.scheduler() );
}

TEST_F( IntfIoSmSubInterfaceTest, TheTimerOfEthernet3Slash1IsNamedAfterIt ) {
   create();
   EXPECT_EQ( sm->shutdownDelayTask()->name(), Quill::String( "shutdownDelay::Ethernet3/1" ) );
}

TEST_F( IntfIoSmDeathTest, EveryPreconditionEndsTheProcessWithItsText ) {
   auto const bare = Quill::make< Intf >( "Ethernet1", nullptr );
   auto const none = Quill::Ptr< Interface::IntfConfig const >();
   auto const noIntf = Quill::Ptr< Intf >();
   auto const make = [ & ]( auto const & record, auto const & config ) {
      intfIoSmFactory( record, rawTxPam, clock.scheduler(), config, configDir );
   };
   EXPECT_DEATH( make( noIntf, intfConfig ), assertion( "nullptr != intfMessage()" ) );
   EXPECT_DEATH( make( bare, none ), assertion( "nullptr != intfMessage()" ) );
   EXPECT_DEATH( make( intf, none ), assertion( "nullptr != intfConfig()" ) );
   intf->intfStatusIs( nullptr );
   EXPECT_DEATH( make( intf, none ), assertion( "nullptr != intfConfig()" ) );
   intfConfig->adminShutdownDelaySupportedIs( false );
   EXPECT_DEATH( make( intf, intfConfig ), assertion( "nullptr != intfStatus()" ) );
   intf->intfStatusIs( statusDir->intfStatus( "Ethernet1" ) );
   intf->deviceIs( defaultDevice() );
   EXPECT_DEATH( make( intf, intfConfig ),
                 assertion( "intfConfig()->adminShutdownDelaySupported()" ) );
   intfConfig->adminShutdownDelaySupportedIs( true );
   EXPECT_DEATH( make( intf, intfConfig ), assertion( "defaultDevice() != intf()->device()" ) );
}

TEST_F( IntfIoSmDeathTest, TheEntryTraceOfABrokenReactorSaysWhatIsMissing ) {
   auto const make = [ & ] {
      TraceToStderr const sink;
      intfIoSmFactory( nullptr, rawTxPam, clock.scheduler(), nullptr, configDir );
   };
   EXPECT_DEATH( make(), ::testing::HasSubstr(
                            "void Valen::IntfIoSm::handleInitialized(): , adminShutdownDelayable "
                            "null, adminShutdownDelayed null, delayed null\n" ) );
}

// --- Shutdown ------------------------------------------------------------------------------------

TEST_F( IntfIoSmTest, AShutdownSendsTheQueueByteForByteInOrder ) {
   std::string const binary( "\x00\xff\n\x80 end\x00", 9 );
   queue( "agent", { "first", binary, "third" } );
   createAndShutdown();
   EXPECT_THAT( pams.packets,
                ElementsAre( Packet{ "ns-red", 7, "first" }, Packet{ "ns-red", 7, binary },
                             Packet{ "ns-red", 7, "third" } ) );
   EXPECT_EQ( sm->messagesOutputCount(), 3u );
   EXPECT_EQ( sm->sendPktFailedCount(), 0u );
}

TEST_F( IntfIoSmTest, OneBurstIsAnnouncedPerShutdownHoweverManyMessages ) {
   queue( "a", { "1", "2" } );
   queue( "b", { "3" } );
   createAndShutdown();
   EXPECT_THAT( pams.bursts, ElementsAre( Burst{ "ns-red", 7, "et1" } ) );
   reenable();
   deviceIs( "et9", 12 );
   shutdown();
   ASSERT_EQ( pams.bursts.size(), 2u );
   EXPECT_EQ( pams.bursts.back(), ( Burst{ "ns-red", 12, "et9" } ) );
   EXPECT_EQ( pams.packets.back().ifIndex, 12u );
}

// A watcher of the endpoint gives the interface another device while its messages are sent.
TEST_F( IntfIoSmTest, EachMessageGoesToTheDeviceOfItsMoment ) {
   queue( "a", { "1", "2" } );
   queue( "b", { "3", "4" } );
   create();
   pams.afterSend = [ & ] {
      if ( pams.sends == 1 ) {
         deviceIs( "et9", 12 );
      } else if ( pams.sends == 3 ) {
         deviceIs( "et10", 12 ); // another device has taken over the index
      }
   };
   shutdown();
   EXPECT_THAT( pams.packets,
                ElementsAre( Packet{ "ns-red", 7, "1" }, Packet{ "ns-red", 12, "2" },
                             Packet{ "ns-red", 12, "3" }, Packet{ "ns-red", 12, "4" } ) );
   // The endpoint compares index and name for each device, and again only when one of them changes.
   EXPECT_THAT( pams.bursts, ElementsAre( Burst{ "ns-red", 7, "et1" }, Burst{ "ns-red", 12, "et9" },
                                          Burst{ "ns-red", 12, "et10" } ) );
}

TEST_F( IntfIoSmTest, AShutdownWithoutMessagesIsDelayedAllTheSame ) {
   create();
   trace.clear();
   shutdown();
   EXPECT_THAT( pams.packets, IsEmpty() );
   EXPECT_THAT( pams.bursts, IsEmpty() );
   EXPECT_EQ( sm->messagesOutputCount(), 0u );
   EXPECT_TRUE( trace.has( signature( "handleAdminShutdownDelayed" ) +
                           ": 0 messages -> shutdown after delay" ) );
   EXPECT_TRUE( status().delayed() );
   EXPECT_TRUE( timerArmed() );
   clock.advance( 2s );
   EXPECT_FALSE( status().delayed() );
}

TEST_F( IntfIoSmTest, AShutdownTracesEachStep ) {
   queue( "agent", { "1", "2", "3" } );
   create();
   trace.clear();
   shutdown();
   std::string const state = "Ethernet1, adminShutdownDelayable true, adminShutdownDelayed true, "
                             "delayed false";
   EXPECT_THAT( trace.texts(),
                ElementsAre( "void Valen::IntfIoSm::handleAdminShutdownDelayed(): " + state,
                             "U32 Valen::IntfIoSm::outputMessages(): " + state,
                             "void Valen::IntfIoSm::handleAdminShutdownDelayed(): "
                             "3 messages -> shutdown after delay" ) );
   EXPECT_EQ( trace.texts( 0 ).size(), 2u );
   EXPECT_EQ( trace.texts( 1 ).size(), 1u );
}

TEST_F( IntfIoSmTest, MessagesGoOutBeforeDelayedIsRaisedAndTheTimerIsArmedAfter ) {
   queue( "agent", { "1", "2" } );
   create();
   std::size_t sentBefore = 0;
   bool armedBefore = true;
   auto const watch = onChange< Status::IntfStatus::delayedAttr >( intf->intfStatus(), [ & ] {
      sentBefore = pams.packets.size();
      armedBefore = timerArmed();
   } );
   shutdown();
   EXPECT_EQ( sentBefore, 2u );
   EXPECT_FALSE( armedBefore );
   EXPECT_TRUE( timerArmed() );
}

TEST_F( IntfIoSmTest, TheSecondOfFourSendsFailsAndTheRestIsSent ) {
   queue( "a", { "1", "2" } );
   queue( "b", { "3", "4" } );
   pams.failingSends = { 1 };
   createAndShutdown();
   EXPECT_THAT( sentTexts(), ElementsAre( "1", "3", "4" ) );
   EXPECT_EQ( sm->messagesOutputCount(), 3u );
   EXPECT_EQ( sm->sendPktFailedCount(), 1u );
   EXPECT_EQ( trace.count( "U32 Valen::IntfIoSm::outputMessages(): packet send failed" ), 1u );
   EXPECT_TRUE( trace.has( signature( "handleAdminShutdownDelayed" ) +
                           ": 3 messages -> shutdown after delay" ) );
   EXPECT_EQ( pams.sends, 4u ) << "a failed packet is not tried again";
   EXPECT_TRUE( status().delayed() );
   EXPECT_TRUE( timerArmed() );
}

TEST_F( IntfIoSmTest, OutputMessagesReturnsWhatTheEndpointAccepted ) {
   queue( "a", { "1", "2", "3" } );
   pams.failingSends = { 0, 2 };
   create();
   EXPECT_EQ( sm->outputMessages(), 1u );
   EXPECT_EQ( sm->outputMessages(), 3u );
   EXPECT_EQ( sm->messagesOutputCount(), 4u );
   EXPECT_EQ( sm->sendPktFailedCount(), 2u );
   EXPECT_FALSE( status().delayed() );
}

TEST_F( IntfIoSmTest, SendingKeepsNoPacket ) {
   queue( "a", { "1", "2", "3" } );
   createAndShutdown();
   Corvid::globalPktManager().trim();
   EXPECT_EQ( Corvid::Pkt::quillAllocation.live, 0u );
}

TEST_F( IntfIoSmDeathTest, AnEmptyQueueEndsTheProcess ) {
   queue( "agent", {} );
   create();
   EXPECT_DEATH( shutdown(), assertion( "i->messages() > 0" ) );
}

TEST_F( IntfIoSmDeathTest, AStatusWithoutShouldDelayEndsTheProcess ) {
   create();
   status().shouldDelayIs( false );
   EXPECT_DEATH( shutdown(), assertion( "intfStatus()->shouldDelay()" ) );
}

// --- The timer -----------------------------------------------------------------------------------

TEST_F( IntfIoSmTest, TheDelayEndsAfterTheConfiguredTimeAndNotBefore ) {
   createAndShutdown();
   clock.advance( 1999ms );
   EXPECT_TRUE( status().delayed() );
   trace.clear();
   EXPECT_EQ( clock.advance( 1ms ), 1u );
   EXPECT_FALSE( status().delayed() );
   EXPECT_TRUE( status().shouldDelay() );
   EXPECT_THAT( trace.texts(),
                ElementsAre( "void Valen::IntfIoSm::handleShutdownDelayTaskRun(): Ethernet1, "
                             "adminShutdownDelayable true, adminShutdownDelayed true, "
                             "delayed true" ) );
}

TEST_F( IntfIoSmTest, ADelayOfZeroStillGoesThroughTheTimer ) {
   globalConfig->shutdownDelayMsIs( 0 );
   createAndShutdown();
   EXPECT_EQ( sm->shutdownDelay(), 0.0 );
   EXPECT_TRUE( status().delayed() );
   EXPECT_EQ( clock.advance( 0s ), 1u );
   EXPECT_FALSE( status().delayed() );
}

TEST_F( IntfIoSmTest, TheLongestDelayIs65Point535Seconds ) {
   globalConfig->shutdownDelayMsIs( 65535 );
   createAndShutdown();
   EXPECT_DOUBLE_EQ( sm->shutdownDelay(), 65.535 );
   EXPECT_EQ( sm->shutdownDelayTask()->deadline() - clock.now(), 65535ms );
}

TEST_F( IntfIoSmTest, TheDelayIsReadWhenTheShutdownComes ) {
   create();
   globalConfig->shutdownDelayMsIs( 1 );
   shutdown();
   EXPECT_EQ( sm->shutdownDelayTask()->deadline() - clock.now(), 1ms );
}

TEST_F( IntfIoSmTest, WithoutGlobalConfigurationThereIsNoDelay ) {
   create();
   configDir->globalConfigIs( nullptr );
   EXPECT_EQ( sm->shutdownDelay(), 0.0 );
}

TEST_F( IntfIoSmTest, ATaskRunOutsideTheTimerIsIgnored ) {
   createAndShutdown();
   trace.clear();
   sm->handleShutdownDelayTaskRun();
   EXPECT_TRUE( status().delayed() );
   EXPECT_THAT( trace.lines(), IsEmpty() );
}

TEST_F( IntfIoSmTest, TheTimerEndsTheDelayEvenOfAReactorThatIsNotInitialized ) {
   createAndShutdown();
   sm->initializedIs( false );
   clock.advance( 2s );
   EXPECT_FALSE( status().delayed() );
   EXPECT_EQ( sm->abortCount() + sm->immediateEnableCount(), 0u );
}

TEST_F( IntfIoSmTest, AnotherTimerReplacesTheOldOne ) {
   createAndShutdown();
   sm->shutdownDelayTaskIs( clock.scheduler(), Gantry::TaskPriority{ 5 }, "other" );
   EXPECT_EQ( sm->shutdownDelayTask()->name(), Quill::String( "other" ) );
   EXPECT_EQ( clock.advance( 2s ), 0u ) << "the old timer was destroyed with its task";
   EXPECT_TRUE( status().delayed() );
   sm->shutdownDelayTaskDel();
   EXPECT_EQ( sm->shutdownDelayTask(), nullptr );
}

// --- Re-enabling ---------------------------------------------------------------------------------

TEST_F( IntfIoSmTest, ReenableDuringDelayAbortsAndIsCounted ) {
   createAndShutdown();
   trace.clear();
   reenable();
   EXPECT_FALSE( status().delayed() );
   EXPECT_TRUE( status().shouldDelay() );
   EXPECT_EQ( sm->abortCount(), 1u );
   EXPECT_EQ( sm->immediateEnableCount(), 0u );
   EXPECT_EQ( clock.advance( 60s ), 0u ) << "the old timer must stay quiet";
   EXPECT_THAT( trace.texts(),
                ElementsAre( "void Valen::IntfIoSm::handleAdminShutdownDelayed(): Ethernet1, "
                             "adminShutdownDelayable true, adminShutdownDelayed false, "
                             "delayed true",
                             "void Valen::IntfIoSm::handleAdminShutdownDelayed(): "
                             "abort shutdown delay" ) );
}

TEST_F( IntfIoSmTest, ReenableAfterTheDelayIsImmediate ) {
   createAndShutdown();
   clock.advance( 2s );
   trace.clear();
   reenable();
   EXPECT_EQ( sm->immediateEnableCount(), 1u );
   EXPECT_EQ( sm->abortCount(), 0u );
   EXPECT_FALSE( status().delayed() );
   EXPECT_TRUE( status().shouldDelay() );
   EXPECT_THAT( trace.texts( 1 ),
                ElementsAre( "void Valen::IntfIoSm::handleAdminShutdownDelayed(): "
                             "enable immediately" ) );
}

TEST_F( IntfIoSmTest, ShuttingDownAgainSendsAgainAndWaitsTheFullDelay ) {
   queue( "agent", { "bye" } );
   createAndShutdown();
   clock.advance( 1500ms );
   reenable();
   shutdown();
   EXPECT_THAT( sentTexts(), ElementsAre( "bye", "bye" ) );
   EXPECT_EQ( sm->messagesOutputCount(), 2u );
   clock.advance( 1999ms );
   EXPECT_TRUE( status().delayed() );
   clock.advance( 1ms );
   EXPECT_FALSE( status().delayed() );
   EXPECT_EQ( sm->abortCount(), 1u );
}

// --- What is watched -----------------------------------------------------------------------------

TEST_F( IntfIoSmTest, NoOtherAttributeOfTheConfigurationCounts ) {
   create();
   trace.clear();
   intfConfig->adminShutdownDelayableIs( false );
   intfConfig->adminShutdownDelaySupportedIs( false );
   EXPECT_THAT( trace.lines(), IsEmpty() );
}

TEST_F( IntfIoSmTest, AChangeBeforeInitializationIsIgnored ) {
   create();
   sm->initializedIs( false );
   trace.clear();
   shutdown();
   EXPECT_FALSE( status().delayed() );
   EXPECT_THAT( trace.texts(),
                ElementsAre( "void Valen::IntfIoSm::handleAdminShutdownDelayed(): Ethernet1, "
                             "adminShutdownDelayable true, adminShutdownDelayed true, "
                             "delayed false",
                             "void Valen::IntfIoSm::handleAdminShutdownDelayed(): "
                             "not initialized" ) );
}

TEST_F( IntfIoSmTest, AnotherConfigurationIsActedOnOnce ) {
   create();
   auto const other = newIntfConfig( "Ethernet1" );
   other->adminShutdownDelayedIs( true );
   trace.clear();
   sm->intfConfigIs( other );
   EXPECT_EQ( sm->intfConfig(), other );
   EXPECT_TRUE( status().delayed() );
   EXPECT_EQ( trace.messages( signature( "handleAdminShutdownDelayed" ) ).size(), 2u )
      << "one run: its entry and its decision";
   sm->intfConfigIs( other );
   EXPECT_EQ( trace.messages( signature( "handleAdminShutdownDelayed" ) ).size(), 2u );
   shutdown(); // the old one
   EXPECT_EQ( trace.messages( signature( "handleAdminShutdownDelayed" ) ).size(), 2u );
   other->adminShutdownDelayedIs( false );
   EXPECT_EQ( sm->abortCount(), 1u );
}

TEST_F( IntfIoSmTest, WithoutAConfigurationNothingIsWatched ) {
   create();
   trace.clear();
   sm->intfConfigDel();
   shutdown();
   EXPECT_EQ( sm->intfConfig(), nullptr );
   EXPECT_THAT( trace.lines(), IsEmpty() );
}

TEST_F( IntfIoSmTest, InactiveNotificationsSilenceConfigurationAndTimer ) {
   createAndShutdown();
   sm->hasNotificationActiveIs( false );
   reenable();
   EXPECT_EQ( sm->abortCount(), 0u );
   EXPECT_EQ( clock.advance( 2s ), 1u );
   EXPECT_TRUE( status().delayed() );
   sm->hasNotificationActiveIs( true );
   shutdown();
   EXPECT_TRUE( timerArmed() );
}

TEST_F( IntfIoSmTest, CountersCanBeSetAndAddedTo ) {
   create();
   sm->messagesOutputCountIs( 10 );
   sm->messagesOutputCountInc( 5 );
   sm->sendPktFailedCountIs( 20 );
   sm->sendPktFailedCountInc( 5 );
   sm->abortCountIs( 30 );
   sm->abortCountInc( 5 );
   sm->immediateEnableCountIs( 40 );
   sm->immediateEnableCountInc( 5 );
   EXPECT_EQ( sm->messagesOutputCount(), 15u );
   EXPECT_EQ( sm->sendPktFailedCount(), 25u );
   EXPECT_EQ( sm->abortCount(), 35u );
   EXPECT_EQ( sm->immediateEnableCount(), 45u );
}

TEST_F( IntfIoSmTest, EveryDecisionIsLevelOneAndEveryEntryLevelZero ) {
   queue( "agent", { "1", "2" } );
   pams.failingSends = { 0 };
   create();
   shutdown();
   reenable();
   shutdown();
   clock.advance( 2s );
   reenable();
   sm->initializedIs( false );
   shutdown();
   sm = nullptr;
   std::string const handler = signature( "handleAdminShutdownDelayed" ) + ": ";
   EXPECT_THAT( trace.texts( 1 ),
                ElementsAre( "U32 Valen::IntfIoSm::outputMessages(): packet send failed",
                             handler + "1 messages -> shutdown after delay",
                             handler + "abort shutdown delay",
                             handler + "2 messages -> shutdown after delay",
                             handler + "enable immediately", handler + "not initialized" ) );
   EXPECT_EQ( trace.texts( 0 ).size() + trace.texts( 1 ).size(), trace.texts().size() );
}

// --- Removal -------------------------------------------------------------------------------------

TEST_F( IntfIoSmTest, RemovalDuringTheDelayClearsBothFlags ) {
   createAndShutdown();
   Texts order;
   auto const delayed = onChange< Status::IntfStatus::delayedAttr >(
      intf->intfStatus(), [ & ] { order.push_back( "delayed" ); } );
   auto const shouldDelay = onChange< Status::IntfStatus::shouldDelayAttr >(
      intf->intfStatus(), [ & ] { order.push_back( "shouldDelay" ); } );
   trace.clear();
   sm = nullptr;
   EXPECT_FALSE( status().delayed() );
   EXPECT_FALSE( status().shouldDelay() );
   EXPECT_THAT( order, ElementsAre( "delayed", "shouldDelay" ) );
   EXPECT_THAT( trace.texts(),
                ElementsAre( "void Valen::IntfIoSm::handleDestruction(): Ethernet1" ) );
   EXPECT_EQ( clock.scheduler()->armedTasks(), 0u );
   reenable();
   EXPECT_EQ( trace.lines().size(), 1u );
}

TEST_F( IntfIoSmTest, RemovalFromInsideItsOwnHandlerWaitsForTheHandler ) {
   create();
   auto const entry = intf->intfStatus();
   bool alive = false;
   auto const watch = onChange< Status::IntfStatus::delayedAttr >( entry, [ & ] {
      if ( sm ) {
         Quill::Reactor::retire( std::move( sm ) );
         alive = IntfIoSm::quillAllocation.live == 1;
         reenable(); // silenced: must not be notified
      }
   } );
   shutdown();
   EXPECT_TRUE( alive ) << "it stays alive until its handler returns";
   EXPECT_EQ( IntfIoSm::quillAllocation.live, 0u );
   EXPECT_FALSE( entry->delayed() );
   EXPECT_FALSE( entry->shouldDelay() );
   EXPECT_EQ( clock.scheduler()->armedTasks(), 0u );
   EXPECT_FALSE(
      trace.has( signature( "handleAdminShutdownDelayed" ) + ": abort shutdown delay" ) );
}

TEST_F( IntfIoSmTest, RemovalWhileItsConfigurationIsExchangedWaitsToo ) {
   create();
   auto const other = newIntfConfig( "Ethernet1" );
   other->adminShutdownDelayedIs( true );
   bool alive = false;
   auto const watch = onChange< Status::IntfStatus::delayedAttr >( intf->intfStatus(), [ & ] {
      if ( sm ) {
         Quill::Reactor::retire( std::move( sm ) );
         alive = IntfIoSm::quillAllocation.live == 1;
      }
   } );
   sm->intfConfigIs( other );
   EXPECT_TRUE( alive );
   EXPECT_EQ( IntfIoSm::quillAllocation.live, 0u );
   EXPECT_FALSE( status().delayed() );
}

TEST_F( IntfIoSmTest, ALateRemovalDoesNotTouchTheSuccessorsEntry ) {
   create();
   auto const first = intf->intfStatus();
   auto const second = Quill::make< Status::IntfStatus >( "Ethernet1" );
   Quill::Ptr< IntfIoSm > successor;
   auto const watch = onChange< Status::IntfStatus::delayedAttr >( first, [ & ] {
      if ( !successor ) {
         Quill::Reactor::retire( std::move( sm ) );
         intf->intfStatusIs( second );
         successor = intfIoSmFactory( intf, rawTxPam, clock.scheduler(), intfConfig, configDir );
      }
   } );
   shutdown();
   EXPECT_FALSE( first->shouldDelay() );
   EXPECT_TRUE( second->shouldDelay() );
}

} // namespace
} // namespace Valen
