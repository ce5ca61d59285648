#include "tests/derivation/Packets.h"

#include <gmock/gmock.h>

namespace Derivation::Test {
namespace {

Way const igmpWay{ "01005e000016", "c0000201", "e0000016" };
Way const mldWay{ "333300000016", "fe800000000000000000000000000001",
                  "ff020000000000000000000000000016" };

std::string igmpFrame( std::string const & message ) {
   auto ip = ipOf( igmpWay, 2, summed( hex( message ), 2 ) );
   ip.options = hex( "9404 .." );
   return ipv4( ip );
}
std::string mldFrame( std::string const & message ) {
   auto ip = ipOf( mldWay, 58, hex( message ) );
   ip.payload = summed( ip.payload, 2, pseudoHeader( ip ) );
   ip.options = hex( "00 0502 .. 0100" );
   return ipv6( ip );
}

std::string const someGroup = "ef010101", someGroup6 = "ff15.... .... .... .77";

TEST( GroupsTest, ReportsAreHeardWithoutAGoodbye ) {
   auto const reason = "derived from the kernel's memberships";
   for ( auto const * const type : { "12", "16" } ) {
      auto const frame = igmpFrame( type + std::string( "00 .." ) + someGroup );
      EXPECT_EQ( whyNot( frame ), reason );
      EXPECT_EQ( heardOf( frame ).protocol, "igmp" );
      EXPECT_EQ( heardOf( frame ).speaker, "host 192.0.2.1" );
      EXPECT_EQ( heardOf( frame ).says, "1 group" );
      EXPECT_EQ( heardOf( frame ).part, "239.1.1.1" );
      EXPECT_EQ( heardOf( frame ).holdTime, std::chrono::seconds( 260 ) );
      EXPECT_FALSE( heardOf( frame ).leaves );
   }
   auto const frame = mldFrame( "83 00 .. .... " + someGroup6 );
   EXPECT_EQ( whyNot( frame ), reason );
   EXPECT_EQ( heardOf( frame ).protocol, "mld" );
   EXPECT_EQ( heardOf( frame ).speaker, "host fe80::1" );
   EXPECT_EQ( heardOf( frame ).part, "ff15::77" );
}

TEST( GroupsTest, RecordsAreReadWithSourcesAndOtherData ) {
   // Joins one group for a source, and leaves another.
   auto const igmp = igmpFrame( "22 00 .. .. 0002 05 01 0001" + someGroup + "c0000209 12345678" +
                                "03 00 0000 ef010102" );
   EXPECT_EQ( heardOf( igmp ).says, "1 group" );
   EXPECT_EQ( heardOf( igmp ).part.substr( 0, 20 ), "239.1.1.1 and 1 more" );
   auto const mld = mldFrame( "8f 00 .. .. 0001 02 00 0001" + someGroup6 + someGroup6 );
   EXPECT_EQ( heardOf( mld ).says, "1 group" );
   // Only these sources; none would be to leave it.
   EXPECT_EQ( heardOf( igmpFrame( "22 00 .. .. 0001 03 00 0001" + someGroup + "c0000209" ) ).says,
              "1 group" );
}

TEST( GroupsTest, LeavesAreHeard ) {
   for ( auto const & frame : { igmpFrame( "17 00 .." + someGroup ),
                                igmpFrame( "22 00 .. .. 0001 03 00 0000" + someGroup ),
                                igmpFrame( "22 00 .. .. 0001 01 00 0000" + someGroup ),
                                mldFrame( "84 00 .. ...." + someGroup6 ),
                                mldFrame( "8f 00 .. .. 0001 03 00 0000" + someGroup6 ) } ) {
      auto const heard = heardOf( frame );
      EXPECT_TRUE( heard.leaves );
      EXPECT_EQ( heard.says, "0 groups" );
      EXPECT_EQ( whyNot( frame ), "" );
   }
}

TEST( GroupsTest, QueriesAreNothing ) {
   for ( auto const * const type : { "11", "13", "14" } ) {
      EXPECT_EQ( refusalOf( igmpFrame( type + std::string( "00 .." ) + someGroup ) ), "nothing" );
   }
   EXPECT_EQ( refusalOf( mldFrame( "82 00 .. ...." + someGroup6 ) ), "nothing" );
}

TEST( GroupsTest, InvalidReportsAreRefused ) {
   auto refused = []( std::string const & record ) {
      auto const all = refusalOf( igmpFrame( "22 00 .. .." + record ) );
      return all.substr( all.find( ':' ) + 2 );
   };
   EXPECT_EQ( refused( "0001 00 00 0000" + someGroup ), "a field has a value that is not allowed" );
   EXPECT_EQ( refused( "0001 07 00 0000" + someGroup ), "a field has a value that is not allowed" );
   EXPECT_EQ( refused( "0001 04 00 0001" + someGroup ), "it ends too early" );
   EXPECT_EQ( refused( "0001 04 01 0000" + someGroup ), "it ends too early" );
   EXPECT_EQ( refused( "0002 04 00 0000" + someGroup ), "it ends too early" );
   EXPECT_EQ( refused( "0001 04 00 0000" + someGroup + "00" ), "a length is wrong" );
   EXPECT_EQ( refused( "0000" ), "a length is wrong" );
   for ( auto damaged :
         { igmpFrame( "16 00 .." + someGroup ), mldFrame( "83 00 .. ...." + someGroup6 ) } ) {
      damaged.back() = 9;
      EXPECT_THAT( refusalOf( damaged ), ::testing::EndsWith( ": the checksum is wrong" ) );
   }
}

TEST( GroupsTest, CutReportsAreRefused ) {
   for ( auto const & frame :
         { igmpFrame( "22 00 .. .. 0001 04 00 0000" + someGroup ),
           mldFrame( "8f 00 .. .. 0001 04 00 0000" + someGroup6 ),
           igmpFrame( "16 00 .." + someGroup ), mldFrame( "83 00 .. ...." + someGroup6 ) } ) {
      EXPECT_EQ( refusalOf( frame ), "heard" );
      EXPECT_EQ( refusalOf( tagged( frame ) ), "heard" );
      for ( std::size_t length = 0; length < frame.size(); ++length ) {
         EXPECT_NE( refusalOf( frame.substr( 0, length ) ), "heard" ) << length;
      }
   }
}

} // namespace
} // namespace Derivation::Test
