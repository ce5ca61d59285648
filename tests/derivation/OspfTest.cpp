#include "derivation/Words.h"
#include "tests/derivation/Packets.h"

namespace Derivation::Test {
namespace {

using std::chrono::seconds;

Way const ospfWay{ "01005e000005", "c0000201", "e0000005" };
Way const ospfWay3{ "333300000005", "fe800000000000000000000000000001",
                    "ff020000000000000000000000000005" };

// A Hello of version 2.
struct Hello2 {
   std::string options = "02", neighbors = "";
   std::string authentication = "0000 0000000000000000"; // with its type
   std::string tail = "";                                // after the packet

   // The checksum does not cover the last eight bytes of the authentication.
   std::string packet() const {
      auto const rest =
         hex( "ffffff00 000a " + options + " 01 00000028 c0000201 c0000202" + neighbors );
      auto const type = hex( authentication.substr( 0, 4 ) );
      auto const head = hex( "02 01" ) + u16( 24 + rest.size() ) + hex( "0a000001 00000003" );
      auto const covered = summed( head + hex( "0000" ) + type + rest, 12 );
      auto const checksum = type == hex( "0002" ) ? hex( "0000" ) : covered.substr( 12, 2 );
      return head + checksum + hex( authentication ) + rest + hex( tail );
   }
   std::string frame( Way const & to = ospfWay ) const { return ipv4( to, 89, packet() ); }
};

// A Hello of version 3.
struct Hello3 {
   std::string options = "000013", neighbors = "", instance = "00", signaling = "", trailer = "";

