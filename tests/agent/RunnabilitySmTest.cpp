#include "agent/RunnabilitySm.h"

#include "tests/agent/AgentStore.h"
#include "tests/support/LeakCheck.h"
#include "tests/support/OnChange.h"
#include "tests/support/RecordingRawTxPam.h"
#include "tests/support/SteppedClock.h"
#include "tests/support/TraceCapture.h"

#include <gmock/gmock.h>

namespace Valen {
namespace {

using Test::AgentStore;
using Test::LeakCheck;
using Test::onChange;
using Test::RecordingRawTxPams;
using Test::SteppedClock;
using Test::TraceCapture;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::string const handleInitialized = "void Valen::RunnabilitySm::handleInitialized()";
std::string const handleGlobalConfig = "void Valen::RunnabilitySm::handleGlobalConfig()";

class RunnabilitySmTest : public ::testing::Test {
 protected:
   void start() { sm = store.newRunnabilitySm(); }
   std::vector< std::string > traced() const {
      std::vector< std::string > texts;
      for ( auto const & line : trace.lines() ) {
         if ( line.unit == "RunnabilitySm" ) {
            texts.push_back( std::to_string( line.level ) + " " + line.text );
         }
      }
      return texts;
   }
   std::string configured() const { return Quill::display( store.configDir->globalConfig() ); }

