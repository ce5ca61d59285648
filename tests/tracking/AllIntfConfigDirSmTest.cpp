#include "tracking/AllIntfConfigDirSm.h"

#include "tests/support/LeakCheck.h"
#include "tests/support/OnChange.h"
#include "tests/support/TraceCapture.h"

#include <gmock/gmock.h>

namespace Valen {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class AllIntfConfigDirSmTest : public testing::Test, protected Valen::Test::LeakCheck {
 protected:
   static constexpr char const * handleIntfConfig =
      "void Valen::AllIntfConfigDirSm::handleIntfConfig(Corvid::IntfId)";

   // Publishes the complete configuration of an interface.
   Quill::Ptr< Interface::IntfConfig > configure( char const * intfId, bool supported = true ) {
      auto const intfConfig = Quill::make< Interface::IntfConfig >( intfId );
      intfConfig->adminShutdownDelaySupportedIs( supported );
      configDir->intfConfigAdd( intfConfig );
      return intfConfig;
   }
   Quill::Ptr< Intf > addIntf( char const * intfId ) {
      return allIntf->intfIs( intfId,
                              Quill::Ptr< IntfMessage const >( allIntf->intfMessageIs( intfId ) ) );
   }
   void start() { sm = allIntfConfigDirSmFactory( configDir, allIntf ); }