   std::string packet( Way const & to = ospfWay3 ) const {
      auto const hello = hex( "00000007 01" + options + "000a 0028 0a000001 0a000002" + neighbors );
      auto const head = hex( "03 01" ) + u16( 16 + hello.size() ) +
                        hex( "0a000001 00000000 0000" ) + hex( instance + "00" );
      auto const bytes = head + hello;
      return ( trailer.empty() ? summed( bytes, 12, pseudoHeader( ipOf( to, 89, bytes ) ) )
                               : bytes ) +
             hex( signaling + trailer );
   }
   std::string frame( Way const & to = ospfWay3 ) const { return ipv6( to, 89, packet( to ) ); }
};

// An LLS signalingBlock with one TLV, the extended options.
std::string const signalingBlock = "fff6 0003 0001 0004 00000001";

Cases ospf2Cases() {
   auto one = [ & ]( char const * name, Hello2 const & hello, Hello2 const & goodbye,
                     char const * says, char const * change ) {
      return Case{ name, hello.frame(), goodbye.frame(), "ospf", "router 10.0.0.1",
                   says, change,        seconds( 40 ) };
   };
   std::string const password = "0001 7365637265740000";
   return {
      one( "two neighbors", { .neighbors = "0a000002 0a000003" }, {}, "2 neighbors",
           "2 neighbors -> 0 neighbors" ),
      one( "a password", { .neighbors = "0a000002", .authentication = password },
           { .authentication = password }, "1 neighbor", "1 neighbor -> 0 neighbors" ),
      one( "link-local signaling",
           { .options = "12", .neighbors = "0a000002", .tail = signalingBlock }, {}, "1 neighbor",
           "1 neighbor -> 0 neighbors, without link-local signaling" ),
   };
}

Cases ospf3Cases() {
   auto one = [ & ]( char const * name, Hello3 const & hello, Hello3 const & goodbye,
                     char const * speaker, char const * says, char const * change ) {
      return Case{ name,    hello.frame(), goodbye.frame(), "ospfv3",
                   speaker, says,          change,          seconds( 40 ) };
   };
   return {
      one( "version 3", { .neighbors = "0a000002 0a000003 0a000004" }, {}, "router 10.0.0.1",
           "3 neighbors", "3 neighbors -> 0 neighbors" ),
      one( "an instance", { .neighbors = "0a000002", .instance = "05" }, { .instance = "05" },
           "router 10.0.0.1, instance 5", "1 neighbor", "1 neighbor -> 0 neighbors" ),
      one( "version 3, link-local signaling",
           { .options = "000213", .neighbors = "0a000002", .signaling = signalingBlock }, {},
           "router 10.0.0.1", "1 neighbor",
           "1 neighbor -> 0 neighbors, without link-local signaling" ),
   };
}

Cases const ospf2All = registered( ospf2Cases() );
Cases const ospf3All = registered( ospf3Cases() );

TEST( OspfTest, TheGoodbyeIsDerivedFromEachFrame ) {
   expectCases( ospf2All );
   expectCases( ospf3All );
}

TEST( OspfTest, AHelloWithoutNeighborsLeaves ) {
   auto const heard = heardOf( Hello2{}.frame() );
   EXPECT_TRUE( heard.leaves );
   EXPECT_EQ( heard.says, "0 neighbors" );
   EXPECT_EQ( heard.goodbye, "" );
   EXPECT_EQ( heard.greeting, Hello2{}.frame() );
}

TEST( OspfTest, HellosToOneNeighborStandSideBySide ) {
   auto const heard = heardOf(
      Hello2{ .neighbors = "0a000002" }.frame( { "020000000002", "c0000201", "c0000202" } ) );
   EXPECT_EQ( heard.part, "to 192.0.2.2" );
   auto const address = "fe800000000000000000000000000002";
   EXPECT_EQ( heardOf( Hello3{ .neighbors = "0a000002" }.frame(
                          { "020000000002", ospfWay3.source, address } ) )
                 .part,
              "to fe80::2" );
}

TEST( OspfTest, AnAuthenticatedHelloHasNoGoodbye ) {
   auto hello = []( char const * length, std::size_t bytes ) {
      return Hello2{ .neighbors = "0a000002",
                     .authentication = "0002 0000 01" + std::string( length ) + "00000007",
                     .tail = std::string( 2 * bytes, 'a' ) }
         .frame();
   };
   EXPECT_EQ( whyNot( hello( "10", 16 ) ), "authenticated with MD5" );
   EXPECT_EQ( whyNot( hello( "14", 20 ) ), "authenticated with HMAC-SHA-1" );
   EXPECT_EQ( whyNot( hello( "20", 32 ) ), "authenticated with HMAC-SHA-256" );
   EXPECT_EQ( whyNot( hello( "11", 17 ) ), "authenticated with an unknown algorithm" );
   EXPECT_EQ( refusalOf( hello( "10", 15 ) ), "ospf: it ends too early" );
   EXPECT_EQ( refusalOf( hello( "10", 17 ) ), "ospf: a length is wrong" );
}

TEST( OspfTest, AHelloWithAnAuthenticationTrailerHasNoGoodbye ) {
   auto hello = []( char const * length, std::size_t bytes, std::string const & signaling = "" ) {
      return Hello3{ .options = signaling.empty() ? "000413" : "000613",
                     .neighbors = "0a000002",
                     .signaling = signaling,
                     .trailer = "0001" + std::string( length ) + "0000 0001 0000000000000007" +
                                std::string( 2 * bytes, 'a' ) }
         .frame();
   };
   EXPECT_EQ( whyNot( hello( "0024", 20 ) ), "authenticated with HMAC-SHA-1" );
   EXPECT_EQ( whyNot( hello( "0030", 32 ) ), "authenticated with HMAC-SHA-256" );
   EXPECT_EQ( whyNot( hello( "0040", 48 ) ), "authenticated with HMAC-SHA-384" );
   EXPECT_EQ( whyNot( hello( "0050", 64 ) ), "authenticated with HMAC-SHA-512" );
   EXPECT_EQ( whyNot( hello( "0030", 32, "0000 0001" ) ), "authenticated with HMAC-SHA-256" );
   EXPECT_EQ( refusalOf( hello( "0030", 31 ) ), "ospfv3: it ends too early" );
   EXPECT_EQ( refusalOf( hello( "0030", 33 ) ), "ospfv3: a length is wrong" );
   EXPECT_EQ( refusalOf( hello( "000f", 32 ) ), "ospfv3: a length is wrong" );
}

TEST( OspfTest, OtherPacketsAreNothing ) {
   auto packet = Hello2{}.packet(), packet3 = Hello3{}.packet();
   for ( char type = 2; type <= 5; ++type ) {
      packet[ 1 ] = type;
      EXPECT_EQ( refusalOf( ipv4( ospfWay, 89, packet ) ), "nothing" );
      packet3[ 1 ] = type;
      EXPECT_EQ( refusalOf( ipv6( ospfWay3, 89, packet3 ) ), "nothing" );
   }
}

TEST( OspfTest, LinkLocalSignalingIsVerified ) {
   auto with = []( char const * words, std::string const & tlvs ) {
      auto const block = summed( hex( "0000" + std::string( words ) + tlvs ), 0 );
      auto const digits = hexText( block );
      auto const three = refusalOf(
         Hello3{ .options = "000213", .neighbors = "0a000002", .signaling = digits }.frame() );
      auto const two =
         refusalOf( Hello2{ .options = "12", .neighbors = "0a000002", .tail = digits }.frame() );
      EXPECT_EQ( two.substr( two.find( ':' ) + 1 ), three.substr( three.find( ':' ) + 1 ) );
      return two;
   };
   EXPECT_EQ( with( "0001", "" ), "heard" );
   EXPECT_EQ( with( "0003", "0001 0004 00000001" ), "heard" );
   EXPECT_EQ( with( "0004", "8000 0003 616263 00 0007 0000" ), "heard" );
   EXPECT_EQ( with( "0004", "0002 0008 00000001 00000000" ), "heard" );
   EXPECT_EQ( with( "0003", "00fb ffff 0000000a" ), "ospf: a TLV goes beyond the end" );
   EXPECT_EQ( with( "0003", "8000 0005 61626364" ), "ospf: a TLV goes beyond the end" );
   EXPECT_EQ( with( "0002", "0001 0000" ), "ospf: a length is wrong" );
   EXPECT_EQ( with( "0004", "0001 0005 00000001 00000000" ), "ospf: a length is wrong" );
   EXPECT_EQ( with( "0003", "0002 0004 00000001" ), "ospf: a length is wrong" );
}

TEST( OspfTest, InvalidHellosAreRefused ) {
   auto changed = []( std::size_t at, char value, Hello2 const & hello = {} ) {
      auto packet = hello.packet();
      packet[ at ] = value;
      return refusalOf( ipv4( ospfWay, 89, packet ) );
   };
   EXPECT_EQ( changed( 0, 3 ), "ospf: the version is unknown" );
   EXPECT_EQ( changed( 1, 6 ), "ospf: a field has a value that is not allowed" );
   EXPECT_EQ( changed( 3, 43 ), "ospf: it ends too early" );
   EXPECT_EQ( changed( 3, 47, { .neighbors = "0a000002" } ), "ospf: a length is wrong" );
   EXPECT_EQ( changed( 3, 48 ), "ospf: it ends too early" );
   EXPECT_EQ( changed( 4, 1 ), "ospf: the checksum is wrong" );
   EXPECT_EQ( changed( 15, 1 ), "ospf: the checksum is wrong" );
   auto changed3 = []( std::size_t at, char value ) {
      auto packet = Hello3{}.packet();
      packet[ at ] = value;
      return refusalOf( ipv6( ospfWay3, 89, packet ) );
   };
   EXPECT_EQ( changed3( 0, 2 ), "ospfv3: the version is unknown" );
   EXPECT_EQ( changed3( 1, 0 ), "ospfv3: a field has a value that is not allowed" );
   EXPECT_EQ( changed3( 3, 35 ), "ospfv3: it ends too early" );
   EXPECT_EQ( changed3( 14, 1 ), "ospfv3: the checksum is wrong" );
   Hello2 const signaling{ .options = "12", .tail = signalingBlock };
   EXPECT_EQ( changed( 44, 0, signaling ), "ospf: the checksum is wrong" );
   EXPECT_EQ( changed( 47, 0, signaling ), "ospf: a length is wrong" );
   EXPECT_EQ( refusalOf( Hello2{ .tail = signalingBlock }.frame() ), "ospf: a length is wrong" );
   EXPECT_EQ( refusalOf( Hello2{ .options = "12" }.frame() ), "ospf: it ends too early" );
   EXPECT_EQ( refusalOf( Hello2{ .authentication = "0004 0000000000000000" }.frame() ),
              "ospf: a field has a value that is not allowed" );
}

} // namespace
} // namespace Derivation::Test
