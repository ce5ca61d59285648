#include "settings/Overlay.h"

#include "settings/ConfigReader.h"
#include "settings/ConfigWriter.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>

namespace Settings {
namespace {

class OverlayTest : public testing::Test {
 protected:
   void filesAre( std::string const & text ) {
      files = parseConfig( text, "f" );
      ASSERT_TRUE( files.errors.empty() ) << files.errors[ 0 ].message();
   }
   void put( std::string const & key, Fields const & fields ) { change( { { key, fields } } ); }
   void drop( std::string const & key ) { change( { { key, std::nullopt } } ); }
   void change( EntityChanges const & changes ) {
      for ( auto const & [ key, fields ] : changes ) {
         if ( fields ) {
            present[ key ] = *fields;
         } else {
            present.erase( key );
         }
      }
      overlay.change( changes );
      settle();
   }
   void settle() {
      result = overlay.settle( files.config, files.sources );
      expectConsistent();
   }

   // What a fresh start reads.
   Overlay fresh( Entities const & entities, Overlay::Result & read ) const {
      Overlay other;
      EntityChanges all;
      for ( auto const & [ key, fields ] : entities ) {
         all.emplace( key, fields );
      }
      other.replace( all );
      read = other.settle( files.config, files.sources );
      return other;
   }

   // What must hold after every step.
   void expectConsistent() {
      auto const text = yamlOf( result.config );
      auto const reread = parseConfig( text, "active" );
      ASSERT_TRUE( reread.errors.empty() ) << reread.errors[ 0 ].message() << '\n' << text;
      ASSERT_EQ( reread.config, result.config );

      Overlay::Result again;
      auto const settled = fresh( overlay.taken(), again );
      ASSERT_EQ( yamlOf( again.config ), text );
      ASSERT_EQ( again.sources, result.sources );
      ASSERT_EQ( settled.rejected(), Overlay::Rejected() );

      auto const of = fresh( present, again );
      if ( overlay.rejected().empty() ) {
         ASSERT_EQ( yamlOf( again.config ), text );
         ASSERT_EQ( overlay.taken(), present );
         ASSERT_EQ( of.rejected(), Overlay::Rejected() );
      }
   }

   std::string device( std::string const & interface ) const {
      auto const found = result.config.interfaces.find( interface );
      return found == result.config.interfaces.end() ? "" : found->second.device;
   }
   std::string why( std::string const & key ) const {
      auto const found = overlay.rejected().find( key );
      return found == overlay.rejected().end() ? "" : found->second;
   }