   Quill::Ptr< Interface::AllIntfConfigDir > const configDir =
      Quill::make< Interface::AllIntfConfigDir >();
   Quill::Ptr< AllIntf > const allIntf = allIntfFactory();
   Valen::Test::TraceCapture trace;
   Quill::Ptr< AllIntfConfigDirSm > sm;
};

TEST_F( AllIntfConfigDirSmTest, KeepsWhatItWasMadeFrom ) {
   start();
   EXPECT_EQ( sm->allIntfConfigDir(), configDir );
   EXPECT_EQ( sm->allIntf(), allIntf );
   EXPECT_STREQ( sm->reactorName(), "AllIntfConfigDirSm" );
}

TEST_F( AllIntfConfigDirSmTest, ReplaysTheConfigurationsThatExist ) {
   auto const intf = addIntf( "Ethernet1" );
   addIntf( "Ethernet3" ); // without a configuration: not visited
   auto const intfConfig = configure( "Ethernet1" );
   configure( "Ethernet2" );
   start();
   EXPECT_EQ( intf->intfConfig(), intfConfig );
   EXPECT_THAT(
      trace.texts(),
      ElementsAre(
         "void Valen::AllIntfConfigDirSm::handleInitialized(): ",
         "void Valen::AllIntfConfigDirSm::handleIntfConfig(Corvid::IntfId): Ethernet1",
         "void Valen::AllIntfConfigDirSm::handleIntfConfig(Corvid::IntfId): adding",
         "void Valen::AllIntfConfigDirSm::handleIntfConfig(Corvid::IntfId): Ethernet2",
         "void Valen::AllIntfConfigDirSm::handleIntfConfig(Corvid::IntfId): intf not present" ) );
   for ( auto const & line : trace.lines() ) {
      EXPECT_EQ( line.unit, "AllIntfConfigDirSm" );
   }
   EXPECT_EQ( trace.texts( 1 ).size(), 2u );
   EXPECT_EQ( trace.texts( 0 ).size(), 3u );
}

TEST_F( AllIntfConfigDirSmTest, ConfigurationBeforeTheInterfaceIsLinkedWhenTheInterfaceIsAdded ) {
   start();
   auto const intfConfig = configure( "Ethernet1" );
   EXPECT_THAT( trace.messages( handleIntfConfig ),
                ElementsAre( "Ethernet1", "intf not present" ) );
   trace.clear();
   auto const intf = addIntf( "Ethernet1" );
   EXPECT_EQ( intf->intfConfig(), intfConfig );
   EXPECT_THAT( trace.messages( handleIntfConfig ), ElementsAre( "Ethernet1", "adding" ) );
}

TEST_F( AllIntfConfigDirSmTest, InterfaceBeforeTheConfigurationIsLinkedWhenItIsConfigured ) {
   start();
   auto const intf = addIntf( "Ethernet1" );
   EXPECT_FALSE( intf->intfConfig() );
   trace.clear();
   auto const intfConfig = configure( "Ethernet1" );
   EXPECT_EQ( intf->intfConfig(), intfConfig );
   EXPECT_THAT( trace.messages( handleIntfConfig ), ElementsAre( "Ethernet1", "adding" ) );
}

TEST_F( AllIntfConfigDirSmTest, AnInterfaceAloneHasTheConfigurationThatItLacksRemoved ) {
   start();
   trace.clear();
   addIntf( "Ethernet1" );
   EXPECT_THAT( trace.messages( handleIntfConfig ), ElementsAre( "Ethernet1", "removing" ) );
}

TEST_F( AllIntfConfigDirSmTest, UnsupportedConfigurationIsNotLinked ) {
   start();
   auto const intf = addIntf( "Ethernet1" );
   trace.clear();
   configure( "Ethernet1", false );
   EXPECT_FALSE( intf->intfConfig() );
   EXPECT_THAT( trace.messages( handleIntfConfig ),
                ElementsAre( "Ethernet1", "interface does not support adminShutdownDelay" ) );
}

TEST_F( AllIntfConfigDirSmTest, UnsupportedConfigurationIsTracedWithoutTheInterfaceToo ) {
   start();
   trace.clear();
   configure( "Ethernet1", false );
   EXPECT_THAT( trace.messages( handleIntfConfig ),
                ElementsAre( "Ethernet1", "interface does not support adminShutdownDelay" ) );
}

TEST_F( AllIntfConfigDirSmTest, AChangeOfTheFlagAloneIsNotSeenButTheNextNotificationReadsIt ) {
   start();
   auto const intf = addIntf( "Ethernet1" );
   auto const intfConfig = configure( "Ethernet1" );
   trace.clear();
   intfConfig->adminShutdownDelaySupportedIs( false );
   EXPECT_THAT( trace.texts(), IsEmpty() );
   EXPECT_EQ( intf->intfConfig(), intfConfig );
   sm->handleIntfConfig( "Ethernet1" );
   EXPECT_FALSE( intf->intfConfig() );
   EXPECT_THAT( trace.messages( handleIntfConfig ),
                ElementsAre( "Ethernet1", "interface does not support adminShutdownDelay" ) );
}

TEST_F( AllIntfConfigDirSmTest, RemovedConfigurationIsUnlinked ) {
   start();
   auto const intf = addIntf( "Ethernet1" );
   configure( "Ethernet1" );
   trace.clear();
   configDir->intfConfigDel( "Ethernet1" );
   EXPECT_FALSE( intf->intfConfig() );
   EXPECT_THAT( trace.messages( handleIntfConfig ), ElementsAre( "Ethernet1", "removing" ) );
}

TEST_F( AllIntfConfigDirSmTest, RemovedConfigurationWithoutInterfaceIsSilent ) {
   start();
   configure( "Ethernet1" );
   trace.clear();
   configDir->intfConfigDel( "Ethernet1" );
   EXPECT_THAT( trace.texts(), ElementsAre( std::string( handleIntfConfig ) + ": Ethernet1" ) );
}

TEST_F( AllIntfConfigDirSmTest, RemovedInterfaceWithConfigurationChangesNothing ) {
   start();
   auto const intf = addIntf( "Ethernet1" );
   auto const intfConfig = configure( "Ethernet1" );
   trace.clear();
   allIntf->intfDel( "Ethernet1" );
   EXPECT_EQ( intf->intfConfig(), intfConfig );
   EXPECT_THAT( trace.messages( handleIntfConfig ),
                ElementsAre( "Ethernet1", "intf not present" ) );
}

TEST_F( AllIntfConfigDirSmTest, ReplacedConfigurationIsLinkedInstead ) {
   start();
   auto const intf = addIntf( "Ethernet1" );
   configure( "Ethernet1" );
   configDir->intfConfigDel( "Ethernet1" );
   auto const other = configure( "Ethernet1" );
   EXPECT_EQ( intf->intfConfig(), other );
}

TEST_F( AllIntfConfigDirSmTest, DecisionsAreLevelOneAndTracedBeforeTheyAreActedOn ) {
   start();
   configure( "Ethernet1" );
   auto const intf = addIntf( "Ethernet1" );
   std::vector< std::string > seen;
   auto const watch = Valen::Test::onChange< Intf::intfConfigAttr >(
      intf, [ & ] { seen.push_back( trace.lines().back().text ); } );
   configDir->intfConfigDel( "Ethernet1" );
   configure( "Ethernet1" );
   allIntf->intfDel( "Ethernet1" );
   configDir->intfConfigDel( "Ethernet1" ); // silent
   configure( "Ethernet1", false );
   std::string const signature = std::string( handleIntfConfig ) + ": ";
   EXPECT_THAT( seen, ElementsAre( signature + "removing", signature + "adding" ) );
   EXPECT_THAT( trace.texts( 1 ),
                ElementsAre( signature + "intf not present", signature + "adding",
                             signature + "removing", signature + "adding",
                             signature + "intf not present",
                             signature + "interface does not support adminShutdownDelay" ) );
   EXPECT_EQ( trace.texts( 0 ).size(), 1u + 7u ) << "the start, and each entry";
}

TEST_F( AllIntfConfigDirSmTest, DestructionUnlinksEveryInterface ) {
   start();
   auto const linked = addIntf( "Ethernet1" );
   auto const never = addIntf( "Ethernet2" );
   configure( "Ethernet1" );
   trace.clear();
   sm = nullptr;
   EXPECT_FALSE( linked->intfConfig() );
   EXPECT_FALSE( never->intfConfig() );
   EXPECT_THAT( trace.texts(),
                ElementsAre( "void Valen::AllIntfConfigDirSm::handleDestruction(): " ) );
   EXPECT_EQ( trace.lines().front().level, 0 );
   configDir->intfConfigDelAll(); // has no effect
   EXPECT_EQ( trace.texts().size(), 1u );
}

TEST_F( AllIntfConfigDirSmTest, WatchesWhatItIsPointedTo ) {
   start();
   auto const intf = addIntf( "Ethernet1" );
   auto const otherDir = Quill::make< Interface::AllIntfConfigDir >();
   sm->allIntfConfigDirIs( otherDir );
   configure( "Ethernet1" );
   EXPECT_FALSE( intf->intfConfig() );
   auto const intfConfig = Quill::make< Interface::IntfConfig >( "Ethernet1" );
   intfConfig->adminShutdownDelaySupportedIs( true );
   otherDir->intfConfigAdd( intfConfig );
   EXPECT_EQ( intf->intfConfig(), intfConfig );

   auto const otherModel = allIntfFactory();
   sm->allIntfIs( otherModel );
   auto const other = otherModel->intfIs( "Ethernet1", Quill::Ptr< IntfMessage const >() );
   EXPECT_EQ( other->intfConfig(), intfConfig );
}

TEST_F( AllIntfConfigDirSmTest, WatchesNothingOnceItsEntitiesAreTakenAway ) {
   start();
   auto const intf = addIntf( "Ethernet1" );
   auto const intfConfig = configure( "Ethernet1" );
   sm->allIntfConfigDirDel();
   sm->allIntfDel();
   EXPECT_FALSE( sm->allIntfConfigDir() );
   EXPECT_FALSE( sm->allIntf() );
   trace.clear();
   configDir->intfConfigDel( "Ethernet1" );
   EXPECT_THAT( trace.texts(), IsEmpty() );
   sm->handleInitialized();
   sm->handleIntfConfig( "Ethernet1" );
   sm = nullptr;
   EXPECT_EQ( intf->intfConfig(), intfConfig );
}

TEST_F( AllIntfConfigDirSmTest, SwitchedOffItIsNotNotified ) {
   start();
   auto const intf = addIntf( "Ethernet1" );
   sm->hasNotificationActiveIs( false );
   configure( "Ethernet1" );
   addIntf( "Ethernet2" );
   EXPECT_FALSE( intf->intfConfig() );
   EXPECT_THAT( trace.messages( handleIntfConfig ), ElementsAre( "Ethernet1", "removing" ) );
}

} // namespace
} // namespace Valen
