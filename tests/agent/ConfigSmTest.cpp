#include "agent/ConfigSm.h"

#include "tests/agent/AgentStore.h"
#include "tests/support/FaultRecorder.h"
#include "tests/support/LeakCheck.h"
#include "tests/support/OnChange.h"
#include "tests/support/RecordingRawTxPam.h"
#include "tests/support/SteppedClock.h"
#include "tests/support/TraceCapture.h"

#include <gmock/gmock.h>

#include <cerrno>

namespace Valen {
namespace {

using Test::AgentStore;
using Test::FaultRecorder;
using Test::LeakCheck;
using Test::onChange;
using Test::RecordingRawTxPams;
using Test::SteppedClock;
using Test::TraceCapture;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Texts = std::vector< std::string >;

std::string const handleInitialized = "void Valen::ConfigSm::handleInitialized()";
std::string const handleAgent = "void Valen::ConfigSm::handleAgent(Quill::Name)";
std::string const handleVrf = "void Valen::ConfigSm::handleVrf(L3::VrfName)";
std::string const handleIntfMessage = "void Valen::ConfigSm::handleIntfMessage(Corvid::IntfId)";
std::string const handleDestruction = "void Valen::ConfigSm::handleDestruction()";
std::string const reinstantiating =
   "Reinstantiating the pointer interface where constructor parameter attribute ";

class ConfigSmTest : public ::testing::Test {
 protected:
   ConfigSmTest() { store.globalConfigIs( 1000 ); }

   void start() {
      sm = store.newConfigSm();
      trace.clear();
   }
   // Everything that an interface of a VRF needs to be ready.
   void readyIntf( char const * intfId, char const * vrf, char const * netNs, U32 ifIndex ) {
      store.kernel.deviceIs( netNs, intfId, ifIndex );
      store.intfConfigIs( intfId );
      store.l3StatusIs( intfId, vrf );
      store.messageIs( "lacp", intfId, { "bye" } );
   }
   // A record of the model, made by hand.
   Quill::Ptr< Vrf > vrfRecord( char const * vrf, char const * netNs ) {
      return store.allVrf->vrfIs(
         vrf, netNs, Quill::Ptr< VrfL3Intf const >( store.allVrf->vrfL3IntfIs( vrf ) ) );
   }
   // What this unit traced, with the level.
   Texts traced() const {
      Texts texts;
      for ( auto const & line : trace.lines() ) {
         if ( line.unit == "ConfigSm" ) {
            texts.push_back( std::to_string( line.level ) + " " + line.text );
         }
      }
      return texts;
   }

