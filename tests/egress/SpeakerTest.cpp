#include "egress/Mutes.h"
#include "goodbye/Igmp.h"
#include "goodbye/Lldp.h"
#include "goodbye/Mdns.h"
#include "goodbye/Ospf.h"
#include "goodbye/Pim.h"
#include "goodbye/Rip.h"
#include "goodbye/RouterAdvertisement.h"
#include "goodbye/SlowProtocols.h"
#include "goodbye/Vrrp.h"
#include "settings/Goodbyes.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <map>
#include <random>

namespace Egress {

namespace {

using namespace Goodbye;

Mac const mac( "02:00:00:00:00:01" );
Ipv4 const address( "192.0.2.1" );
Ipv6 const linkLocal( "fe80::1" );

LldpShutdown lldpOf( std::string const & port ) {
   return { .source = mac,
            .chassis = parseLldpChassis( "mac:02:00:00:00:00:01" ),
            .port = parseLldpPort( port ) };
}

template < class Address > VrrpGoodbye< Address > vrrpOf( U8 id, Address const & source ) {
   return { .id = id, .source = source, .addresses = { source }, .sourceMac = mac };
}

MdnsGoodbye mdnsOf() {
   return { .host = "router.local", .addresses = { address }, .addresses6 = {}, .pointers = {} };
}

OspfGoodbye ospfOf( char const * router ) {
   return { .source = mac,
            .address = parseIpv4Prefix( "192.0.2.1/24" ),
            .router = Ipv4( router ),
            .area = Ipv4( "0.0.0.0" ) };
}

// One goodbye of each kind, by the name of its protocol.
std::multimap< std::string, Frame > goodbyes() {
   return {
      { "lldp", lldpShutdown( lldpOf( "name:et1" ) ) },
      { "ra", routerAdvertisementGoodbye( mac, linkLocal ) },
      { "vrrp", vrrp2Goodbye( vrrpOf( 9, address ) ) },
      { "vrrp", vrrp3Goodbye( vrrpOf( 9, linkLocal ) ) },
      { "ospf", ospfGoodbye( ospfOf( "1.1.1.1" ) ) },
      { "pim", pimGoodbye( mac, address ) },
      { "pim", pimGoodbye( mac, linkLocal ) },
      { "lacp", lacpGoodbye( { .source = mac, .system = mac } ) },
      { "rip", ripPoison( mac, address, { parseIpv4Prefix( "198.51.100.0/24" ) } ) },
      { "mdns", mdnsGoodbye( mac, address, mdnsOf() ) },
      { "mdns", mdnsGoodbye( mac, linkLocal, mdnsOf() ) },
      { "igmp", igmp2Leave( mac, address, Ipv4( "239.1.1.1" ) ) },
      { "igmp", igmp3Leave( mac, address, { Ipv4( "239.1.1.1" ) } ) },
      { "oam", oamDyingGasp( { .source = mac } ) },
   };
}

Frame tagged( Frame frame, int vlan ) {
   return frame.insert(
      12, std::string{ '\x81', 0, static_cast< char >( vlan >> 8 ), static_cast< char >( vlan ) } );
}

Speaker of( Frame const & frame ) {
   return speakerOf( frame, 1, 2 ).value();
}

TEST( SpeakerTest, EachGoodbyeIsOfItsProtocol ) {
   for ( auto const & [ protocol, frame ] : goodbyes() ) {
      auto const speaker = speakerOf( frame, 3, 4 );
      ASSERT_TRUE( speaker ) << protocol;
      EXPECT_EQ( protocolOf( *speaker ), protocol );
      EXPECT_EQ( speaker->filter, 3 );
      EXPECT_EQ( speaker->ifindex, 4 );
      EXPECT_EQ( speaker->vlan, 0 );
   }
}

TEST( SpeakerTest, TheProtocolsAreThoseOfTheConfiguration ) {
   std::vector< std::string_view > protocols;
   Speaker speaker{};
   for ( speaker.kind = EGRESS_NO_KIND + 1; speaker.kind < EGRESS_KINDS; ++speaker.kind ) {
      protocols.push_back( protocolOf( speaker ) );
   }
   EXPECT_THAT( protocols, ::testing::ElementsAreArray( Settings::goodbyeProtocols ) );
}

TEST( SpeakerTest, ATaggedFrameIsOfTheSameProtocol ) {
   for ( auto const & [ protocol, frame ] : goodbyes() ) {
      auto expected = of( frame );
      expected.vlan = 300;
      EXPECT_EQ( of( tagged( frame, 300 ) ), expected ) << protocol;
   }
}

TEST( SpeakerTest, AllGoodbyesAreOfDifferentSpeakers ) {
   std::vector< Speaker > speakers;
   for ( auto const & [ protocol, frame ] : goodbyes() ) {
      if ( protocol != "igmp" ) { // of the same host
         EXPECT_EQ( std::count( speakers.begin(), speakers.end(), of( frame ) ), 0 ) << protocol;
      }
      speakers.push_back( of( frame ) );
   }
}

TEST( SpeakerTest, SpeakersOfOneProtocolAreToldApart ) {
   EXPECT_NE( of( lldpShutdown( lldpOf( "name:et1" ) ) ),
              of( lldpShutdown( lldpOf( "name:et2" ) ) ) );
   EXPECT_NE( of( ospfGoodbye( ospfOf( "1.1.1.1" ) ) ), of( ospfGoodbye( ospfOf( "1.1.1.2" ) ) ) );
   EXPECT_NE( of( vrrp2Goodbye( vrrpOf( 9, address ) ) ),
              of( vrrp2Goodbye( vrrpOf( 10, address ) ) ) );
   EXPECT_NE( of( pimGoodbye( mac, address ) ), of( pimGoodbye( mac, Ipv4( "192.0.2.2" ) ) ) );
   EXPECT_NE( of( lacpGoodbye( { .source = mac, .system = mac, .port = 1 } ) ),
              of( lacpGoodbye( { .source = mac, .system = mac, .port = 2 } ) ) );
}

TEST( SpeakerTest, WhatItSaysMakesNoDifference ) {
   auto lldp = lldpShutdown( lldpOf( "name:et1" ) );
   auto const goodbye = of( lldp );
   lldp[ lldp.size() - 3 ] = 120; // the time to live
   EXPECT_EQ( of( lldp + "more" ), goodbye );

   // VRRP: neither the version nor the address, which both versions may change.
   EXPECT_EQ( of( vrrp2Goodbye( vrrpOf( 9, address ) ) ),
              of( vrrp3Goodbye( vrrpOf( 9, Ipv4( "192.0.2.7" ) ) ) ) );
   // LACP: the key changes with the speed of the port.
   EXPECT_EQ( of( lacpGoodbye( { .source = mac, .system = mac, .key = 1 } ) ),
              of( lacpGoodbye( { .source = mac, .system = mac, .key = 2 } ) ) );
}

TEST( SpeakerTest, OtherFramesAreOfNone ) {
   std::string const ethernet( "\xff\xff\xff\xff\xff\xff\x02\0\0\0\0\1", 12 );
   for ( auto const & type :
         { std::string( "\x08\x06" ), std::string( "\x88\xb5" ), std::string( "\x01\x00" ) } ) {
      EXPECT_FALSE( speakerOf( ethernet + type + std::string( 100, '\0' ), 1, 2 ) );
   }
   // A later fragment has no port.
   auto rip = ripPoison( mac, address, { parseIpv4Prefix( "198.51.100.0/24" ) } );
   rip[ 21 ] = 1;
   EXPECT_FALSE( speakerOf( rip, 1, 2 ) );
}

TEST( SpeakerTest, ASpeakerIsFoundAgainByItsIdentity ) {
   for ( auto const & [ protocol, frame ] : goodbyes() ) {
      auto const speaker = speakerOf( frame, 1, 2 ).value();
      auto const again =
         speakerOf( protocolOf( speaker ), speaker.vlan, identityOf( speaker ), 3, 4 );
      EXPECT_EQ( again, speakerOf( frame, 3, 4 ) ) << protocol;
   }
   std::string const identity( 20, 'i' );
   EXPECT_TRUE( speakerOf( "lldp", 0, identity, 1, 2 ) );
   EXPECT_FALSE( speakerOf( "stp", 0, identity, 1, 2 ) );
   EXPECT_FALSE( speakerOf( "none", 0, identity, 1, 2 ) );
   EXPECT_FALSE( speakerOf( "lldp", 0, identity + "i", 1, 2 ) );
}

// Whatever a frame says, only its own bytes are read: the sanitizers watch.
TEST( SpeakerTest, CutAndChangedFramesAreReadInside ) {
   std::minstd_rand random( 1 ); // the same frames in each run
   U64 known = 0;
   for ( auto const & [ protocol, frame ] : goodbyes() ) {
      for ( std::size_t length = 0; length <= frame.size(); ++length ) {
         known += speakerOf( frame.substr( 0, length ), 1, 2 ).has_value();
      }
      for ( int i = 0; i < 2000; ++i ) {
         auto changed = frame;
         changed[ random() % changed.size() ] = static_cast< char >( random() );
         changed[ random() % changed.size() ] = static_cast< char >( random() );
         known += speakerOf( changed, 1, 2 ).has_value();
      }
   }
   EXPECT_GT( known, 10'000 );
}

} // namespace

} // namespace Egress