   ConfigResult files;
   Entities present;
   Overlay overlay;
   Overlay::Result result;
};

TEST_F( OverlayTest, AnEntityReplacesTheItemOfItsNameOrAddsOne ) {
   filesAre( "shutdown-delay-ms: 5\n"
             "vrfs: [{name: red, namespace: a}]\n"
             "interfaces: [{name: e1, device: d1}, {name: e2, device: d2}]\n" );
   change( { { "config:delay", Fields{ { "shutdown-delay-ms", "70" } } },
             { "config:vrf:red", Fields{ { "namespace", "b" } } },
             { "config:interface:e2", Fields{ { "device", "d9" },
                                              { "vrf", "red" },
                                              { "shutdown-delay", "false" },
                                              { "goodbyes", "[lldp, ra]" } } },
             { "config:interface:e3", Fields{} } } );
   EXPECT_EQ( overlay.rejected(), Overlay::Rejected() );
   auto const expected =
      parseConfig( "shutdown-delay-ms: 70\n"
                   "vrfs: [{name: red, namespace: b}]\n"
                   "interfaces: [{name: e1, device: d1}, {name: e2, device: d9, vrf: red, "
                   "shutdown-delay: false, goodbyes: [lldp, ra]}, {name: e3}]\n",
                   "f" );
   EXPECT_EQ( result.config, expected.config );
   EXPECT_EQ( result.sources.settings.at( "shutdown-delay-ms" ),
              ( Place{ "config:delay", 0, 0, true } ) );
   EXPECT_EQ( result.sources.vrfs.at( "red" ).text(), "config:vrf:red" );
   EXPECT_EQ( result.sources.interfaces.at( "e3" ).text(), "config:interface:e3" );
   EXPECT_EQ( result.sources.interfaces.at( "e1" ).text(), "f:3:21" );
   for ( auto const * key :
         { "config:delay", "config:vrf:red", "config:interface:e2", "config:interface:e3" } ) {
      drop( key );
   }
   EXPECT_EQ( result.config, files.config );
   EXPECT_EQ( result.sources, files.sources );
}

TEST_F( OverlayTest, WhatTheFilesMayNotSayIsRejectedWithTheirReason ) {
   filesAre( "interfaces: [{name: e1}]\n" );
   // The same as a line of the files, and as an entity.
   struct Wrong {
      std::string key, line;
      Fields fields;
   };
   for ( auto const & [ key, line, fields ] : std::vector< Wrong >{
            { "config:delay", "shutdown-delay-ms: 65536", { { "shutdown-delay-ms", "65536" } } },
            { "config:delay", "shutdown-delay-ms:", { { "shutdown-delay-ms", "" } } },
            { "config:vrf:a/b", "vrfs: [{name: a/b, namespace: a/b}]", { { "namespace", "a/b" } } },
            { "config:vrf:x", "vrfs: [{name: x}]", {} },
            { "config:vrf:default",
              "vrfs: [{name: default, namespace: x}]",
              { { "namespace", "x" } } },
            { "config:vrf:x",
              "vrfs: [{name: x, namespace: default}]",
              { { "namespace", "default" } } },
            { "config:vrf:", "vrfs: [{name: '', namespace: x}]", { { "namespace", "x" } } },
            { "config:interface:e2",
              "interfaces: [{name: e2, device: a/b}]",
              { { "device", "a/b" } } },
            { "config:interface:e2",
              "interfaces: [{name: e2, shutdown-delay: yes}]",
              { { "shutdown-delay", "yes" } } },
            { "config:interface:e2",
              "interfaces: [{name: e2, goodbyes: [x]}]",
              { { "goodbyes", "[x]" } } },
            { "config:interface:e2",
              "interfaces: [{name: e2, goodbyes: 5}]",
              { { "goodbyes", "5" } } },
            { "config:interface:e2", "interfaces: [{name: e2, vrf: red}]", { { "vrf", "red" } } },
            { "config:interface:" + std::string( 256, 'i' ),
              "interfaces: [{name: " + std::string( 256, 'i' ) + ", device: d}]",
              { { "device", "d" } } },
            { "config:interface:a\xe2\x80\xae",
              "interfaces: [{name: \"a\\u202e\", device: d}]",
              { { "device", "d" } } } } ) {
      auto const expected = parseConfig( line, "f" );
      ASSERT_EQ( expected.errors.size(), 1u ) << line;
      put( key, fields );
      EXPECT_EQ( why( key ), expected.errors[ 0 ].text );
      EXPECT_EQ( result.config, files.config );
      drop( key );
      EXPECT_EQ( overlay.rejected(), Overlay::Rejected() );
   }
}

TEST_F( OverlayTest, AnEntityIsBounded ) {
   filesAre( "" );
   Fields many;
   for ( int i = 0; i < 17; ++i ) {
      many[ std::to_string( i ) ] = "x";
   }
   put( "config:interface:a", many );
   EXPECT_EQ( why( "config:interface:a" ), "17 fields; expected at most 16" );
   put( "config:interface:a", { { "device", std::string( 4097, 'd' ) } } );
   EXPECT_EQ( why( "config:interface:a" ), "a field of 4103 bytes; expected at most 4096" );
   put( "config:interface:a", { { "goodbyes", std::string( 4000, '[' ) } } );
   EXPECT_NE( why( "config:interface:a" ), "" );
   put( "config:interface:a", { { "name", "b" } } );
   EXPECT_EQ( why( "config:interface:a" ),
              "unknown key \"name\" in an interface; expected \"device\", \"vrf\", "
              "\"shutdown-delay\" or \"goodbyes\"" );
   put( "config:port:a", {} );
   EXPECT_EQ( why( "config:port:a" ),
              "unknown key; expected config:delay, config:vrf:NAME or config:interface:NAME" );
   put( "config:delay", {} );
   EXPECT_EQ( why( "config:delay" ), "the delay has no \"shutdown-delay-ms\"" );
}

TEST_F( OverlayTest, TheLastValueThatWasTakenStays ) {
   filesAre( "shutdown-delay-ms: 5\ninterfaces: [{name: e1, device: d1}]\n" );
   put( "config:delay", { { "shutdown-delay-ms", "7" } } );
   put( "config:interface:e1", { { "device", "d2" } } );
   put( "config:delay", { { "shutdown-delay-ms", "x" } } );
   put( "config:interface:e1", { { "device", "a b" } } );
   EXPECT_EQ( result.config.shutdownDelayMs, 7 );
   EXPECT_EQ( device( "e1" ), "d2" );
   EXPECT_EQ( overlay.rejected().size(), 2u );
   put( "config:interface:e1", { { "device", "d3" } } );
   EXPECT_EQ( device( "e1" ), "d3" );
   EXPECT_EQ( why( "config:interface:e1" ), "" );
   drop( "config:delay" );
   drop( "config:interface:e1" );
   EXPECT_EQ( result.config, files.config );
}

TEST_F( OverlayTest, WhatWasDeletedDoesNotComeBackWithAWrongValue ) {
   filesAre( "" );
   put( "config:interface:e1", { { "device", "d1" } } );
   drop( "config:interface:e1" );
   put( "config:interface:e1", { { "device", "a b" } } );
   EXPECT_EQ( result.config, Config() );
}

TEST_F( OverlayTest, AVrfThatGoesBeforeItsInterfacesStaysUntilTheyHaveGone ) {
   filesAre( "" );
   put( "config:vrf:red", { { "namespace", "r" } } );
   put( "config:interface:e1", { { "vrf", "red" } } );
   drop( "config:vrf:red" );
   EXPECT_EQ( result.config.vrfs.at( "red" ), "r" );
   EXPECT_EQ( result.config.interfaces.at( "e1" ).vrf, "red" );
   EXPECT_EQ( why( "config:interface:e1" ),
              "unknown VRF \"red\"; expected \"default\" or one of \"vrfs\"" );
   put( "config:interface:e2", { { "vrf", "red" } } ); // a new one cannot use it
   EXPECT_FALSE( result.config.interfaces.contains( "e2" ) );
   put( "config:vrf:blue", { { "namespace", "r" } } ); // but another one can use its namespace
   EXPECT_FALSE( result.config.vrfs.contains( "red" ) );
   EXPECT_FALSE( result.config.interfaces.contains( "e1" ) );
   drop( "config:vrf:blue" );
   put( "config:vrf:red", { { "namespace", "r" } } ); // valid again, because another one changed
   EXPECT_EQ( overlay.rejected(), Overlay::Rejected() );
   EXPECT_EQ( result.config.interfaces.size(), 2u );
   drop( "config:vrf:red" );
   drop( "config:interface:e2" );
   drop( "config:interface:e1" );
   EXPECT_EQ( result.config, Config() );
}

TEST_F( OverlayTest, AVrfThatIsWrongKeepsItsInterfaces ) {
   filesAre( "" );
   put( "config:vrf:red", { { "namespace", "r" } } );
   put( "config:interface:e1", { { "vrf", "red" } } );
   put( "config:vrf:red", { { "namespace", "a/b" } } );
   EXPECT_EQ( overlay.rejected().size(), 1u );
   put( "config:interface:e1", { { "vrf", "red" }, { "device", "d9" } } );
   EXPECT_EQ( device( "e1" ), "d9" );
   EXPECT_EQ( overlay.rejected().size(), 1u );
}

TEST_F( OverlayTest, TwoInterfacesOnOneDeviceSettleInAnyOrder ) {
   for ( auto const reversed : { false, true } ) {
      overlay = {};
      present = {};
      filesAre( "interfaces: [{name: f1, device: d1}]\n" );
      std::vector< std::string > keys{ "config:interface:a", "config:interface:b" };
      if ( reversed ) {
         std::reverse( keys.begin(), keys.end() );
      }
      for ( auto const & key : keys ) {
         put( key, { { "device", "d2" } } );
      }
      EXPECT_EQ( device( "a" ), "d2" );
      EXPECT_EQ( device( "b" ), "" );
      EXPECT_EQ( why( "config:interface:b" ),
                 "device \"d2\" in VRF \"default\" is already used by interface \"a\" "
                 "(config:interface:a); each interface needs its own" );
      put( "config:interface:a", { { "device", "d1" } } );
      EXPECT_EQ(
         why( "config:interface:a" ),
         "device \"d1\" in VRF \"default\" is already used by interface \"f1\" (f:1:21); each "
         "interface needs its own" );
      EXPECT_EQ( device( "b" ), "d2" ) << "a claims it with its last value only";
      EXPECT_EQ( device( "a" ), "" );
   }
}

TEST_F( OverlayTest, ItemsMayExchangeWhatTheyHave ) {
   filesAre( "vrfs: [{name: x, namespace: m}, {name: y, namespace: n}]\n"
             "interfaces: [{name: a, device: d1}, {name: b, device: d2}]\n" );
   change( { { "config:interface:a", Fields{ { "device", "d2" } } },
             { "config:interface:b", Fields{ { "device", "d1" } } },
             { "config:vrf:x", Fields{ { "namespace", "n" } } },
             { "config:vrf:y", Fields{ { "namespace", "m" } } } } );
   EXPECT_EQ( overlay.rejected(), Overlay::Rejected() );
   EXPECT_EQ( device( "a" ), "d2" );
   put( "config:interface:b", { { "device", "" } } );
   EXPECT_EQ( device( "b" ), "d1" );
   drop( "config:interface:b" ); // the file says d2 again
   EXPECT_EQ( device( "b" ), "d2" );
   EXPECT_EQ( device( "a" ), "d1" );
   EXPECT_NE( why( "config:interface:a" ), "" );
}

TEST_F( OverlayTest, AReloadSettlesTheSameEntitiesWithOtherFiles ) {
   filesAre( "vrfs: [{name: red, namespace: r}]\n" );
   put( "config:interface:a", { { "vrf", "red" }, { "device", "d1" } } );
   put( "config:interface:b", { { "device", "d2" } } );
   filesAre( "interfaces: [{name: c, device: d2}]\n" );
   settle();
   EXPECT_EQ( result.config.interfaces.size(), 1u );
   EXPECT_EQ( overlay.rejected().size(), 2u );
   filesAre( "vrfs: [{name: red, namespace: r}]\n" );
   settle();
   EXPECT_EQ( overlay.rejected(), Overlay::Rejected() );
   EXPECT_EQ( result.config.interfaces.size(), 2u );
}

TEST_F( OverlayTest, WhatAPreviousRunHadTakenStaysUntilItIsReplaced ) {
   filesAre( "" );
   overlay.resume( { { "config:interface:a", {} }, { "config:interface:b", {} } } );
   present = { { "config:interface:a", {} }, { "config:interface:b", {} } };
   settle();
   EXPECT_EQ( result.config.interfaces.size(), 2u );
   overlay.replace( { { "config:interface:a", Fields{ { "x", "y" } } } } );
   present = { { "config:interface:a", { { "x", "y" } } } };
   settle();
   EXPECT_EQ( device( "a" ), "a" ) << "its last value";
   EXPECT_EQ( device( "b" ), "" );
}

// --- Any history ---------------------------------------------------------------------------------

class OverlayHistory : public OverlayTest, public testing::WithParamInterface< unsigned > {
 protected:
   std::string any( std::vector< std::string > const & of ) {
      return of[ std::uniform_int_distribution< std::size_t >( 0, of.size() - 1 )( random ) ];
   }
   bool sometimes( double how ) { return std::bernoulli_distribution( how )( random ); }