   LeakCheck leakCheck;
   TraceCapture trace;
   SteppedClock clock;
   RecordingRawTxPams pams;
   FaultRecorder faults;
   AgentStore store;
   Quill::Ptr< ConfigSm > sm;
};

// --- Construction --------------------------------------------------------------------------------

TEST_F( ConfigSmTest, OwnsItsTrackersAndMounts ) {
   start();
   EXPECT_EQ( sm->configDir(), store.configDir );
   EXPECT_EQ( sm->agentConfigDir(), store.agentConfigDir );
   EXPECT_EQ( sm->allIntfConfigDir(), store.allIntfConfigDir );
   EXPECT_EQ( sm->allIntfStatusDir(), store.allIntfStatusDir );
   EXPECT_EQ( sm->allIntfStatusLocalDir(), store.allIntfStatusLocalDir );
   EXPECT_EQ( sm->l3IntfStatusDir(), store.l3IntfStatusDir );
   EXPECT_EQ( sm->allVrfStatusLocal(), store.allVrfStatusLocal );
   EXPECT_EQ( sm->entityManager(), store.entityManager );
   EXPECT_EQ( sm->statusDir(), store.statusDir );
   EXPECT_EQ( sm->allVrf(), store.allVrf );
   EXPECT_EQ( sm->allIntf(), store.allIntf );
   EXPECT_EQ( sm->scheduler(), clock.scheduler() );
   EXPECT_EQ( sm->kernelIntf()->allIntfStatusDir(), store.allIntfStatusDir );
   EXPECT_EQ( sm->kernelIntf()->allIntfStatusLocalDir(), store.allIntfStatusLocalDir );
   EXPECT_EQ( sm->kernelIntf()->entityManager(), store.entityManager );
   EXPECT_EQ( sm->allVrfStatusLocalSm()->allVrfStatusLocal(), store.allVrfStatusLocal );
   EXPECT_EQ( sm->allVrfStatusLocalSm()->allVrf(), store.allVrf );
   EXPECT_EQ( sm->allIntfConfigDirSm()->allIntfConfigDir(), store.allIntfConfigDir );
   EXPECT_EQ( sm->allIntfConfigDirSm()->allIntf(), store.allIntf );
   EXPECT_EQ( sm->l3IntfStatusDirSm()->l3IntfStatusDir(), store.l3IntfStatusDir );
   EXPECT_EQ( sm->l3IntfStatusDirSm()->allVrf(), store.allVrf );
   EXPECT_EQ( sm->l3IntfStatusDirSm()->allIntf(), store.allIntf );
   EXPECT_EQ( sm->agentConfigSms(), 0u );
   EXPECT_EQ( sm->vrfContainerSms(), 0u );
   EXPECT_TRUE( sm->initialized() );
   EXPECT_STREQ( sm->reactorName(), "ConfigSm" );
}

TEST_F( ConfigSmTest, TheCreatorIsTheFactory ) {
   sm = ConfigSm::ConfigSmIs( store.configDir, store.agentConfigDir, store.allIntfConfigDir,
                              store.allIntfStatusDir, store.allIntfStatusLocalDir,
                              store.l3IntfStatusDir, store.allVrfStatusLocal, store.entityManager,
                              store.statusDir, store.allVrf, store.allIntf );
   EXPECT_TRUE( sm->initialized() );
}

TEST_F( ConfigSmTest, TheTrackersStartFirstInTheirOrder ) {
   sm = store.newConfigSm();
   EXPECT_THAT( trace.texts(),
                ElementsAre( "void Valen::AllVrfStatusLocalSm::handleInitialized(): ",
                             "void Valen::AllIntfConfigDirSm::handleInitialized(): ",
                             "void Valen::L3IntfStatusDirSm::handleInitialized(): ",
                             handleInitialized + ": " ) );
   EXPECT_EQ( trace.lines().back().unit, "ConfigSm" );
   EXPECT_EQ( trace.lines().back().level, 0 );
}

TEST_F( ConfigSmTest, WhatTheTrackersFindAtTheStartIsNotLost ) {
   // The model already has an interface, so that a tracker makes a VRF during the construction.
   auto const intfMessage = store.allIntf->intfMessageIs( "Ethernet1" );
   store.allIntf->intfIs( "Ethernet1", Quill::Ptr< IntfMessage const >( intfMessage ) );
   store.l3StatusIs( "Ethernet1", "default" );
   sm = store.newConfigSm();
   EXPECT_TRUE( sm->vrfContainerSm( "default" ) );
   EXPECT_THAT( trace.messages( handleVrf ),
                ElementsAre( "vrf default", "not initialized", "vrf default" ) );
   EXPECT_THAT( trace.messages( handleIntfMessage ),
                ElementsAre( "Ethernet1", "adding intf to allIntf" ) );
   sm = nullptr;
   store.allIntf->intfDelAll();
   store.allIntf->intfMessageDelAll();
}

TEST_F( ConfigSmTest, ReplaysTheAgentsThenTheMessagesThenTheVrfs ) {
   store.messageIs( "lacp", "Ethernet1", { "bye" } );
   auto const made = store.allIntf->intfMessageIs( "Ethernet2" );
   vrfRecord( "red", "ns-red" );
   sm = store.newConfigSm();
   EXPECT_THAT( traced(),
                ElementsAre( "0 " + handleInitialized + ": ", "0 " + handleAgent + ": lacp",
                             "1 " + handleAgent + ": adding agentConfig",
                             "0 " + handleIntfMessage + ": Ethernet1",
                             "1 " + handleIntfMessage + ": adding intf to allIntf",
                             "0 " + handleIntfMessage + ": Ethernet2",
                             "1 " + handleIntfMessage + ": adding intf to allIntf",
                             "0 " + handleIntfMessage + ": Ethernet1",
                             "1 " + handleIntfMessage + ": adding intf to allIntf",
                             "0 " + handleVrf + ": vrf red" ) );
   EXPECT_TRUE( store.allIntf->intfHas( "Ethernet1" ) );
   EXPECT_EQ( store.allIntf->intf( "Ethernet2" )->intfMessage(), made );
   EXPECT_TRUE( sm->vrfContainerSm( "red" ) );
   sm = nullptr;
   store.allIntf->intfMessageDelAll();
}

TEST_F( ConfigSmTest, ReplayMakesNothingTwice ) {
   readyIntf( "Ethernet1", "default", "default", 7 );
   sm = store.newConfigSm();
   EXPECT_EQ( sm->vrfContainerSms(), 1u );
   EXPECT_EQ( pams.live, 1u );
   EXPECT_EQ( store.statusDir->intfStatuss(), 1u );
   EXPECT_EQ( trace.count( handleVrf + ": vrfContainerSm already exists" ), 1u );
   EXPECT_THAT( faults.messages(), IsEmpty() );
}

TEST_F( ConfigSmTest, OneVrfThatFailsAtTheStartDoesNotCostTheOthers ) {
   vrfRecord( "red", "ns-red" );
   vrfRecord( "blue", "ns-blue" );
   pams.enableErrno = EMFILE;
   // The first endpoint fails, the second opens.
   faults.onFault = [ this ] { pams.enableErrno = 0; };
   sm = store.newConfigSm();
   EXPECT_FALSE( sm->vrfContainerSm( "red" ) );
   EXPECT_TRUE( sm->vrfContainerSm( "blue" ) );
   EXPECT_TRUE( sm->initialized() );
   EXPECT_THAT( faults.messages(), ElementsAre( "fault in ConfigSm on vrf red: open ns-red" ) );
}

TEST_F( ConfigSmTest, OneInterfaceThatFailsAtTheStartDoesNotCostTheOthers ) {
   auto const old = Quill::make< IntfMessage >( "Ethernet1" );
   store.allIntf->intfIs( "Ethernet1", Quill::Ptr< IntfMessage const >( old ) );
   auto const current = store.allIntf->intfMessageIs( "Ethernet1" );
   store.allIntf->intfMessageIs( "Ethernet2" );
   sm = store.newConfigSm();
   EXPECT_TRUE( store.allIntf->intfHas( "Ethernet2" ) );
   EXPECT_THAT( faults.messages(),
                ElementsAre( "fault in ConfigSm on intfMessage Ethernet1: " + reinstantiating +
                             "_intfMessage has a different value of " + Quill::display( current ) +
                             " than the current value of " + Quill::display( old ) ) );
   sm = nullptr;
   store.allIntf->intfMessageDelAll();
   store.allIntf->intfDelAll();
}

// --- Before initialization -----------------------------------------------------------------------

TEST_F( ConfigSmTest, BeforeInitializationTheHandlersOnlyTrace ) {
   start();
   sm->initializedIs( false );
   store.agentIs( "lacp" );
   vrfRecord( "red", "ns-red" );
   store.allIntf->intfMessageIs( "Ethernet1" );
   EXPECT_EQ( sm->agentConfigSms(), 0u );
   EXPECT_EQ( sm->vrfContainerSms(), 0u );
   EXPECT_EQ( store.allIntf->intfs(), 0u );
   EXPECT_THAT( traced(),
                ElementsAre( "0 " + handleAgent + ": lacp",
                             "1 " + handleAgent + ": not initialized",
                             "0 " + handleVrf + ": vrf red", "1 " + handleVrf + ": not initialized",
                             "0 " + handleIntfMessage + ": Ethernet1",
                             "1 " + handleIntfMessage + ": not initialized" ) );
}

// --- Agents --------------------------------------------------------------------------------------

TEST_F( ConfigSmTest, FollowsTheAgents ) {
   start();
   store.agentConfigDir->entryIs( "lacp" );
   EXPECT_EQ( sm->agentConfigSms(), 0u );
   auto const agentDir = Quill::make< Quill::Dir >();
   store.agentConfigDir->entryIs( "lacp", agentDir );
   ASSERT_TRUE( sm->agentConfigSm( "lacp" ) );
   EXPECT_EQ( sm->agentConfigSm( "lacp" )->agentDir(), agentDir );
   EXPECT_EQ( sm->agentConfigSm( "lacp" )->allIntf(), store.allIntf );
   auto const * const child = sm->agentConfigSm( "lacp" ).get();
   sm->handleAgent( "lacp" );
   EXPECT_EQ( sm->agentConfigSm( "lacp" ).get(), child );
   store.agentConfigDir->entryDel( "lacp" );
   EXPECT_FALSE( sm->agentConfigSm( "lacp" ) );
   EXPECT_THAT(
      traced(),
      ElementsAre( "0 " + handleAgent + ": lacp",
                   "1 " + handleAgent + ": agentConfig added but not yet instantiated",
                   "0 " + handleAgent + ": lacp", "1 " + handleAgent + ": adding agentConfig",
                   "0 " + handleAgent + ": lacp", "1 " + handleAgent + ": adding agentConfig",
                   "0 " + handleAgent + ": lacp", "1 " + handleAgent + ": removing agentConfig" ) );
}

TEST_F( ConfigSmTest, AnAgentsDirectoryExchangedInPlaceIsAFault ) {
   start();
   auto const first = Quill::make< Quill::Dir >();
   auto const second = Quill::make< Quill::Dir >();
   store.agentConfigDir->entryIs( "lacp", first );
   store.agentConfigDir->entryIs( "lacp", second );
   EXPECT_EQ( sm->agentConfigSm( "lacp" )->agentDir(), first );
   EXPECT_THAT( faults.messages(),
                ElementsAre( "fault in ConfigSm on entry lacp: " + reinstantiating +
                             "_agentDir has a different value of " + Quill::display( second ) +
                             " than the current value of " + Quill::display( first ) ) );
}

TEST_F( ConfigSmTest, AnEntityThatIsNoDirectoryHasNoAgent ) {
   start();
   store.agentConfigDir->entryIs( "lacp", Quill::make< Config::Agent::MessageDir >() );
   EXPECT_FALSE( sm->agentConfigSm( "lacp" ) );
   EXPECT_THAT( faults.messages(), IsEmpty() );
}

// --- Interfaces ----------------------------------------------------------------------------------

TEST_F( ConfigSmTest, AnInterfaceExistsWhileItHasMessages ) {
   start();
   auto const intfMessage = store.allIntf->intfMessageIs( "Ethernet1" );
   ASSERT_TRUE( store.allIntf->intf( "Ethernet1" ) );
   EXPECT_EQ( store.allIntf->intf( "Ethernet1" )->intfMessage(), intfMessage );
   store.allIntf->intfMessageDel( "Ethernet1" );
   EXPECT_FALSE( store.allIntf->intfHas( "Ethernet1" ) );
   EXPECT_THAT( traced(),
                ElementsAre( "0 " + handleIntfMessage + ": Ethernet1",
                             "1 " + handleIntfMessage + ": adding intf to allIntf",
                             "0 " + handleIntfMessage + ": Ethernet1",
                             "1 " + handleIntfMessage + ": removing intf from allIntf" ) );
}

// --- VRFs ----------------------------------------------------------------------------------------

TEST_F( ConfigSmTest, AVrfGetsItsContainerAndMount ) {
   start();
   auto const vrf = vrfRecord( "red", "ns-red" );
   auto const container = sm->vrfContainerSm( "red" );
   ASSERT_TRUE( container );
   EXPECT_EQ( container->vrf(), vrf );
   EXPECT_EQ( container->vrfL3Intf(), store.allVrf->vrfL3Intf( "red" ) );
   EXPECT_EQ( container->allIntf(), store.allIntf );
   EXPECT_EQ( container->taskScheduler(), clock.scheduler() );
   EXPECT_EQ( container->configDir(), store.configDir );
   EXPECT_EQ( container->statusDir(), store.statusDir );
   EXPECT_EQ( sm->kernelIntf()->namespaceName( "red" ), "ns-red" );
   EXPECT_THAT( store.kernel.mounted, ElementsAre( "ns-red" ) );
   EXPECT_THAT( traced(), ElementsAre( "0 " + handleVrf + ": vrf red" ) );
}

TEST_F( ConfigSmTest, ARepeatedNotificationKeepsTheContainer ) {
   start();
   vrfRecord( "red", "ns-red" );
   auto const container = sm->vrfContainerSm( "red" );
   trace.clear();
   sm->handleVrf( "red" );
   EXPECT_EQ( sm->vrfContainerSm( "red" ), container );
   EXPECT_THAT( traced(), ElementsAre( "0 " + handleVrf + ": vrf red",
                                       "1 " + handleVrf + ": vrfContainerSm already exists" ) );
}

TEST_F( ConfigSmTest, ARemovedVrfLosesContainerThenMountWithoutALine ) {
   start();
   vrfRecord( "red", "ns-red" );
   trace.clear();
   store.allVrf->vrfDel( "red" );
   EXPECT_FALSE( sm->vrfContainerSm( "red" ) );
   EXPECT_THAT( store.kernel.mounted, IsEmpty() );
   EXPECT_EQ( pams.live, 0u );
   EXPECT_THAT( trace.texts(),
                ElementsAre( handleVrf + ": vrf red",
                             "void Valen::VrfContainerSm::handleDestruction(): vrf red",
                             "void Valen::KernelIntf::vrfDel(L3::VrfName): vrf red" ) );
}

TEST_F( ConfigSmTest, AVrfRecreatedInAnotherNamespaceReplacesItsContainer ) {
   start();
   vrfRecord( "red", "ns-red" );
   store.allVrf->vrfDel( "red" );
   vrfRecord( "red", "ns-other" );
   EXPECT_EQ( sm->vrfContainerSm( "red" )->vrf()->nsName(), "ns-other" );
   EXPECT_EQ( sm->kernelIntf()->namespaceName( "red" ), "ns-other" );
   EXPECT_THAT( store.kernel.mounted, ElementsAre( "ns-other" ) );
}

TEST_F( ConfigSmTest, AStaleContainerIsRemovedBeforeTheNewOneIsMade ) {
   start();
   vrfRecord( "red", "ns-red" );
   // A replacement is one change if the removal was not notified.
   sm->hasNotificationActiveIs( false );
   store.allVrf->vrfDel( "red" );
   auto const vrf = vrfRecord( "red", "ns-red" );
   sm->hasNotificationActiveIs( true );
   trace.clear();
   sm->handleVrf( "red" );
   EXPECT_EQ( sm->vrfContainerSm( "red" )->vrf(), vrf );
   EXPECT_EQ( pams.live, 1u );
   EXPECT_THAT( trace.texts(),
                ElementsAre( handleVrf + ": vrf red",
                             "Interface::DeviceIntfStatusDir::Ptr "
                             "Valen::KernelIntf::vrfIs(L3::VrfName, Corvid::NamespaceName): vrf "
                             "red, ns ns-red",
                             handleVrf + ": removing stale vrfContainerSm",
                             "void Valen::VrfContainerSm::handleDestruction(): vrf red",
                             "void Valen::VrfContainerSm::handleInitialized(): vrf red" ) );
}

TEST_F( ConfigSmTest, AStaleContainerOfAnotherNamespaceIsReplacedToo ) {
   start();
   vrfRecord( "red", "ns-red" );
   sm->hasNotificationActiveIs( false );
   store.allVrf->vrfDel( "red" );
   vrfRecord( "red", "ns-other" );
   sm->hasNotificationActiveIs( true );
   trace.clear();
   sm->handleVrf( "red" );
   EXPECT_THAT( traced(), ElementsAre( "0 " + handleVrf + ": vrf red",
                                       "1 " + handleVrf + ": removing stale vrfContainerSm" ) );
   EXPECT_EQ( sm->vrfContainerSm( "red" )->rawTxPam()->netNs(), "ns-other" );
   EXPECT_EQ( sm->kernelIntf()->namespaceName( "red" ), "ns-other" );
   EXPECT_EQ( pams.live, 1u );
}

TEST_F( ConfigSmTest, AContainerOfAnotherSetIsStaleToo ) {
   start();
   auto const vrf = vrfRecord( "red", "ns-red" );
   store.allVrf->vrfL3IntfDel( "red" );
   auto const set = store.allVrf->vrfL3IntfIs( "red" );
   trace.clear();
   sm->handleVrf( "red" );
   EXPECT_EQ( sm->vrfContainerSm( "red" )->vrfL3Intf(), set );
   EXPECT_EQ( trace.count( handleVrf + ": removing stale vrfContainerSm" ), 1u );
}

TEST_F( ConfigSmTest, AVrfWithoutItsSetWaitsForItsNextChange ) {
   start();
   auto const set = Quill::make< VrfL3Intf >( "red" );
   store.allVrf->vrfIs( "red", "ns-red", Quill::Ptr< VrfL3Intf const >( set ) );
   EXPECT_FALSE( sm->vrfContainerSm( "red" ) );
   store.allVrf->vrfL3IntfIs( "red" );
   EXPECT_FALSE( sm->vrfContainerSm( "red" ) );
   store.allVrf->vrfDel( "red" );
   vrfRecord( "red", "ns-red" );
   EXPECT_TRUE( sm->vrfContainerSm( "red" ) );
}

TEST_F( ConfigSmTest, RemovalOfAVrfThatHadNoContainerLeavesTheMountsAlone ) {
   start();
   auto const set = Quill::make< VrfL3Intf >( "red" );
   sm->kernelIntf()->vrfIs( "red", "ns-red" );
   store.allVrf->vrfIs( "red", "ns-red", Quill::Ptr< VrfL3Intf const >( set ) );
   trace.clear();
   store.allVrf->vrfDel( "red" );
   EXPECT_THAT( store.kernel.mounted, ElementsAre( "ns-red" ) );
   EXPECT_THAT( trace.texts(), ElementsAre( handleVrf + ": vrf red" ) );
}

TEST_F( ConfigSmTest, AContainerThatCannotBeMadeKeepsItsKernelEntry ) {
   start();
   pams.enableErrno = EPERM;
   vrfRecord( "red", "ns-red" );
   EXPECT_THAT( faults.messages(), ElementsAre( "fault in ConfigSm on vrf red: open ns-red" ) );
   EXPECT_FALSE( sm->vrfContainerSm( "red" ) );
   EXPECT_EQ( sm->kernelIntf()->namespaceName( "red" ), "ns-red" );
   EXPECT_THAT( store.kernel.mounted, ElementsAre( "ns-red" ) );
   trace.clear();
   store.allVrf->vrfDel( "red" );
   EXPECT_THAT( trace.texts(), ElementsAre( handleVrf + ": vrf red" ) );
   EXPECT_EQ( sm->kernelIntf()->namespaceName( "red" ), "ns-red" );
   EXPECT_THAT( store.kernel.mounted, ElementsAre( "ns-red" ) );
   sm = nullptr;
   EXPECT_THAT( store.kernel.mounted, IsEmpty() );
}

TEST_F( ConfigSmTest, AVrfThatReturnsInAnotherNamespaceHasTheDevicesOfThatOneOnly ) {
   start();
   store.kernel.deviceIs( "ns-red", "Ethernet1", 7 );
   store.kernel.deviceIs( "ns-other", "Ethernet2", 8 );
   pams.enableErrno = EPERM;
   vrfRecord( "red", "ns-red" );
   pams.enableErrno = 0;
   store.allVrf->vrfDel( "red" );
   vrfRecord( "red", "ns-other" );
   ASSERT_TRUE( sm->vrfContainerSm( "red" ) );
   EXPECT_THAT( store.kernel.mounted, ElementsAre( "ns-other" ) );
   EXPECT_EQ( sm->kernelIntf()->intfStatusManagerRoot()->intfStatusManagers(), 1u );
   store.kernel.deviceIs( "ns-red", "Ethernet3", 9 );
   auto const devices = sm->vrfContainerSm( "red" )->deviceIntfStatusDir();
   EXPECT_EQ( devices->intfStatusAndDeviceNames(), 1u );
   EXPECT_EQ( devices->intfStatusAndDeviceName( "Ethernet2" ).ifIndex, 8u );
}

TEST_F( ConfigSmTest, AStatusPutInAgainHealsAVrfThatCouldNotBeOpened ) {
   readyIntf( "Ethernet1", "red", "ns-red", 7 );
   pams.enableErrno = EMFILE;
   store.vrfStatusIs( "red", "ns-red" );
   sm = store.newConfigSm();
   EXPECT_EQ( store.statusDir->intfStatuss(), 0u );
   ASSERT_EQ( faults.messages().size(), 2u ); // when the messages were added, and in the replay
   pams.enableErrno = 0;
   store.allVrfStatusLocal->vrfDel( "red" );
   store.vrfStatusIs( "red", "ns-red" );
   EXPECT_TRUE( store.statusDir->intfStatusHas( "Ethernet1" ) );
}

// --- The children's mutators ---------------------------------------------------------------------

// The error with which a mutator rejects other values.
template < class Work > std::string refusal( Work const & work ) {
   try {
      work();
   } catch ( Quill::Exception const & e ) {
      return e.what();
   }
   return "no failure";
}

std::string differs( char const * name, std::string const & current ) {
   return reinstantiating + name + " has a different value of null than the current value of " +
          current;
}

TEST_F( ConfigSmTest, TheSameValuesReturnTheSameChildren ) {
   start();
   store.agentIs( "lacp" );
   vrfRecord( "red", "ns-red" );
   EXPECT_EQ(
      sm->kernelIntfIs( store.allIntfStatusDir, store.allIntfStatusLocalDir, store.entityManager ),
      sm->kernelIntf() );
   EXPECT_EQ( sm->allVrfStatusLocalSmIs( store.allVrfStatusLocal, store.allVrf ),
              sm->allVrfStatusLocalSm() );
   EXPECT_EQ( sm->allIntfConfigDirSmIs( store.allIntfConfigDir, store.allIntf ),
              sm->allIntfConfigDirSm() );
   EXPECT_EQ( sm->l3IntfStatusDirSmIs( store.l3IntfStatusDir, store.allVrf, store.allIntf ),
              sm->l3IntfStatusDirSm() );
   auto const agent = sm->agentConfigSm( "lacp" );
   EXPECT_EQ( sm->agentConfigSmIs( "lacp", agent->agentDir(), store.allIntf ), agent );
   auto const container = sm->vrfContainerSm( "red" );
   EXPECT_EQ( sm->vrfContainerSmIs( container->vrf(), container->vrfL3Intf(), store.allIntf,
                                    container->deviceIntfStatusDir(), clock.scheduler(),
                                    store.configDir, store.statusDir ),
              container );
}

TEST_F( ConfigSmTest, OtherValuesAreRejectedBySingleChildren ) {
   start();
   auto const display = []( auto const & handle ) { return Quill::display( handle ); };
   EXPECT_EQ( refusal( [ & ] {
                 sm->kernelIntfIs( nullptr, store.allIntfStatusLocalDir, store.entityManager );
              } ),
              differs( "_allIntfStatusDir", display( store.allIntfStatusDir ) ) );
   EXPECT_EQ( refusal( [ & ] {
                 sm->kernelIntfIs( store.allIntfStatusDir, nullptr, store.entityManager );
              } ),
              differs( "_allIntfStatusLocalDir", display( store.allIntfStatusLocalDir ) ) );
   EXPECT_EQ( refusal( [ & ] {
                 sm->kernelIntfIs( store.allIntfStatusDir, store.allIntfStatusLocalDir, nullptr );
              } ),
              differs( "_entityManager", display( store.entityManager ) ) );
   EXPECT_EQ( refusal( [ & ] { sm->allVrfStatusLocalSmIs( nullptr, store.allVrf ); } ),
              differs( "_allVrfStatusLocal", display( store.allVrfStatusLocal ) ) );
   EXPECT_EQ( refusal( [ & ] { sm->allVrfStatusLocalSmIs( store.allVrfStatusLocal, nullptr ); } ),
              differs( "_allVrf", display( store.allVrf ) ) );
   EXPECT_EQ( refusal( [ & ] { sm->allIntfConfigDirSmIs( nullptr, store.allIntf ); } ),
              differs( "_allIntfConfigDir", display( store.allIntfConfigDir ) ) );
   EXPECT_EQ( refusal( [ & ] { sm->allIntfConfigDirSmIs( store.allIntfConfigDir, nullptr ); } ),
              differs( "_allIntf", display( store.allIntf ) ) );
   EXPECT_EQ( refusal( [ & ] { sm->l3IntfStatusDirSmIs( nullptr, store.allVrf, store.allIntf ); } ),
              differs( "_l3IntfStatusDir", display( store.l3IntfStatusDir ) ) );
   EXPECT_EQ( refusal( [ & ] {
                 sm->l3IntfStatusDirSmIs( store.l3IntfStatusDir, nullptr, store.allIntf );
              } ),
              differs( "_allVrf", display( store.allVrf ) ) );
   EXPECT_EQ(
      refusal( [ & ] { sm->l3IntfStatusDirSmIs( store.l3IntfStatusDir, store.allVrf, nullptr ); } ),
      differs( "_allIntf", display( store.allIntf ) ) );
}

TEST_F( ConfigSmTest, OtherValuesAreRejectedByCollections ) {
   start();
   store.agentIs( "lacp" );
   auto const agentDir = sm->agentConfigSm( "lacp" )->agentDir();
   EXPECT_EQ( refusal( [ & ] { sm->agentConfigSmIs( "lacp", nullptr, store.allIntf ); } ),
              differs( "_agentDir", Quill::display( agentDir ) ) );
   EXPECT_EQ( refusal( [ & ] { sm->agentConfigSmIs( "lacp", agentDir, nullptr ); } ),
              differs( "_allIntf", Quill::display( store.allIntf ) ) );

   vrfRecord( "red", "ns-red" );
   auto const container = sm->vrfContainerSm( "red" );
   auto const vrf = container->vrf();
   auto const set = container->vrfL3Intf();
   auto const devices = container->deviceIntfStatusDir();
   auto const other = Quill::make< Vrf >( "red", "ns-red", set );
   // The current values, except for those that are given.
   auto const refused =
      [ & ]( Quill::Ptr< Vrf const > v, Quill::Ptr< VrfL3Intf const > s, Quill::Ptr< AllIntf > a,
             Quill::Ptr< Interface::DeviceIntfStatusDir const > d,
             Quill::Ptr< Gantry::TaskScheduler > t, Quill::Ptr< Config::ConfigDir const > c,
             Quill::Ptr< Status::StatusDir > status ) {
         return refusal( [ & ] { sm->vrfContainerSmIs( v, s, a, d, t, c, status ); } );
      };
   auto const & scheduler = clock.scheduler();
   EXPECT_EQ(
      refused( other, set, store.allIntf, devices, scheduler, store.configDir, store.statusDir ),
      reinstantiating + "_vrf has a different value of " + Quill::display( other ) +
         " than the current value of " + Quill::display( vrf ) );
   EXPECT_EQ(
      refused( vrf, nullptr, store.allIntf, devices, scheduler, store.configDir, store.statusDir ),
      differs( "_vrfL3Intf", Quill::display( set ) ) );
   EXPECT_EQ( refused( vrf, set, nullptr, devices, scheduler, store.configDir, store.statusDir ),
              differs( "_allIntf", Quill::display( store.allIntf ) ) );
   EXPECT_EQ(
      refused( vrf, set, store.allIntf, nullptr, scheduler, store.configDir, store.statusDir ),
      differs( "_deviceIntfStatusDir", Quill::display( devices ) ) );
   EXPECT_EQ(
      refused( vrf, set, store.allIntf, devices, nullptr, store.configDir, store.statusDir ),
      differs( "_taskScheduler", Quill::display( scheduler ) ) );
   EXPECT_EQ( refused( vrf, set, store.allIntf, devices, scheduler, nullptr, store.statusDir ),
              differs( "_configDir", Quill::display( store.configDir ) ) );
   EXPECT_EQ( refused( vrf, set, store.allIntf, devices, scheduler, store.configDir, nullptr ),
              differs( "_statusDir", Quill::display( store.statusDir ) ) );
   EXPECT_EQ( sm->vrfContainerSm( "red" ), container );
}

TEST_F( ConfigSmTest, ANullVrfIsRejectedWithTheExactText ) {
   start();
   try {
      sm->vrfContainerSmIs( nullptr, nullptr, store.allIntf, nullptr, clock.scheduler(),
                            store.configDir, store.statusDir );
      ADD_FAILURE() << "no failure";
   } catch ( Quill::NullParameterException const & e ) {
      EXPECT_STREQ( e.what(), "null vrfContainerSm_Vrf parameter to mutator for "
                              "Valen::ConfigSm::vrfContainerSm not allowed\"" );
   }
   EXPECT_EQ( sm->vrfContainerSms(), 0u );
}

TEST_F( ConfigSmTest, RemovalOfUnknownChildrenHasNoEffect ) {
   start();
   sm->agentConfigSmDel( "lacp" );
   sm->vrfContainerSmDel( "red" );
   sm->kernelIntfDel();
   sm->kernelIntfDel();
   sm->l3IntfStatusDirSmDel();
   sm->l3IntfStatusDirSmDel();
   EXPECT_FALSE( sm->kernelIntf() );
   EXPECT_FALSE( sm->l3IntfStatusDirSm() );
}

// --- The switch ----------------------------------------------------------------------------------

TEST_F( ConfigSmTest, TheSwitchReachesTheTrackersButNotAgentsAndContainers ) {
   start();
   store.agentIs( "lacp" );
   vrfRecord( "red", "ns-red" );
   sm->hasNotificationActiveIs( false );
   EXPECT_FALSE( sm->hasNotificationActive() );
   EXPECT_FALSE( sm->allVrfStatusLocalSm()->hasNotificationActive() );
   EXPECT_FALSE( sm->allIntfConfigDirSm()->hasNotificationActive() );
   EXPECT_FALSE( sm->l3IntfStatusDirSm()->hasNotificationActive() );
   EXPECT_TRUE( sm->agentConfigSm( "lacp" )->hasNotificationActive() );
   EXPECT_TRUE( sm->vrfContainerSm( "red" )->hasNotificationActive() );
   trace.clear();
   store.agentIs( "stp" );
   vrfRecord( "blue", "ns-blue" );
   store.allIntf->intfMessageIs( "Ethernet1" );
   EXPECT_THAT( trace.texts(), IsEmpty() );
   sm->hasNotificationActiveIs( true );
   EXPECT_TRUE( sm->allVrfStatusLocalSm()->hasNotificationActive() );
   EXPECT_TRUE( sm->allIntfConfigDirSm()->hasNotificationActive() );
   EXPECT_TRUE( sm->l3IntfStatusDirSm()->hasNotificationActive() );
}

TEST_F( ConfigSmTest, TheSwitchDoesNothingWhenItIsThereAlready ) {
   start();
   sm->allIntfConfigDirSm()->hasNotificationActiveIs( false );
   sm->hasNotificationActiveIs( true );
   EXPECT_FALSE( sm->allIntfConfigDirSm()->hasNotificationActive() );
}

TEST_F( ConfigSmTest, TheSwitchSkipsATrackerThatIsGone ) {
   start();
   sm->allVrfStatusLocalSmDel();
   sm->allIntfConfigDirSmDel();
   sm->l3IntfStatusDirSmDel();
   sm->hasNotificationActiveIs( false );
   EXPECT_FALSE( sm->hasNotificationActive() );
}

TEST_F( ConfigSmTest, AsAZombieItIsSilentButItsTrackersAreNot ) {
   start();
   sm->quillDoZombieReactors( true );
   trace.clear();
   store.agentIs( "lacp" );
   EXPECT_THAT( trace.texts(), IsEmpty() );
   store.intfConfigIs( "Ethernet1" );
   EXPECT_EQ( trace.texts().size(), 2u );
}

// --- The end -------------------------------------------------------------------------------------

TEST_F( ConfigSmTest, TeardownRunsFromTheConsumersToTheMounts ) {
   readyIntf( "Ethernet1", "red", "ns-red", 7 );
   store.vrfStatusIs( "red", "ns-red" );
   start();
   ASSERT_TRUE( store.statusDir->intfStatusHas( "Ethernet1" ) );
   auto const entry = store.statusDir->intfStatus( "Ethernet1" );
   trace.clear();
   sm = nullptr;
   EXPECT_EQ( store.statusDir->intfStatuss(), 0u );
   EXPECT_FALSE( entry->shouldDelay() );
   EXPECT_EQ( store.allVrf->vrfs(), 0u );
   EXPECT_EQ( store.allVrf->vrfL3Intfs(), 0u );
   EXPECT_EQ( store.allIntf->intfs(), 0u );
   EXPECT_EQ( store.allIntf->intfMessages(), 0u );
   EXPECT_THAT( store.kernel.mounted, IsEmpty() );
   Texts ends;
   for ( auto const & text : trace.texts( 0 ) ) {
      if ( text.find( "::handleDestruction()" ) != std::string::npos ) {
         ends.push_back( text );
      }
   }
   EXPECT_THAT( ends, ElementsAre( handleDestruction + ": 1 intfStatus to clean up",
                                   "void Valen::VrfContainerSm::handleDestruction(): vrf red",
                                   "void Valen::IntfSm::handleDestruction(): Ethernet1",
                                   "void Valen::IntfIoSm::handleDestruction(): Ethernet1",
                                   "void Valen::L3IntfStatusDirSm::handleDestruction(): ",
                                   "void Valen::L3IntfStatusSm::handleDestruction(): Ethernet1, "
                                   "vrf red",
                                   "void Valen::AllIntfConfigDirSm::handleDestruction(): ",
                                   "void Valen::AllVrfStatusLocalSm::handleDestruction(): ",
                                   "void Valen::VrfStatusLocalSm::handleDestruction(): vrf red",
                                   "void Valen::AgentConfigSm::handleDestruction(): ",
                                   "void Valen::MessageDirSm::handleDestruction(): ",
                                   "void Valen::KernelIntf::handleDestruction(): " ) );
}

TEST_F( ConfigSmTest, AnEntryThatIsLeftEndsTheProcess ) {
   EXPECT_DEATH(
      {
         start();
         store.statusDir->intfStatusIs( "Ethernet9" );
         sm = nullptr;
      },
      "0 == statusDir\\(\\)->intfStatuss\\(\\)" );
}

} // namespace
} // namespace Valen
