#include "tests/valend/configuration/DatabaseLayerFixture.h"

namespace Valend {
namespace {

using namespace Test;

class DatabaseFramesTest : public DatabaseLayerFixture {
 protected:
   DatabaseFramesTest() {
      start( "interfaces: [{name: Ethernet1, device: et1}]\n" );
      layer->complete();
      settle();
      applications = 0;
   }
   void put( std::string const & key, Fields const & fields ) {
      layer->entityIs( key, fields );
      oneTurn();
   }
   void publish( std::string const & agent, char last ) {
      publications->publish( { agent,
                               "Ethernet1",
                               { frame( last ) },
                               Publications::Lifetime::kept,
                               Publications::self } );
   }
};

TEST_F( DatabaseFramesTest, FramesAreInForceAtOnceInOrderOfTheirNumbers ) {
   put( "frames:bgp:Ethernet1", { { "0010", frame( 'c' ) },
                                  { "0002", frame( 'b' ) },
                                  { "0001", frame( 'a' ) },
                                  { "owner", "bgpd 9.1" } } );
   EXPECT_EQ( inForce( "Ethernet1" ), "abc" );
   EXPECT_EQ( applications, 0 );
   EXPECT_THAT( told, IsEmpty() );
   auto const messages = publications->messagesFor( "Ethernet1" );
   ASSERT_EQ( messages.size(), 1u );
   EXPECT_STREQ( textOf( messages[ 0 ]->lifetime ), "database" );
   EXPECT_EQ( messages[ 0 ]->owner, "bgpd 9.1" );
   put( "frames:bgp:Ethernet1", framesOf( "x" ) );
   EXPECT_EQ( inForce( "Ethernet1" ), "x" );
   layer->entityGone( "frames:bgp:Ethernet1" );
   EXPECT_EQ( inForce( "Ethernet1" ), "" );
}

TEST_F( DatabaseFramesTest, WhatIsWrongIsRejectedAndTheLastFramesStay ) {
   auto const key = "frames:bgp:Ethernet1";
   put( key, framesOf( "a" ) );
   auto const expect = [ & ]( Fields const & fields, std::string const & why ) {
      put( key, fields );
      EXPECT_EQ( rejected[ key ], why );
      EXPECT_EQ( inForce( "Ethernet1" ), "a" );
   };
   expect( {}, "no frames; expected one or more" );
   expect( { { "owner", "me" } }, "no frames; expected one or more" );
   expect( { { "1", std::string( 13, 'f' ) } }, "frame 1 of 13 bytes; expected 14 to 65535" );
   expect( { { "1", std::string( 65536, 'f' ) } }, "frame 1 of 65536 bytes; expected 14 to 65535" );
   auto fields = framesOf( "b" );
   fields[ "x" ] = frame( 'c' );
   expect( fields, "unknown field \"x\"; expected \"0001\", \"0002\" ..., \"owner\" or \"lease\"" );
   fields.erase( "x" );
   fields[ "owner" ] = "a\nb";
   expect( fields, "owner is not printable text: character 2 is U+000A" );
   fields[ "owner" ] = std::string( 256, 'o' );
   expect( fields, "owner has 256 bytes; expected at most 255" );
   fields.erase( "owner" );
   fields[ "lease" ] = std::string( 513, 'l' );
   expect( fields, "lease has 513 bytes; expected at most 512" );
   fields[ "lease" ] = "\x01";
   expect( fields, "lease is not printable text: character 1 is U+0001" );
   fields.erase( "lease" );
   fields[ "000000001" ] = frame( 'c' );
   expect( fields, "unknown field \"000000001\"; expected \"0001\", \"0002\" ..., \"owner\" or "
                   "\"lease\"" );
   put( key, framesOf( "b" ) );
   EXPECT_EQ( told.back(), std::string( key ) + ": " );
   EXPECT_EQ( inForce( "Ethernet1" ), "b" );
   put( "frames:learned-lldp:Ethernet1", framesOf( "a" ) );
   EXPECT_THAT( rejected[ "frames:learned-lldp:Ethernet1" ], HasSubstr( "reserved" ) );
   put( "frames:bgp", framesOf( "a" ) );
   EXPECT_THAT( rejected[ "frames:bgp" ], HasSubstr( "expected a key frames:AGENT:INTERFACE" ) );
   layer->entityGone( "frames:bgp" );
   EXPECT_FALSE( rejected.contains( "frames:bgp" ) );
   put( "frames:a b:Ethernet1", framesOf( "a" ) );
   EXPECT_NE( rejected[ "frames:a b:Ethernet1" ], "" );
   EXPECT_EQ( inForce( "Ethernet1" ), "b" );
}

TEST_F( DatabaseFramesTest, TheConfigurationComesBeforeTheDatabaseAndThatBeforeClients ) {
   publish( "bgp", 'p' );
   EXPECT_EQ( inForce( "Ethernet1" ), "p" );
   put( "frames:bgp:Ethernet1", framesOf( "d" ) );
   EXPECT_EQ( inForce( "Ethernet1" ), "d" );
   publish( "bgp", 'q' ); // kept, but not active
   EXPECT_EQ( inForce( "Ethernet1" ), "d" );
   files.write( "valen.yaml", "interfaces: [{name: Ethernet1, device: et1}]\n"
                              "agents: [{name: bgp, messages: {Ethernet1: ['" +
                                 std::string( 26, '0' ) + "63']}}]\n" );
   reload();
   EXPECT_EQ( inForce( "Ethernet1" ), "c" );
   EXPECT_NE( rejected[ "frames:bgp:Ethernet1" ], "" );
   files.write( "valen.yaml", "interfaces: [{name: Ethernet1, device: et1}]\n" );
   reload();
   EXPECT_EQ( inForce( "Ethernet1" ), "d" );
   EXPECT_TRUE( !rejected.contains( "frames:bgp:Ethernet1" ) );
   layer->entityGone( "frames:bgp:Ethernet1" );
   EXPECT_EQ( inForce( "Ethernet1" ), "q" );
   put( "frames:ospf:Ethernet1", framesOf( "o" ) );
   EXPECT_THROW( publications->withdraw( "ospf", "Ethernet1", Publications::self ), Refusal );
}

TEST_F( DatabaseFramesTest, FramesMayComeBeforeTheirInterface ) {
   put( "frames:bgp:Ethernet2", framesOf( "a" ) );
   EXPECT_EQ( rejected[ "frames:bgp:Ethernet2" ], "interface \"Ethernet2\" is not configured" );
   layer->entityIs( "config:interface:Ethernet2", { { "device", "et2" } } );
   settle();
   EXPECT_EQ( inForce( "Ethernet2" ), "a" );
   EXPECT_THAT( rejected, IsEmpty() );
}

TEST_F( DatabaseFramesTest, FramesAreThereForAsLongAsTheirLease ) {
   auto fields = framesOf( "a" );
   fields[ "lease" ] = "agents:bgp";
   put( "frames:bgp:Ethernet1", fields );
   put( "frames:bgp:Ethernet2", fields );
   EXPECT_THAT( leases, ElementsAre( "+agents:bgp" ) );
   EXPECT_EQ( inForce( "Ethernet1" ), "" ) << "it is not known yet";
   layer->leaseIs( "agents:bgp", true );
   EXPECT_EQ( inForce( "Ethernet1" ), "a" );
   EXPECT_FALSE( rejected.contains( "frames:bgp:Ethernet1" ) );
   layer->leaseIs( "agents:bgp", false );
   EXPECT_EQ( inForce( "Ethernet1" ), "" );
   EXPECT_EQ( rejected[ "frames:bgp:Ethernet1" ], "lease \"agents:bgp\" does not exist" );
   put( "frames:bgp:Ethernet1", framesOf( "b" ) );
   EXPECT_EQ( inForce( "Ethernet1" ), "b" );
   EXPECT_EQ( leases.size(), 1u );
   layer->leaseIs( "agents:bgp", true );
   fields[ "0001" ] = "short"; // a wrong value does not renew the lease
   put( "frames:bgp:Ethernet2", fields );
   layer->entityGone( "frames:bgp:Ethernet2" );
   EXPECT_THAT( leases, ElementsAre( "+agents:bgp", "-agents:bgp" ) );
   layer->leaseIs( "agents:bgp", true ); // not wanted any longer
}

TEST_F( DatabaseFramesTest, WithoutMemoryFramesAreRejectedUntilThereIsRoom ) {
   Fields many;
   for ( int i = 0; i < 500; ++i ) {
      many[ std::to_string( 1000 + i ) ] = std::string( 65535, 'f' );
   }
   auto leased = many;
   leased[ "lease" ] = "agents:a";
   put( "frames:a:Ethernet1", leased );
   layer->leaseIs( "agents:a", true );
   put( "frames:b:Ethernet1", many );
   put( "frames:c:Ethernet1", many );
   put( "frames:d:Ethernet1", many );
   EXPECT_EQ( rejected.size(), 2u );
   EXPECT_THAT( rejected[ "frames:c:Ethernet1" ], HasSubstr( "bytes" ) );
   layer->leaseIs( "agents:a", false );
   EXPECT_EQ( publications->messagesFor( "Ethernet1" ).size(), 2u );
   EXPECT_FALSE( rejected.contains( "frames:c:Ethernet1" ) );
   layer->entityGone( "frames:d:Ethernet1" );
   put( "frames:e:Ethernet1", many );
   EXPECT_TRUE( rejected.contains( "frames:e:Ethernet1" ) );
   layer->entityGone( "frames:b:Ethernet1" );
   EXPECT_EQ( publications->messagesFor( "Ethernet1" ).size(), 2u );
   EXPECT_FALSE( rejected.contains( "frames:e:Ethernet1" ) );
}

} // namespace
} // namespace Valend