   LeakCheck leakCheck;
   TraceCapture trace;
   SteppedClock clock;
   RecordingRawTxPams pams;
   AgentStore store;
   Quill::Ptr< RunnabilitySm > sm;
};

TEST_F( RunnabilitySmTest, KeepsWhatItWasMadeFrom ) {
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
   EXPECT_TRUE( sm->initialized() );
   EXPECT_STREQ( sm->reactorName(), "RunnabilitySm" );
}

TEST_F( RunnabilitySmTest, TheCreatorIsTheFactory ) {
   store.globalConfigIs( 1000 );
   sm = RunnabilitySm::RunnabilitySmIs(
      store.configDir, store.agentConfigDir, store.allIntfConfigDir, store.allIntfStatusDir,
      store.allIntfStatusLocalDir, store.l3IntfStatusDir, store.allVrfStatusLocal,
      store.entityManager, store.statusDir, store.allVrf, store.allIntf );
   EXPECT_TRUE( sm->configSm() );
}

TEST_F( RunnabilitySmTest, StaleStatusEntriesAreGoneBeforeAnythingElse ) {
   store.statusDir->intfStatusIs( "Ethernet1" );
   store.statusDir->intfStatusIs( "Ethernet2" );
   store.globalConfigIs( 1000 );
   bool emptyWhenActive = false;
   auto const watch = onChange< Status::StatusDir::agentActiveAttr >(
      store.statusDir, [ & ] { emptyWhenActive = store.statusDir->intfStatuss() == 0; } );
   start();
   EXPECT_TRUE( emptyWhenActive );
   EXPECT_TRUE( store.statusDir->agentActive() );
   EXPECT_TRUE( sm->configSm() );
}

TEST_F( RunnabilitySmTest, ConfiguredAtTheStartItRuns ) {
   store.globalConfigIs( 1000 );
   start();
   ASSERT_TRUE( sm->configSm() );
   EXPECT_EQ( sm->configSm()->configDir(), store.configDir );
   EXPECT_EQ( sm->configSm()->agentConfigDir(), store.agentConfigDir );
   EXPECT_EQ( sm->configSm()->statusDir(), store.statusDir );
   EXPECT_EQ( sm->configSm()->allVrf(), store.allVrf );
   EXPECT_EQ( sm->configSm()->allIntf(), store.allIntf );
   EXPECT_THAT( traced(), ElementsAre( "0 " + handleInitialized + ": ",
                                       "0 " + handleGlobalConfig + ": " + configured(),
                                       "1 " + handleGlobalConfig + ": adding configSm" ) );
}

TEST_F( RunnabilitySmTest, NotConfiguredAtTheStartItIsIdleAndSaysSo ) {
   store.statusDir->agentActiveIs( true ); // left behind by a crash
   start();
   EXPECT_FALSE( sm->configSm() );
   EXPECT_FALSE( store.statusDir->agentActive() );
   EXPECT_THAT( traced(),
                ElementsAre( "0 " + handleInitialized + ": ", "0 " + handleGlobalConfig + ": null",
                             "1 " + handleGlobalConfig + ": removing configSm" ) );
}

TEST_F( RunnabilitySmTest, TheFlagIsRaisedBeforeTheReactorExistsAndClearedAfterItIsGone ) {
   start();
   std::vector< std::string > seen;
   auto const watch = onChange< Status::StatusDir::agentActiveAttr >( store.statusDir, [ & ] {
      seen.push_back( std::string( store.statusDir->agentActive() ? "active" : "inactive" ) +
                      ( sm->configSm() ? " with" : " without" ) );
   } );
   store.globalConfigIs( 1000 );
   store.globalConfigDel();
   EXPECT_THAT( seen, ElementsAre( "active without", "inactive without" ) );
}

TEST_F( RunnabilitySmTest, AnotherConfigurationChangesNothing ) {
   store.globalConfigIs( 1000 );
   start();
   auto const * const configSm = sm->configSm().get();
   trace.clear();
   store.globalConfigIs( 2000 );
   EXPECT_EQ( sm->configSm().get(), configSm );
   EXPECT_TRUE( store.statusDir->agentActive() );
   EXPECT_THAT( trace.texts(), ElementsAre( handleGlobalConfig + ": " + configured() ) );
}

TEST_F( RunnabilitySmTest, RemovedAndRestoredConfigurationMakesANewReactor ) {
   store.globalConfigIs( 1000 );
   start();
   auto const made = ConfigSm::quillAllocation.total;
   std::vector< bool > seen;
   auto const watch = onChange< Status::StatusDir::agentActiveAttr >(
      store.statusDir, [ & ] { seen.push_back( store.statusDir->agentActive() ); } );
   trace.clear();
   store.globalConfigDel();
   EXPECT_FALSE( sm->configSm() );
   EXPECT_EQ( ConfigSm::quillAllocation.live, 0u );
   store.globalConfigIs( 1000 );
   EXPECT_TRUE( sm->configSm() );
   EXPECT_EQ( ConfigSm::quillAllocation.total, made + 1 );
   EXPECT_THAT( seen, ElementsAre( false, true ) );
   EXPECT_THAT( traced(), ElementsAre( "0 " + handleGlobalConfig + ": null",
                                       "1 " + handleGlobalConfig + ": removing configSm",
                                       "0 " + handleGlobalConfig + ": " + configured(),
                                       "1 " + handleGlobalConfig + ": adding configSm" ) );
}

TEST_F( RunnabilitySmTest, ADirectoryThatIsActiveAlreadyGetsNoReactorUntilItWasCleared ) {
   store.statusDir->agentActiveIs( true );
   store.globalConfigIs( 1000 );
   start();
   EXPECT_FALSE( sm->configSm() );
   EXPECT_TRUE( store.statusDir->agentActive() );
   EXPECT_FALSE( trace.has( handleGlobalConfig + ": adding configSm" ) );
   store.globalConfigDel();
   EXPECT_FALSE( store.statusDir->agentActive() );
   store.globalConfigIs( 1000 );
   EXPECT_TRUE( sm->configSm() );
}

TEST_F( RunnabilitySmTest, RemovalIsTracedEveryTime ) {
   start();
   trace.clear();
   sm->handleGlobalConfig();
   sm->handleGlobalConfig();
   EXPECT_EQ( trace.count( handleGlobalConfig + ": removing configSm" ), 2u );
}

TEST_F( RunnabilitySmTest, BeforeInitializationItOnlyTraces ) {
   start();
   sm->initializedIs( false );
   trace.clear();
   store.globalConfigIs( 1000 );
   EXPECT_FALSE( sm->configSm() );
   EXPECT_FALSE( store.statusDir->agentActive() );
   EXPECT_THAT( traced(), ElementsAre( "0 " + handleGlobalConfig + ": " + configured(),
                                       "1 " + handleGlobalConfig + ": not initialized" ) );
}

TEST_F( RunnabilitySmTest, SwitchedOffItIsNotNotified ) {
   start();
   sm->hasNotificationActiveIs( false );
   trace.clear();
   store.globalConfigIs( 1000 );
   EXPECT_THAT( trace.texts(), IsEmpty() );
   sm->hasNotificationActiveIs( true );
   store.globalConfigIs( 2000 );
   EXPECT_TRUE( sm->configSm() );
}

TEST_F( RunnabilitySmTest, AsAZombieItIsSilentButItsReactorIsNot ) {
   store.globalConfigIs( 1000 );
   start();
   sm->quillDoZombieReactors( true );
   trace.clear();
   store.globalConfigDel();
   EXPECT_TRUE( sm->configSm() );
   EXPECT_THAT( trace.texts(), IsEmpty() );
   store.allIntf->intfMessageIs( "Ethernet1" );
   EXPECT_TRUE( store.allIntf->intfHas( "Ethernet1" ) );
   store.allIntf->intfMessageDel( "Ethernet1" );
}

TEST_F( RunnabilitySmTest, RemovedWhileTheFeatureStartsItIsTornDownAfterwards ) {
   start();
   bool alive = false;
   auto const watch = onChange< Status::StatusDir::agentActiveAttr >( store.statusDir, [ & ] {
      Quill::Reactor::retire( std::move( sm ) );
      alive = RunnabilitySm::quillAllocation.live == 1;
   } );
   store.globalConfigIs( 1000 );
   EXPECT_TRUE( alive ) << "it stays alive until its handler returns";
   EXPECT_EQ( RunnabilitySm::quillAllocation.live, 0u );
   EXPECT_EQ( ConfigSm::quillAllocation.live, 0u );
   EXPECT_TRUE( store.statusDir->agentActive() ) << "its destructor writes nothing";
}

TEST_F( RunnabilitySmTest, WatchesTheDirectoryThatItIsPointedTo ) {
   start();
   auto const other = Quill::make< Config::ConfigDir >();
   sm->configDirIs( other );
   EXPECT_EQ( sm->configDir(), other );
   store.globalConfigIs( 1000 );
   EXPECT_FALSE( sm->configSm() );
   other->globalConfigIs( Quill::make< Config::GlobalConfig >() );
   ASSERT_TRUE( sm->configSm() );
   EXPECT_EQ( sm->configSm()->configDir(), other );
   sm->configDirDel();
   other->globalConfigIs( nullptr );
   EXPECT_TRUE( sm->configSm() );
   sm->handleGlobalConfig(); // no directory: not configured
   EXPECT_FALSE( sm->configSm() );
}

TEST_F( RunnabilitySmTest, ItsEndTearsTheFeatureDownAndKeepsTheFlag ) {
   store.globalConfigIs( 1000 );
   start();
   trace.clear();
   sm = nullptr;
   EXPECT_TRUE( store.statusDir->agentActive() );
   EXPECT_EQ( ConfigSm::quillAllocation.live, 0u );
   EXPECT_TRUE(
      trace.has( "void Valen::ConfigSm::handleDestruction(): 0 intfStatus to clean up" ) );
   EXPECT_THAT( traced(), IsEmpty() );
   trace.clear();
   store.globalConfigDel();
   EXPECT_THAT( trace.texts(), IsEmpty() );
}

} // namespace
} // namespace Valen
