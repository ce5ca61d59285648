// That the table of kinds is complete, and that each kind builds frames from its options. What is in
// the frames is for tests/goodbye, with an independent dissector.
#include "valenctl/frame/FrameKinds.h"

#include <CLI/CLI.hpp>
#include <gmock/gmock.h>
#include <map>

namespace Valenctl {
namespace {

using Words = std::vector< std::string >;

// Options that each kind needs beside the sender's addresses.
std::map< std::string, Words > const needed{
   { "lldp", { "--port-id", "name:eth1" } },
   { "ra", {} },
   { "vrrp2", { "--vrid", "1", "--address", "192.0.2.9" } },
   { "vrrp3", { "--vrid", "1", "--address", "192.0.2.9" } },
   { "pim", {} },
   { "ospf", { "--router-id", "192.0.2.1" } },
   { "igmp", { "--group", "239.1.1.1" } },
   { "mdns", { "--name", "router.local" } },
   { "rip", { "--route", "198.51.100.0/24" } },
   { "oam", {} },
   { "lacp", {} },
};

class FrameKindsTest : public ::testing::Test {
 protected:
   FrameKindsTest() {
      options.given.mac = Goodbye::parseMac( "02:00:00:00:00:01" );
      options.given.ipv4 = Goodbye::parseIpv4Prefix( "192.0.2.1/24" );
   }

   std::vector< Goodbye::Frame > build( FrameKind const & kind, Words words ) {
      if ( kind.source == FrameKind::Source::ipv6 ) {
         options.given.linkLocal = Goodbye::parseIpv6( "fe80::1" );
      }
      CLI::App app;
      auto const build = kind.build( app );
      std::reverse( words.begin(), words.end() ); // as the parser wants them
      app.parse( words );
      return build( FrameSender( options ) ).frames;
   }
   FrameKind const & kind( std::string const & name ) const {
      for ( auto const & each : frameKinds() ) {
         if ( each.name == name ) {
            return each;
         }
      }
      throw std::out_of_range( name );
   }

   SenderOptions options;
};

TEST_F( FrameKindsTest, EachKindIsDescribedAndBuildsAFrame ) {
   EXPECT_EQ( frameKinds().size(), needed.size() );
   for ( auto const & kind : frameKinds() ) {
      SCOPED_TRACE( kind.name );
      EXPECT_STRNE( kind.goodbye, "" );
      EXPECT_STRNE( kind.clause, "" );
      EXPECT_STRNE( kind.effect, "" );
      EXPECT_EQ( build( kind, needed.at( kind.name ) ).size(), 1u );
      options.given.linkLocal.reset();
   }
}

TEST_F( FrameKindsTest, MoreThanOneFrameCanHoldIsSplit ) {
   EXPECT_EQ(
      build( kind( "igmp" ), { "--version", "2", "--group", "239.1.1.1", "--group", "239.1.1.2" } )
         .size(),
      2u );
   Words routes;
   for ( int i = 0; i < 26; ++i ) {
      routes.insert( routes.end(), { "--route", "198.51." + std::to_string( i ) + ".0/24" } );
   }
   EXPECT_EQ( build( kind( "rip" ), routes ).size(), 2u );
}

TEST_F( FrameKindsTest, OptionsThatDoNotFitTogetherAreRejected ) {
   EXPECT_THROW(
      build( kind( "vrrp3" ), { "--vrid", "1", "--address", "192.0.2.9", "--address", "fe80::9" } ),
      UsageError );
   EXPECT_THROW( build( kind( "mdns" ), {} ), UsageError );
   EXPECT_THROW(
      build( kind( "mdns" ), { "--address", "192.0.2.9", "--pointer", "a.local=b.local" } ),
      UsageError );
   EXPECT_THROW( build( kind( "lldp" ), {} ), UsageError );
}

} // namespace
} // namespace Valenctl