   Fields fieldsOf( std::string const & key ) {
      if ( sometimes( 0.1 ) ) {
         return {
            { any( { "x", "device", "namespace", "vrf" } ), any( { "", "a/b", "no such" } ) } };
      }
      if ( key == "config:delay" ) {
         return { { "shutdown-delay-ms", any( { "0", "7", "65536", "x" } ) } };
      }
      if ( key.starts_with( "config:vrf:" ) ) {
         return { { "namespace", any( { "m", "n", "o" } ) } };
      }
      Fields fields;
      if ( sometimes( 0.8 ) ) {
         fields[ "device" ] = any( { "d1", "d2", "d3", "d4" } );
      }
      if ( sometimes( 0.6 ) ) {
         fields[ "vrf" ] = any( { "default", "x", "y", "z" } );
      }
      if ( sometimes( 0.2 ) ) {
         fields[ "goodbyes" ] = any( { "off", "learned", "[lldp, ra]", "[", "[[lldp]]" } );
      }
      return fields;
   }
   EntityChanges anyChanges() {
      EntityChanges changes;
      do {
         auto const key = any( { "config:delay", "config:vrf:x", "config:vrf:y", "config:vrf:z",
                                 "config:interface:a", "config:interface:b", "config:interface:c",
                                 "config:interface:d", "config:interface:e" } );
         changes[ key ] = sometimes( 0.3 ) ? std::nullopt : std::optional( fieldsOf( key ) );
      } while ( sometimes( 0.4 ) );
      return changes;
   }
   void anyFiles() {
      filesAre(
         any( { "", "vrfs: [{name: x, namespace: m}]\n",
                "vrfs: [{name: x, namespace: m}, {name: y, namespace: n}]\n"
                "interfaces: [{name: a, device: d1, vrf: x}, {name: c, device: d2}]\n",
                "shutdown-delay-ms: 9\ninterfaces: [{name: b, device: d1}, {name: e}]\n" } ) );
   }

