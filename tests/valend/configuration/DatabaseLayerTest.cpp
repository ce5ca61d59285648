#include "tests/valend/configuration/DatabaseLayerFixture.h"

#include <random>

namespace Valend {
namespace {

using namespace Test;

class DatabaseLayerTest : public DatabaseLayerFixture {};

TEST_F( DatabaseLayerTest, NothingIsAppliedBeforeEverythingWasRead ) {
   start( "interfaces: [{name: Ethernet1, device: et1}]\n" );
   applications = 0;
   layer->entityIs( "config:interface:Ethernet2", { { "device", "et2" } } );
   layer->entityIs( "config:delay", { { "shutdown-delay-ms", "70" } } );
   layer->entityIs( "want:Ethernet1", { { "link", "down" } } );
   for ( int i = 0; i < 50; ++i ) {
      oneTurn();
   }
   EXPECT_EQ( applications, 0 );
   EXPECT_FALSE( layer->settled() );
   layer->complete();
   settle();
   EXPECT_EQ( applications, 1 );
   EXPECT_EQ( settled, 1 );
   EXPECT_EQ(
      active(),
      yaml( "shutdown-delay-ms: 70\n"
            "interfaces: [{name: Ethernet1, device: et1}, {name: Ethernet2, device: et2}]\n" ) );
   EXPECT_EQ( *configurator->files(), Settings::readConfig( files / "valen.yaml" ).config );
   EXPECT_TRUE( configurator->active().sources->interfaces.at( "Ethernet2" ).inDatabase );
   EXPECT_FALSE( configurator->active().sources->interfaces.at( "Ethernet1" ).inDatabase );
}

TEST_F( DatabaseLayerTest, ChangesOfAMomentAreAppliedTogether ) {
   start( "" );
   layer->complete();
   settle();
   applications = 0;
   for ( int i = 0; i < 100; ++i ) {
      layer->entityIs( "config:interface:e" + std::to_string( i ), {} );
   }
   layer->entityGone( "config:interface:e7" );
   settle();
   EXPECT_EQ( applications, 1 );
   EXPECT_EQ( changed.size(), 99u );
   EXPECT_EQ( feeder.config().interfaces.size(), 99u );
   layer->entityIs( "config:interface:e1", {} ); // the same value
   settle();
   EXPECT_EQ( applications, 1 );
   layer->entityGone( "config:interface:e2" );
   until( [ & ] { return applications == 2; } );
   layer->entityGone( "config:interface:e3" ); // while that is being applied
   settle();
   EXPECT_EQ( applications, 3 );
   EXPECT_EQ( feeder.config().interfaces.size(), 97u );
}

TEST_F( DatabaseLayerTest, ARejectionIsToldOnceAndWhenItIsOver ) {
   start( "" );
   layer->complete();
   ::testing::internal::CaptureStderr();
   layer->entityIs( "config:interface:e1", { { "vrf", "red" } } );
   settle();
   EXPECT_THAT( ::testing::internal::GetCapturedStderr(),
                HasSubstr( "config:interface:e1 rejected: unknown VRF \"red\"" ) );
   layer->entityIs( "config:interface:e2", {} );
   settle();
   EXPECT_THAT(
      told, ElementsAre( "config:interface:e1: unknown VRF \"red\"; expected \"default\" or one of "
                         "\"vrfs\"" ) );
   layer->entityIs( "config:vrf:red", { { "namespace", "ns-red" } } );
   settle();
   EXPECT_EQ( told.back(), "config:interface:e1: " );
   EXPECT_EQ( active(), yaml( "vrfs: [{name: red, namespace: ns-red}]\n"
                              "interfaces: [{name: e1, vrf: red}, {name: e2}]\n" ) );
}

TEST_F( DatabaseLayerTest, AReloadKeepsTheLayerAndReadsTheFilesOnly ) {
   start( "interfaces: [{name: e1}]\n" );
   layer->complete();
   layer->entityIs( "config:interface:e2", {} );
   settle();
   files.write( "valen.yaml", "interfaces: [{name: e3}, {name: e4, device: e2}]\n" );
   layer->entityIs( "config:delay", { { "shutdown-delay-ms", "9" } } );
   settle();
   EXPECT_TRUE( feeder.config().interfaces.contains( "e1" ) ) << "the files were not read again";
   reload();
   for ( int i = 0; i < 20; ++i ) {
      oneTurn();
   }
   EXPECT_EQ( active(), yaml( "shutdown-delay-ms: 9\n"
                              "interfaces: [{name: e3}, {name: e4, device: e2}]\n" ) );
   EXPECT_THAT( rejected.at( "config:interface:e2" ),
                HasSubstr( "already used by interface \"e4\"" ) );
   files.write( "valen.yaml", "interfaces: [{name: e3, x: y}]\n" );
   reload(); // which is rejected
   layer->entityGone( "config:delay" );
   settle();
   EXPECT_EQ( active(), yaml( "interfaces: [{name: e3}, {name: e4, device: e2}]\n" ) );
}

TEST_F( DatabaseLayerTest, ARestartWithoutTheServerBeginsWithWhatWasValidLast ) {
   start( "interfaces: [{name: e1}]\n" );
   layer->complete();
   layer->entityIs( "config:interface:e2", { { "device", "et1" } } );
   layer->entityIs( "config:interface:e3", {} );
   layer->entityIs( "frames:lldp:e2", framesOf( "x" ) );
   settle();
   layer->entityIs( "config:interface:e3", { { "device", "a b" } } );
   settle();
   auto const before = active();
   stop();
   feeder.apply( {} );
   rejected.clear();

   start( "interfaces: [{name: e1}]\n" );
   EXPECT_EQ( active(), before );
   EXPECT_EQ( inForce( "e2" ), "x" );
   EXPECT_FALSE( layer->settled() );
   applications = 0;
   layer->entityIs( "config:interface:e3", { { "device", "a b" } } );
   layer->entityIs( "frames:bgp:e1", framesOf( "y" ) );
   EXPECT_EQ( active().substr( 0, active().find( "agents" ) ),
              before.substr( 0, before.find( "agents" ) ) );
   layer->complete();
   settle();
   EXPECT_EQ( applications, 1 );
   EXPECT_TRUE( feeder.config().interfaces.contains( "e3" ) ) << "its last valid value stays";
   EXPECT_FALSE( feeder.config().interfaces.contains( "e2" ) ) << "it has gone";
   EXPECT_TRUE( publications->messagesFor( "e2" ).empty() );
   EXPECT_EQ( inForce( "e1" ), "y" );
}

TEST_F( DatabaseLayerTest, AnotherDatabaseReplacesTheOneBefore ) {
   start( "" );
   layer->complete();
   layer->entityIs( "config:interface:e1", {} );
   layer->entityIs( "frames:lldp:e1", framesOf( "x" ) );
   settle();
   layer->restart( "other prefix" );
   layer->entityIs( "config:interface:e2", {} );
   for ( int i = 0; i < 20; ++i ) {
      oneTurn();
   }
   EXPECT_TRUE( feeder.config().interfaces.contains( "e1" ) );
   EXPECT_FALSE( feeder.config().interfaces.contains( "e2" ) );
   layer->complete();
   settle();
   EXPECT_EQ( active(), yaml( "interfaces: [{name: e2}]\n" ) );
   EXPECT_TRUE( publications->messages().empty() );
   layer->clear();
   settle();
   EXPECT_EQ( active(), yaml( "" ) );
   stop();
   start( "" ); // of the first one
   EXPECT_EQ( active(), yaml( "" ) );
}

TEST_F( DatabaseLayerTest, WhatIsBeingCollectedIsNotOfAnotherDatabase ) {
   start( "" );
   layer->complete();
   layer->entityIs( "config:interface:e1", {} );
   settle();
   layer->entityIs( "config:interface:e2", {} );
   layer->restart( "other prefix" );
   for ( int i = 0; i < 20; ++i ) {
      oneTurn();
   }
   EXPECT_EQ( active(), yaml( "interfaces: [{name: e1}]\n" ) ) << "nothing was read yet";
   layer->complete();
   settle();
   EXPECT_EQ( active(), yaml( "" ) );
   layer->entityIs( "config:interface:e3", {} );
   settle();
   stop();
   feeder.apply( {} );
   start( "" ); // of the first one
   EXPECT_EQ( active(), yaml( "" ) );
}

TEST_F( DatabaseLayerTest, AnotherDatabaseMayComeWhileOneIsApplied ) {
   start( "" );
   for ( bool const isEmptyAtOnce : { true, false } ) {
      layer->complete();
      settle();
      applications = 0;
      layer->entityIs( "config:interface:e1", {} );
      until( [ & ] { return applications == 1; } );
      settled = 0;
      layer->restart( "other prefix" );
      if ( isEmptyAtOnce ) {
         layer->complete();
      } else {
         for ( int i = 0; i < 20; ++i ) {
            oneTurn();
         }
         EXPECT_EQ( settled, 0 ) << "it was not read yet";
         layer->complete();
      }
      settle();
      EXPECT_EQ( active(), yaml( "" ) );
   }
}

TEST_F( DatabaseLayerTest, FramesAreKeptOverRestartsUntilTheyAreGone ) {
   std::string const text = "interfaces: [{name: e1}, {name: e2}]\n";
   auto const restart = [ & ] {
      stop();
      feeder.apply( {} );
      start( text );
   };
   auto leased = framesOf( "x" );
   leased[ "lease" ] = "agents:bgp";
   start( text );
   layer->complete();
   layer->entityIs( "frames:bgp:e1", leased );
   layer->leaseIs( "agents:bgp", true );
   layer->entityIs( "frames:lldp:e2", framesOf( "y" ) );
   settle();
   for ( int i = 0; i < 2; ++i ) { // without the server, whose lease is not known
      restart();
      EXPECT_EQ( inForce( "e1" ), "x" );
      EXPECT_EQ( inForce( "e2" ), "y" );
   }
   layer->entityIs( "frames:bgp:e1", leased );
   layer->complete();
   settle();
   EXPECT_EQ( inForce( "e1" ), "x" );
   EXPECT_EQ( inForce( "e2" ), "" );
   restart();
   EXPECT_EQ( inForce( "e1" ), "x" );
   EXPECT_EQ( inForce( "e2" ), "" );
   layer->leaseIs( "agents:bgp", false );
   EXPECT_EQ( inForce( "e1" ), "" );
}

TEST_F( DatabaseLayerTest, AfterItsEndTheConfiguratorGoesOn ) {
   start( "" );
   layer->complete();
   settle();
   layer.reset();
   files.write( "valen.yaml", "interfaces: [{name: e1}]\n" );
   ::testing::internal::CaptureStderr();
   bool done = false;
   configurator->reload( [ & ]( auto const & ) { done = true; } );
   for ( auto const end = std::chrono::steady_clock::now() + 30s;
         !done && std::chrono::steady_clock::now() < end; ) {
      oneTurn();
   }
   ::testing::internal::GetCapturedStderr();
   EXPECT_TRUE( done );
}

TEST_F( DatabaseLayerTest, TenThousandInterfacesAreOneApplication ) {
   start( "" );
   auto const began = std::chrono::steady_clock::now();
   for ( int i = 0; i < 10000; ++i ) {
      layer->entityIs( "config:interface:Ethernet" + std::to_string( i ),
                       { { "device", "et" + std::to_string( i ) }, { "shutdown-delay", "true" } } );
   }
   layer->complete();
   applications = 0;
   std::chrono::nanoseconds longest{ 0 };
   ::testing::internal::CaptureStderr(); // a line for each
   while ( !layer->settled() && std::chrono::steady_clock::now() < began + 60s ) {
      auto const turn = std::chrono::steady_clock::now();
      loop->turn( 0ms );
      longest = std::max( longest, std::chrono::steady_clock::now() - turn );
      clock.advance( 1ms );
   }
   ::testing::internal::GetCapturedStderr();
   auto const took = std::chrono::steady_clock::now() - began;
   RecordProperty( "took_ms", static_cast< int >( took / 1ms ) );
   RecordProperty( "longest_turn_us", static_cast< int >( longest / 1us ) );
   EXPECT_EQ( applications, 1 );
   EXPECT_EQ( feeder.config().interfaces.size(), 10000u );
}

// --- Any history ---------------------------------------------------------------------------------

class DatabaseLayerHistory : public DatabaseLayerFixture,
                             public ::testing::WithParamInterface< unsigned > {};

TEST_P( DatabaseLayerHistory, ComesToWhatAFreshStartReads ) {
   std::mt19937 random( GetParam() );
   auto const any = [ & ]( Lines const & of ) {
      return of[ std::uniform_int_distribution< std::size_t >( 0, of.size() - 1 )( random ) ];
   };
   start( "" );
   layer->complete();
   Settings::Entities present;
   std::string text;
   ::testing::internal::CaptureStderr();
   for ( int round = 0; round < 60; ++round ) {
      for ( int step = 0; step < 12; ++step ) {
         auto const key =
            any( { "config:delay", "config:vrf:x", "config:vrf:y", "config:interface:a",
                   "config:interface:b", "config:interface:c" } );
         Fields fields;
         if ( key == "config:delay" ) {
            fields = { { "shutdown-delay-ms", any( { "1", "2", "x" } ) } };
         } else if ( key.starts_with( "config:vrf" ) ) {
            fields = { { "namespace", any( { "m", "n", "a/b" } ) } };
         } else {
            fields = { { "vrf", any( { "x", "y", "default" } ) },
                       { "device", any( { "d1", "d2", "d3", "" } ) } };
         }
         if ( any( { "put", "put", "drop" } ) == "put" ) {
            present[ key ] = fields;
            layer->entityIs( key, fields );
         } else {
            present.erase( key );
            layer->entityGone( key );
         }
         if ( any( { "turn", "turn", "no" } ) == "turn" ) {
            oneTurn();
         }
         if ( step == 6 && round % 10 == 0 ) {
            text = any( { "", "vrfs: [{name: x, namespace: m}]\n",
                          "interfaces: [{name: b, device: d1}]\n" } );
            files.write( "valen.yaml", text );
            configurator->reload( {} );
         }
      }
      settle();
      for ( int i = 0; i < 20; ++i ) { // a reload may still run
         oneTurn();
      }
      // Whatever stays: a fresh start with it reads the same. And if nothing stays, with what is there.
      auto const read = Settings::parseConfig( text, "f" );
      Settings::Overlay fresh;
      Settings::EntityChanges all;
      for ( auto const & [ key, fields ] : present ) {
         all.emplace( key, fields );
      }
      fresh.replace( all );
      auto const expected = fresh.settle( read.config, read.sources );
      ASSERT_EQ( rejected.empty(), fresh.rejected().empty() );
      if ( rejected.empty() ) {
         ASSERT_EQ( active(), Settings::yamlOf( expected.config ) );
      }
      ASSERT_EQ( active(), Settings::yamlOf( configurator->active().config() ) );
      auto const valid = Settings::parseConfig( active(), "active" );
      ASSERT_TRUE( valid.errors.empty() ) << valid.errors[ 0 ].message();
   }
   ::testing::internal::GetCapturedStderr();
}

INSTANTIATE_TEST_SUITE_P( Seeds, DatabaseLayerHistory, ::testing::Range( 1u, 4u ) );

} // namespace
} // namespace Valend
