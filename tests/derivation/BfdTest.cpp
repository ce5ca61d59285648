#include "derivation/Words.h"
#include "tests/derivation/Packets.h"

namespace Derivation::Test {
namespace {

using std::chrono::milliseconds;

Way const bfdWay{ "020000000002", "c0000201", "c0000202", 255 };
Way const bfdWay6{ "020000000002", "fe800000000000000000000000000001",
                   "fe800000000000000000000000000002", 255 };

// A control packet: the diagnostic, then the state and the flags.
struct Control {
   std::string diagnostic = "20", state = "c0", multiplier = "03", length = "18", your = "00000007",
               interval = "001e8480", authentication = "";

   std::string packet() const {
      return hex( diagnostic + state + multiplier + length + "0000002a" + your + interval +
                  "000493e0 00000000" + authentication );
   }
   std::string frame() const { return udp4( bfdWay, "c000 0ec8", packet() ); }
};

Case bfdCase( char const * name, std::string const & frame, std::string const & goodbye,
              char const * from, milliseconds holdTime ) {
   auto const says = std::string( "state " ) + from;
   return { name,
            frame,
            goodbye,
            "bfd",
            "session with my discriminator 0x0000002a",
            says,
            says + " -> AdminDown",
            holdTime };
}

Cases bfdCases() {
   Control const up, goodbye{ .diagnostic = "27", .state = "00" };
   Control const fast{ .state = "f8", .multiplier = "05", .interval = "000186a0" };
   Control const fastGoodbye{
      .diagnostic = "27", .state = "08", .multiplier = "05", .interval = "000186a0" };
   Control const down{ .diagnostic = "21", .state = "40", .your = "00000000" };
   Control const downGoodbye{ .diagnostic = "27", .state = "00", .your = "00000000" };
   std::string const password = "01 08 03 7365637265";
   Control const secret{ .state = "c4", .length = "20", .authentication = password };
   Control const secretGoodbye{
      .diagnostic = "27", .state = "04", .length = "20", .authentication = password };
   return {
      bfdCase( "one hop", up.frame(), goodbye.frame(), "Up", milliseconds( 6000 ) ),
      bfdCase( "several hops", udp4( bfdWay, "c000 12b0", up.packet() ),
               udp4( bfdWay, "c000 12b0", goodbye.packet() ), "Up", milliseconds( 6000 ) ),
      bfdCase( "IPv6", udp6( bfdWay6, "c000 0ec8", up.packet() ),
               udp6( bfdWay6, "c000 0ec8", goodbye.packet() ), "Up", milliseconds( 6000 ) ),
      bfdCase( "no UDP checksum", udp4( bfdWay, "c000 0ec8", up.packet(), UdpChecksum::none ),
               udp4( bfdWay, "c000 0ec8", goodbye.packet(), UdpChecksum::none ), "Up",
               milliseconds( 6000 ) ),
      bfdCase( "poll, final and control plane independent", fast.frame(), fastGoodbye.frame(), "Up",
               milliseconds( 5000 ) ),
      bfdCase( "not up yet", down.frame(), downGoodbye.frame(), "Down", milliseconds( 6000 ) ),
      bfdCase( "a password", secret.frame(), secretGoodbye.frame(), "Up", milliseconds( 6000 ) ),
   };
}

Cases const bfdAll = registered( bfdCases() );

TEST( BfdTest, TheGoodbyeIsDerivedFromEachFrame ) {
   expectCases( bfdAll );
}

TEST( BfdTest, TheHoldTimeHasAnUpperBound ) {
   EXPECT_EQ( heardOf( Control{ .multiplier = "ff", .interval = "ffffffff" }.frame() ).holdTime,
              std::chrono::hours( 1 ) );
}

TEST( BfdTest, APartialUdpChecksumIsCompleted ) {
   Control const goodbye{ .diagnostic = "27", .state = "00" };
   auto heard = heardOf( udp4( bfdWay, "c000 0ec8", Control{}.packet(), UdpChecksum::partial ) );
   EXPECT_EQ( heard.greeting, Control{}.frame() );
   EXPECT_EQ( heard.goodbye, goodbye.frame() );
   heard = heardOf( udp6( bfdWay6, "c000 12b0", Control{}.packet(), UdpChecksum::partial ) );
   EXPECT_EQ( heard.greeting, udp6( bfdWay6, "c000 12b0", Control{}.packet() ) );
   EXPECT_EQ( heard.goodbye, udp6( bfdWay6, "c000 12b0", goodbye.packet() ) );
}

TEST( BfdTest, AnAuthenticatedSessionHasNoGoodbye ) {
   auto session = []( char const * type, char const * length, std::size_t bytes ) {
      auto const section = hexText( std::string( 1, static_cast< char >( 24 + bytes ) ) );
      return Control{ .state = "c4",
                      .length = section,
                      .authentication =
                         std::string( type ) + length + std::string( 2 * ( bytes - 2 ), 'a' ) }
         .frame();
   };
   auto const badLength = "bfd: a length is wrong";
   EXPECT_EQ( whyNot( session( "02", "18", 24 ) ), "authenticated with keyed MD5" );
   EXPECT_EQ( whyNot( session( "03", "18", 24 ) ), "authenticated with meticulous keyed MD5" );
   EXPECT_EQ( whyNot( session( "04", "1c", 28 ) ), "authenticated with keyed SHA-1" );
   EXPECT_EQ( whyNot( session( "05", "1c", 28 ) ), "authenticated with meticulous keyed SHA-1" );
   EXPECT_EQ( refusalOf( session( "00", "18", 24 ) ),
              "bfd: a field has a value that is not allowed" );
   EXPECT_EQ( refusalOf( session( "06", "18", 24 ) ),
              "bfd: a field has a value that is not allowed" );
   EXPECT_EQ( refusalOf( session( "02", "17", 24 ) ), badLength );
   // Each type has its length.
   EXPECT_EQ( refusalOf( session( "02", "1c", 28 ) ), badLength );
   EXPECT_EQ( refusalOf( session( "03", "08", 8 ) ), badLength );
   EXPECT_EQ( refusalOf( session( "04", "18", 24 ) ), badLength );
   EXPECT_EQ( refusalOf( session( "05", "08", 8 ) ), badLength );
   EXPECT_EQ( refusalOf( session( "01", "03", 3 ) ), badLength );
   EXPECT_EQ( refusalOf( session( "01", "04", 4 ) ), "heard" );
   EXPECT_EQ( refusalOf( session( "01", "13", 19 ) ), "heard" );
   EXPECT_EQ( refusalOf( session( "01", "14", 20 ) ), badLength );
}

TEST( BfdTest, InvalidPacketsAreRefused ) {
   auto refused = []( Control const & control ) { return refusalOf( control.frame() ); };
   auto const badValue = "bfd: a field has a value that is not allowed";
   EXPECT_EQ( refused( { .diagnostic = "00" } ), "bfd: the version is unknown" );
   EXPECT_EQ( refused( { .diagnostic = "40" } ), "bfd: the version is unknown" );
   EXPECT_EQ( refused( { .multiplier = "00" } ), badValue );
   EXPECT_EQ( refused( { .state = "c1" } ), badValue ); // multipoint
   EXPECT_EQ( refused( { .your = "00000000" } ), badValue );
   EXPECT_EQ( refused( { .length = "17" } ), "bfd: a length is wrong" );
   EXPECT_EQ( refused( { .length = "19" } ), "bfd: a length is wrong" );
   EXPECT_EQ( refused( { .length = "19", .authentication = "00" } ), "bfd: a length is wrong" );
   EXPECT_EQ( refused( { .state = "c4" } ), "bfd: it ends too early" );
   Way far = bfdWay;
   far.hopLimit = 254;
   EXPECT_EQ( refusalOf( udp4( far, "c000 0ec8", Control{}.packet() ) ),
              "bfd: the hop limit is not 255" );
   EXPECT_EQ( refusalOf( udp4( far, "c000 12b0", Control{}.packet() ) ), "heard" );
   auto mine = Control{}.packet();
   mine[ 7 ] = 0;
   EXPECT_EQ( refusalOf( udp4( bfdWay, "c000 0ec8", mine ) ), badValue );
   auto damaged = Control{}.frame();
   damaged.back() = 1;
   EXPECT_EQ( refusalOf( damaged ), "bfd: the checksum is wrong" );
}

} // namespace
} // namespace Derivation::Test