   // Each value that was rejected is wrong beside what is active.
   void expectRejectedRightly() {
      for ( auto const & [ key, why ] : overlay.rejected() ) {
         auto entity = entityOf( key, present.at( key ) );
         if ( !entity.why.empty() ) {
            EXPECT_EQ( why, entity.why );
            continue;
         }
         auto config = result.config;
         if ( entity.kind == Entity::Kind::vrf ) {
            config.vrfs[ entity.name ] = entity.netNs;
         } else {
            config.interfaces[ entity.name ] = entity.interface;
            if ( !present.contains( "config:vrf:" + entity.interface.vrf ) &&
                 !files.config.vrfs.contains( entity.interface.vrf ) ) {
               config.vrfs.erase( entity.interface.vrf ); // which has gone, and only stays
            }
         }
         auto const reread = parseConfig( yamlOf( config ), "f" );
         EXPECT_FALSE( reread.errors.empty() ) << key << ": " << why << '\n' << yamlOf( config );
      }
   }

   std::mt19937 random;
};

TEST_P( OverlayHistory, ComesToWhatAFreshStartReads ) {
   random.seed( GetParam() );
   anyFiles();
   unsigned accepted = 0, staying = 0;
   for ( int step = 0; step < 2000 && !HasFailure(); ++step ) {
      if ( sometimes( 0.02 ) ) {
         anyFiles();
         settle();
      } else {
         change( anyChanges() );
      }
      expectRejectedRightly();
      accepted += overlay.rejected().empty();
      staying += overlay.taken() != present && !overlay.taken().empty();
   }
   EXPECT_GT( accepted, 10u );
   EXPECT_GT( staying, 10u );
}

// The present values are the same at the end, whatever came before: so is what is active, if nothing stays.
TEST_P( OverlayHistory, TheOrderOfTheSameChangesDoesNotMatter ) {
   random.seed( GetParam() + 1000 );
   for ( int round = 0; round < 100; ++round ) {
      anyFiles();
      std::vector< std::pair< std::string, Fields > > values;
      for ( auto const & [ key, fields ] : anyChanges() ) {
         values.emplace_back( key, fields.value_or( fieldsOf( key ) ) );
      }
      std::vector< std::string > texts;
      for ( int order = 0; order < 4; ++order ) {
         std::shuffle( values.begin(), values.end(), random );
         overlay = {};
         present = {};
         for ( auto const & [ key, fields ] : values ) { // all in one
            present[ key ] = fields;
            overlay.change( { { key, fields } } );
         }
         settle();
         texts.push_back( yamlOf( result.config ) );
         EXPECT_EQ( texts.back(), texts.front() );
      }
   }
}

INSTANTIATE_TEST_SUITE_P( Seeds, OverlayHistory, testing::Range( 1u, 5u ) );

} // namespace
} // namespace Settings
