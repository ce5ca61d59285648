#include "valenctl/text/FrameWords.h"

#include "settings/Hex.h"

#include <gtest/gtest.h>

namespace Valenctl {
namespace {

// An LLDPDU with a time to live of 120 and of 0; what is cut off, and of another protocol.
constexpr char const * alive =
   "0180c200000e02000000000188cc02070402000000000104050565746831060200780000";
constexpr char const * leaving =
   "0180c200000e02000000000188cc02070402000000000104050565746831060200000000";
constexpr char const * cutOff = "0180c200000e02000000000188cc020704020000000001";
constexpr char const * unknown = "ffffffffffff02000000000188b5676f6f64627965";

Json said( char const * hex ) {
   return saidJson( Settings::frameFromHex( hex ) );
}

TEST( FrameWordsTest, AFrameIsTheSpeakerWhatItSaysAndWhetherItLeaves ) {
   EXPECT_EQ( saidText( said( leaving ) ),
              "lldp, chassis 02:00:00:00:00:01, port eth1: says ttl 0; a goodbye" );
   EXPECT_EQ(
      saidText( said( alive ) ),
      "lldp, chassis 02:00:00:00:00:01, port eth1: says ttl 120; not a goodbye, which would "
      "change ttl 120 -> 0" );
   EXPECT_EQ( saidText( said( cutOff ) ), "lldp, malformed: it ends too early" );
   EXPECT_EQ( saidText( said( unknown ) ), "no protocol that valend knows" );
}

TEST( FrameWordsTest, WhyNoGoodbyeCanBeDerivedIsSaid ) {
   EXPECT_EQ( saidText( { { "protocol", "ospf" },
                          { "speaker", "router 192.0.2.1" },
                          { "says", "1 neighbor" },
                          { "goodbye", false },
                          { "notDerived", "authenticated with MD5" } } ),
              "ospf, router 192.0.2.1: says 1 neighbor; not a goodbye, and none can be derived: "
              "authenticated with MD5" );
}

TEST( FrameWordsTest, TheDerivedGoodbyeIsInTheJson ) {
   EXPECT_EQ( said( alive ), ( Json{ { "protocol", "lldp" },
                                     { "speaker", "chassis 02:00:00:00:00:01, port eth1" },
                                     { "says", "ttl 120" },
                                     { "goodbye", false },
                                     { "derived", leaving },
                                     { "change", "ttl 120 -> 0" },
                                     { "notDerived", nullptr },
                                     { "malformed", nullptr } } ) );
   EXPECT_EQ( said( leaving )[ "goodbye" ], true );
   EXPECT_EQ( said( leaving )[ "derived" ], nullptr );
   EXPECT_EQ( said( cutOff )[ "malformed" ], "it ends too early" );
   EXPECT_EQ( said( cutOff )[ "protocol" ], "lldp" );
   auto const nothing = said( unknown );
   for ( auto const & [ name, field ] : nothing.items() ) {
      EXPECT_TRUE( field.is_null() ) << name;
   }
}

TEST( FrameWordsTest, WhatIsNotKnownHasNoText ) {
   EXPECT_EQ( knownText( leaving ), saidText( said( leaving ) ) );
   EXPECT_EQ( knownText( unknown ), "" );
   EXPECT_EQ( knownText( "no frame" ), "" );
}

} // namespace
} // namespace Valenctl
