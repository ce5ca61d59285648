#include "tests/valend/DaemonFixture.h"

#include <random>

namespace Valend {
namespace {

using namespace Test;
using ::testing::ElementsAre;

class FeederTest : public DaemonFixture {};

TEST_F( FeederTest, AConfiguredInterfaceBecomesReady ) {
   start( twoInterfaces() );
   EXPECT_TRUE( ready( "Ethernet1" ) );
   EXPECT_TRUE( ready( "Ethernet2" ) );
   EXPECT_THAT( framesOf( "Ethernet1" ), ElementsAre( "default/7:a", "default/7:b" ) );
   EXPECT_THAT( framesOf( "Ethernet2" ), ElementsAre( "ns-red/7:c" ) );
}

TEST_F( FeederTest, TheConfigurationMayBeAppliedAfterTheLibraryStarts ) {
   kernel.netNsIs( "ns-red", "1:2" );
   kernel.deviceIs( "default", "et1", 7 );
   kernel.deviceIs( "ns-red", "et2", 8 );
   libraryStart();
   feeder.apply( twoInterfaces() );
   EXPECT_TRUE( ready( "Ethernet1" ) );
   EXPECT_TRUE( ready( "Ethernet2" ) );
}

TEST_F( FeederTest, TheFlagThatSurvivedACrashIsClearedBeforeTheLibraryStarts ) {
   store.statusDir->agentActiveIs( true );
   Conditions other;
   Feeder const next( store, kernel, clock.scheduler(), other );
   EXPECT_FALSE( store.statusDir->agentActive() );
}

TEST_F( FeederTest, ApplyingTheSameConfigurationChangesNothing ) {
   start( twoInterfaces() );
   auto const status = store.statusDir->intfStatus( "Ethernet1" );
   auto const message = store.messageDir( "lldp" )->message( "Ethernet1" );
   auto const l3 = store.l3IntfStatusDir->intfStatus( "Ethernet1" );
   auto const vrf = store.allVrfStatusLocal->vrf( "red" );
   feeder.apply( twoInterfaces() );
   EXPECT_EQ( store.statusDir->intfStatus( "Ethernet1" ), status );
   EXPECT_EQ( store.messageDir( "lldp" )->message( "Ethernet1" ), message );
   EXPECT_EQ( store.l3IntfStatusDir->intfStatus( "Ethernet1" ), l3 );
   EXPECT_EQ( store.allVrfStatusLocal->vrf( "red" ), vrf );
}

TEST_F( FeederTest, ChangesElsewhereDoNotDisturbARunningDelay ) {
   start( twoInterfaces() );
   store.allIntfConfigDir->intfConfig( "Ethernet1" )->adminShutdownDelayedIs( true );
   ASSERT_TRUE( delayed( "Ethernet1" ) );
   auto next = twoInterfaces();
   next.interfaces.erase( "Ethernet2" );
   next.agents[ "lldp" ].erase( "Ethernet2" );
   next.vrfs.clear();
   next.shutdownDelayMs = 1000;
   feeder.apply( next );
   EXPECT_TRUE( delayed( "Ethernet1" ) );
   advance( 501ms );
   EXPECT_FALSE( delayed( "Ethernet1" ) );
}

TEST_F( FeederTest, AChangedMessageIsANewEntityAndKeepsTheInterfaceReady ) {
   start( twoInterfaces() );
   auto const status = store.statusDir->intfStatus( "Ethernet1" );
   auto const message = store.messageDir( "lldp" )->message( "Ethernet1" );
   auto next = twoInterfaces();
   next.agents[ "lldp" ][ "Ethernet1" ] = { frame( 'x' ) };
   feeder.apply( next );
   EXPECT_NE( store.messageDir( "lldp" )->message( "Ethernet1" ), message );
   EXPECT_EQ( message->messages(), 2u ) << "the old one is never emptied";
   EXPECT_EQ( store.statusDir->intfStatus( "Ethernet1" ), status );
   EXPECT_THAT( framesOf( "Ethernet1" ), ElementsAre( "default/7:x" ) );
}

TEST_F( FeederTest, MessagesCanBeRemovedAndAddedAgain ) {
   start( twoInterfaces() );
   auto const l3 = store.l3IntfStatusDir->intfStatus( "Ethernet1" );
   auto next = twoInterfaces();
   next.agents[ "lldp" ].erase( "Ethernet1" );
   feeder.apply( next );
   EXPECT_FALSE( ready( "Ethernet1" ) );
   EXPECT_FALSE( store.allIntf->intfHas( "Ethernet1" ) );
   ASSERT_TRUE( store.l3IntfStatusDir->intfStatusHas( "Ethernet1" ) );
   EXPECT_NE( store.l3IntfStatusDir->intfStatus( "Ethernet1" ), l3 );
   feeder.apply( twoInterfaces() );
   EXPECT_TRUE( ready( "Ethernet1" ) );
   EXPECT_THAT( framesOf( "Ethernet1" ), ElementsAre( "default/7:a", "default/7:b" ) );
}

TEST_F( FeederTest, OneAgentsMessagesCanBeReplacedByAnothers ) {
   start( twoInterfaces() );
   auto next = twoInterfaces();
   next.agents.erase( "lldp" );
   next.agents[ "radv" ][ "Ethernet1" ] = { frame( 'r' ) };
   feeder.apply( next );
   EXPECT_TRUE( ready( "Ethernet1" ) );
   EXPECT_FALSE( ready( "Ethernet2" ) );
   EXPECT_THAT( framesOf( "Ethernet1" ), ElementsAre( "default/7:r" ) );
   feeder.apply( twoInterfaces() );
   EXPECT_THAT( framesOf( "Ethernet2" ), ElementsAre( "ns-red/7:c" ) );
}

TEST_F( FeederTest, TheFramesOfAllAgentsAreSent ) {
   auto config = twoInterfaces();
   config.agents[ "radv" ][ "Ethernet1" ] = { frame( 'r' ) };
   start( config );
   EXPECT_THAT( framesOf( "Ethernet1" ),
                ElementsAre( "default/7:a", "default/7:b", "default/7:r" ) );
   feeder.apply( twoInterfaces() );
   EXPECT_THAT( framesOf( "Ethernet1" ), ElementsAre( "default/7:a", "default/7:b" ) );
}

TEST_F( FeederTest, SupportIsChangedByANewConfigurationEntity ) {
   start( twoInterfaces() );
   auto const entity = store.allIntfConfigDir->intfConfig( "Ethernet1" );
   auto next = twoInterfaces();
   next.interfaces.at( "Ethernet1" ).shutdownDelay = false;
   feeder.apply( next );
   EXPECT_FALSE( ready( "Ethernet1" ) );
   EXPECT_NE( store.allIntfConfigDir->intfConfig( "Ethernet1" ), entity );
   EXPECT_TRUE( entity->adminShutdownDelaySupported() ) << "never changed in place";
   feeder.apply( twoInterfaces() );
   EXPECT_TRUE( ready( "Ethernet1" ) );
}

// valend may learn other goodbyes while a shutdown runs.
TEST_F( FeederTest, OtherGoodbyesDisturbNothing ) {
   start( twoInterfaces() );
   store.allIntfConfigDir->intfConfig( "Ethernet1" )->adminShutdownDelayedIs( true );
   ASSERT_TRUE( delayed( "Ethernet1" ) );
   auto const entity = store.allIntfConfigDir->intfConfig( "Ethernet2" );
   auto const status = store.statusDir->intfStatus( "Ethernet2" );
   auto const l3 = store.l3IntfStatusDir->intfStatus( "Ethernet2" );
   auto next = twoInterfaces();
   next.goodbyes = Settings::Goodbyes::learned();
   for ( auto const & goodbyes :
         { std::optional( Settings::Goodbyes() ), std::optional( Settings::Goodbyes::learned() ),
           std::optional( Settings::Goodbyes::of( { "lldp" } ) ),
           std::optional< Settings::Goodbyes >() } ) {
      for ( auto & [ name, interface ] : next.interfaces ) {
         interface.goodbyes = goodbyes;
      }
      feeder.apply( next );
      EXPECT_EQ( feeder.config(), next );
      EXPECT_TRUE( delayed( "Ethernet1" ) );
      EXPECT_EQ( store.allIntfConfigDir->intfConfig( "Ethernet2" ), entity );
      EXPECT_EQ( store.statusDir->intfStatus( "Ethernet2" ), status );
      EXPECT_EQ( store.l3IntfStatusDir->intfStatus( "Ethernet2" ), l3 );
      EXPECT_TRUE( ready( "Ethernet2" ) );
   }
   next.interfaces.at( "Ethernet2" ).device = "et9";
   next.interfaces.at( "Ethernet2" ).goodbyes = Settings::Goodbyes();
   feeder.apply( next );
   EXPECT_EQ( feeder.config(), next );
   EXPECT_NE( store.l3IntfStatusDir->intfStatus( "Ethernet2" ), l3 );
}

TEST_F( FeederTest, AnInterfaceCanMoveToAnotherVrf ) {
   start( twoInterfaces() );
   kernel.deviceIs( "ns-red", "et1", 9 );
   auto next = twoInterfaces();
   next.interfaces.at( "Ethernet1" ).vrf = "red";
   feeder.apply( next );
   EXPECT_TRUE( ready( "Ethernet1" ) );
   EXPECT_THAT( framesOf( "Ethernet1" ), ElementsAre( "ns-red/9:a", "ns-red/9:b" ) );
   feeder.apply( twoInterfaces() );
   EXPECT_THAT( framesOf( "Ethernet1" ), ElementsAre( "default/7:a", "default/7:b" ) );
}

TEST_F( FeederTest, AnInterfaceCanMoveToAnotherDevice ) {
   start( twoInterfaces() );
   kernel.deviceIs( "default", "et9", 9 );
   auto next = twoInterfaces();
   next.interfaces.at( "Ethernet1" ).device = "et9";
   feeder.apply( next );
   EXPECT_THAT( framesOf( "Ethernet1" ), ElementsAre( "default/9:a", "default/9:b" ) );
}

TEST_F( FeederTest, AVrfCanGetAnotherNamespace ) {
   start( twoInterfaces() );
   kernel.netNsIs( "ns-new", "1:3" );
   kernel.deviceIs( "ns-new", "et2", 11 );
   auto const entry = store.allVrfStatusLocal->vrf( "red" );
   auto next = twoInterfaces();
   next.vrfs[ "red" ] = "ns-new";
   feeder.apply( next );
   EXPECT_NE( store.allVrfStatusLocal->vrf( "red" ), entry );
   EXPECT_THAT( framesOf( "Ethernet2" ), ElementsAre( "ns-new/11:c" ) );
}

TEST_F( FeederTest, TwoVrfsCanSwapTheirNamespaces ) {
   auto config = twoInterfaces();
   config.vrfs[ "blue" ] = "ns-blue";
   config.interfaces.at( "Ethernet1" ).vrf = "blue";
   kernel.netNsIs( "ns-blue", "1:3" );
   kernel.deviceIs( "ns-blue", "et1", 5 );
   start( config );
   ASSERT_THAT( framesOf( "Ethernet1" ), ElementsAre( "ns-blue/5:a", "ns-blue/5:b" ) );
   kernel.deviceIs( "ns-red", "et1", 15 );
   kernel.deviceIs( "ns-blue", "et2", 16 );
   std::swap( config.vrfs[ "blue" ], config.vrfs[ "red" ] );
   feeder.apply( config );
   EXPECT_THAT( framesOf( "Ethernet1" ), ElementsAre( "ns-red/15:a", "ns-red/15:b" ) );
   EXPECT_THAT( framesOf( "Ethernet2" ), ElementsAre( "ns-blue/16:c" ) );
}

TEST_F( FeederTest, TheDelayCanBeDisabledAndEnabled ) {
   start( twoInterfaces() );
   auto off = twoInterfaces();
   off.shutdownDelayMs.reset();
   feeder.apply( off );
   EXPECT_FALSE( store.statusDir->agentActive() );
   EXPECT_EQ( store.statusDir->intfStatuss(), 0u );
   feeder.apply( twoInterfaces() );
   EXPECT_TRUE( store.statusDir->agentActive() );
   EXPECT_TRUE( ready( "Ethernet1" ) );
   EXPECT_TRUE( ready( "Ethernet2" ) );
}

TEST_F( FeederTest, EverythingCanBeRemoved ) {
   start( twoInterfaces() );
   feeder.apply( Settings::Config() );
   EXPECT_EQ( store.allIntfConfigDir->intfConfigs(), 0u );
   EXPECT_EQ( store.allIntfStatusDir->intfStatuss(), 0u );
   EXPECT_EQ( store.allIntfStatusLocalDir->intfStatusLocals(), 0u );
   EXPECT_EQ( store.l3IntfStatusDir->intfStatuss(), 0u );
   EXPECT_EQ( store.allVrfStatusLocal->vrfs(), 0u );
   EXPECT_EQ( store.agentConfigDir->entrys(), 0u );
}

// --- Histories -----------------------------------------------------------------------------------

// Whatever the configurations before, the active one decides what is ready.
TEST_F( FeederTest, RandomChangesEndWhereTheLastConfigurationSays ) {
   std::mt19937 random( 20261121 );
   auto const pick = [ & ]( unsigned below ) {
      return static_cast< unsigned >( random() % below );
   };
   std::vector< std::string > const vrfs{ "default", "blue", "green", "red" };
   std::vector< std::string > const spaces{ "ns-a", "ns-b", "ns-c", "ns-d" };
   start( Settings::Config() );
   for ( U32 i = 0; i < 4; ++i ) {
      kernel.netNsIs( spaces[ i ], "2:" + std::to_string( i ) );
      for ( U32 d = 0; d < 4; ++d ) {
         kernel.deviceIs( spaces[ i ], "et" + std::to_string( d ), 100 + d );
         kernel.deviceIs( "default", "et" + std::to_string( d ), 100 + d );
      }
   }
   for ( int round = 0; round < 1000; ++round ) {
      Settings::Config config;
      if ( pick( 6 ) ) {
         config.shutdownDelayMs = static_cast< U16 >( pick( 100 ) );
      }
      auto free = spaces;
      std::shuffle( free.begin(), free.end(), random );
      for ( std::size_t v = 1; v < vrfs.size(); ++v ) {
         if ( pick( 4 ) ) {
            config.vrfs[ vrfs[ v ] ] = free[ v ];
         }
      }
      for ( unsigned d = 0; d < 4; ++d ) {
         auto const vrf = vrfs[ pick( 4 ) ];
         if ( pick( 5 ) && ( vrf == "default" || config.vrfs.contains( vrf ) ) ) {
            auto const name = "Ethernet" + std::to_string( d );
            config.interfaces[ name ] = { name, "et" + std::to_string( d ), vrf, pick( 4 ) != 0 };
            for ( auto const * agent : { "lldp", "radv" } ) {
               if ( pick( 3 ) ) {
                  config.agents[ agent ][ name ] = {
                     frame( static_cast< char >( 'a' + pick( 3 ) ) ) };
               }
            }
         }
      }
      feeder.apply( config );
      if ( pick( 3 ) == 0 ) {
         feeder.namespaceChanged( spaces[ pick( 4 ) ] );
      }
      for ( auto const & [ name, interface ] : config.interfaces ) {
         bool const expected =
            config.shutdownDelayMs && interface.shutdownDelay && config.hasFrames( name );
         ASSERT_EQ( ready( name ), expected ) << name << " in round " << round;
         if ( pick( 3 ) == 0 ) {
            store.allIntfConfigDir->intfConfig( name )->adminShutdownDelayedIs( pick( 2 ) );
         }
      }
      advance( std::chrono::milliseconds( pick( 3 ) ) );
   }
   EXPECT_EQ( faults.count(), 0u );
}

// --- In steps ------------------------------------------------------------------------------------

class FeederStepsTest : public DaemonFixture {
 protected:
   void begin( Settings::Config const & config ) {
      feeder.begin( std::make_shared< Plan const >( config ) );
   }
   void finish() {
      while ( feeder.step() ) {
      }
      turn();
   }
};

TEST_F( FeederStepsTest, WhatDoesNotChangeIsReadyAllTheTime ) {
   auto config = twoInterfaces();
   for ( int i = 0; i < 20; ++i ) {
      auto const name = "Port" + std::to_string( i );
      config.interfaces[ name ] = { name, name, "red", true };
      config.agents[ "lldp" ][ name ] = { frame( 'p' ) };
   }
   start( config );
   for ( auto & [ name, interface ] : config.interfaces ) {
      interface.shutdownDelay = name != "Port7";
   }
   config.agents[ "lldp" ][ "Ethernet2" ] = { frame( 'd' ) };
   begin( config );
   unsigned steps = 0;
   for ( ; feeder.step(); ++steps ) {
      ASSERT_TRUE( ready( "Ethernet1" ) );
      ASSERT_TRUE( ready( "Ethernet2" ) ) << "its frames are exchanged in one step";
   }
   EXPECT_GT( steps, 40u );
   EXPECT_EQ( feeder.config(), config );
   EXPECT_THAT( framesOf( "Ethernet2" ), ::testing::ElementsAre( "ns-red/7:d" ) );
}

// Devices that two interfaces exchange never belong to both.
TEST_F( FeederStepsTest, NoDeviceBelongsToTwoInterfacesOnTheWay ) {
   auto config = twoInterfaces();
   config.interfaces[ "Ethernet3" ] = { "Ethernet3", "et3", "default", true };
   config.vrfs[ "blue" ] = "ns-blue";
   start( config );
   std::swap( config.interfaces[ "Ethernet1" ].device, config.interfaces[ "Ethernet3" ].device );
   std::swap( config.vrfs[ "blue" ], config.vrfs[ "red" ] );
   config.interfaces[ "Ethernet4" ] = { "Ethernet4", "et2", "blue", true };
   begin( config );
   do {
      std::set< std::pair< std::string, std::string > > places;
      for ( auto const & [ name, interface ] : feeder.config().interfaces ) {
         ASSERT_TRUE(
            places.emplace( feeder.config().netNsOf( interface.vrf ), interface.device ).second )
            << name;
      }
   } while ( feeder.step() );
   EXPECT_EQ( feeder.config(), config );
}

TEST_F( FeederStepsTest, FramesThatChangeMeanwhileAreThoseThatStay ) {
   std::map< std::string, Settings::Frames > published;
   feeder.additionalIs( [ & ]( auto const & interface ) {
      return interface == "Ethernet1" ? published : decltype( published )();
   } );
   auto config = twoInterfaces();
   start( config );
   config.agents.clear();
   config.interfaces[ "Ethernet1" ].device = "et9";
   kernel.deviceIs( "default", "et9", 9 );
   for ( unsigned before = 0; before < 20; ++before ) {
      config.interfaces[ "Ethernet1" ].device = before % 2 ? "et1" : "et9";
      published.clear();
      begin( config );
      for ( unsigned i = 0; i < before && feeder.step(); ++i ) {
      }
      published[ "radv" ] = { frame( static_cast< char >( 'a' + before ) ) };
      feeder.framesChanged( "Ethernet1" );
      finish();
      EXPECT_TRUE( ready( "Ethernet1" ) ) << before;
      EXPECT_EQ( feeder.config().agents.at( "radv" ).at( "Ethernet1" ), published.at( "radv" ) );
      EXPECT_EQ( framesOf( "Ethernet1" ).size(), 1u );
   }
}

} // namespace
} // namespace Valend
