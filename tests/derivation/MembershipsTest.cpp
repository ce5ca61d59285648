#include "derivation/Memberships.h"

#include "egress/Mutes.h"
#include "tests/derivation/Dissector.h"

#include <cstring>

namespace Derivation::Test {
namespace {

// 01005e, 239.1.1.1 and 239.129.2.2, whose highest bit of the last three bytes is not in the MAC address.
std::string const group1 = hex( "ef010101" ), group2 = hex( "ef810202" );
std::string const group6 = hex( "ff15000000000000000000000badcafe" );

Member member( int igmpVersion = 3, int mldVersion = 2 ) {
   return { .mac = sourceMac,
            .ipv4 = hex( "c0000201" ),
            .linkLocal = hex( "fe800000000000000000000000000001" ),
            .igmpVersion = igmpVersion,
            .mldVersion = mldVersion };
}

// The frame, with the checksums over its bytes.
std::string igmpTo( char const * mac, char const * address, std::string const & message ) {
   auto const header = hex( "46 c0" ) + u16( 24 + message.size() ) +
                       hex( "0000 0000 01 02 0000 c0000201" ) + hex( address ) + hex( "94040000" );
   return hex( mac ) + sourceMac + hex( "0800" ) + summed( header, 10 ) + summed( message, 2 );
}
std::string mldTo( char const * mac, char const * address, std::string const & message ) {
   auto const addresses = hex( "fe800000000000000000000000000001" ) + hex( address );
   auto const pseudo = addresses + number( message.size(), 4 ) + hex( "0000003a" );
   return hex( mac ) + sourceMac + hex( "86dd 60000000" ) + u16( 8 + message.size() ) +
          hex( "00 01" ) + addresses + hex( "3a 00 05020000 0100" ) + summed( message, 2, pseudo );
}

TEST( MembershipsTest, OneReportLeavesAllGroups ) {
   auto const heard = membershipsOf( member(), { group2, group6, group1, group2 } );
   ASSERT_EQ( heard.size(), 2 );
   EXPECT_EQ( heard[ 0 ].protocol, "igmp" );
   EXPECT_EQ( heard[ 0 ].speaker, "host 192.0.2.1" );
   EXPECT_EQ( heard[ 0 ].says, "2 groups" );
   EXPECT_EQ( heard[ 0 ].change, "2 groups -> 0 groups" );
   EXPECT_EQ( heard[ 0 ].part, "239.1.1.1 and 1 more, fb43766083b6d44a" );
   EXPECT_EQ( heard[ 0 ].holdTime, std::chrono::seconds( 260 ) );
   EXPECT_EQ( heard[ 0 ].whyNot, "" );
   EXPECT_FALSE( heard[ 0 ].leaves );
   auto const report = [ & ]( char const * type ) {
      return igmpTo( "01005e000016", "e0000016",
                     hex( "22 00 0000 0000 0002" ) + hex( type ) + hex( "00 0000" ) + group1 +
                        hex( type ) + hex( "00 0000" ) + group2 );
   };
   EXPECT_EQ( heard[ 0 ].greeting, report( "04" ) );
   EXPECT_EQ( heard[ 0 ].goodbye, report( "03" ) );

   EXPECT_EQ( heard[ 1 ].protocol, "mld" );
   EXPECT_EQ( heard[ 1 ].speaker, "host fe80::1" );
   EXPECT_EQ( heard[ 1 ].says, "1 group" );
   EXPECT_EQ( heard[ 1 ].change, "1 group -> 0 groups" );
   EXPECT_EQ( heard[ 1 ].part, "ff15::bad:cafe" );
   auto const report6 = [ & ]( char const * type ) {
      return mldTo( "333300000016", "ff020000000000000000000000000016",
                    hex( "8f 00 0000 0000 0001" ) + hex( type ) + hex( "00 0000" ) + group6 );
   };
   EXPECT_EQ( heard[ 1 ].greeting, report6( "04" ) );
   EXPECT_EQ( heard[ 1 ].goodbye, report6( "03" ) );
}

TEST( MembershipsTest, OlderVersionsLeaveEachGroupByItself ) {
   auto const heard = membershipsOf( member( 2, 1 ), { group1, group2, group6 } );
   ASSERT_EQ( heard.size(), 3 );
   EXPECT_EQ( heard[ 0 ].greeting,
              igmpTo( "01005e010101", "ef010101", hex( "16 00 0000" ) + group1 ) );
   EXPECT_EQ( heard[ 0 ].goodbye,
              igmpTo( "01005e000002", "e0000002", hex( "17 00 0000" ) + group1 ) );
   EXPECT_EQ( heard[ 0 ].part, "239.1.1.1" );
   EXPECT_EQ( heard[ 1 ].greeting,
              igmpTo( "01005e010202", "ef810202", hex( "16 00 0000" ) + group2 ) );
   EXPECT_EQ( heard[ 1 ].part, "239.129.2.2" );
   EXPECT_EQ( heard[ 2 ].greeting, mldTo( "33330badcafe", "ff15000000000000000000000badcafe",
                                          hex( "83 00 0000 0000 0000" ) + group6 ) );
   EXPECT_EQ( heard[ 2 ].goodbye, mldTo( "333300000002", "ff020000000000000000000000000002",
                                         hex( "84 00 0000 0000 0000" ) + group6 ) );
}

TEST( MembershipsTest, TheOrderOfTheGroupsMakesNoDifference ) {
   auto const one = membershipsOf( member(), { group1, group2 } );
   auto const other = membershipsOf( member(), { group2, group1 } );
   EXPECT_EQ( one.front().goodbye, other.front().goodbye );
   EXPECT_EQ( one.front().part, other.front().part );
}

TEST( MembershipsTest, WhatTheHostNeedsIsNotLeft ) {
   for ( auto const * const group :
         { "e0000001", "e0000005", "e00000fb", "e00000ff", "c0000202", "f0000001",
           "ff020000000000000000000000000001", "ff0200000000000000000001ff000001",
           "ff0200000000000000000000000000fb", "ff010000000000000000000000000001",
           "ff000000000000000000000000000001", "ff110000000000000000000000000001",
           "20010db8000000000000000000000001", "ef", "" } ) {
      EXPECT_TRUE( membershipsOf( member(), { hex( group ) } ).empty() ) << group;
      EXPECT_TRUE( membershipsOf( member( 2, 1 ), { hex( group ) } ).empty() ) << group;
   }
   for ( auto const * const group :
         { "e0000101", "e0010001", "efffffff", "ff050000000000000000000000000002",
           "ff120000000000000000000000000001" } ) {
      EXPECT_EQ( membershipsOf( member(), { hex( group ) } ).size(), 1 ) << group;
   }
}

TEST( MembershipsTest, WithoutAnAddressNothingIsLeft ) {
   auto without = member();
   without.ipv4 = "";
   EXPECT_EQ( membershipsOf( without, { group1, group6 } ).front().protocol, "mld" );
   without.linkLocal = "";
   EXPECT_TRUE( membershipsOf( without, { group1, group6 } ).empty() );
}

TEST( MembershipsTest, AReportFitsIntoTheMtu ) {
   std::vector< std::string > groups;
   for ( std::size_t i = 0; i < 200; ++i ) {
      groups.push_back( hex( "ef0101" ) + number( i, 1 ) );
      groups.push_back( hex( "ff1500000000000000000000000000" ) + number( i, 1 ) );
   }
   auto sizes = [ & ]( std::size_t mtu ) {
      auto some = member();
      some.mtu = mtu;
      std::vector< std::size_t > all;
      for ( auto const & heard : membershipsOf( some, groups ) ) {
         all.push_back( heard.goodbye.size() - 14 );
         EXPECT_EQ( heard.goodbye.size(), heard.greeting.size() );
      }
      return all;
   };
   EXPECT_EQ( sizes( 1500 ), ( std::vector< std::size_t >{ 1496, 168, 1496, 1496, 1176 } ) );
   EXPECT_EQ( sizes( 9000 ), ( std::vector< std::size_t >{ 1632, 4056 } ) );
   EXPECT_EQ( sizes( 0 ).size(), 400 ); // one group in each
}

// As SamplesTest has it for what is derived from frames.
TEST( MembershipsTest, GreetingAndGoodbyeAreOfOneSpeakerAndValid ) {
   std::vector< std::string > frames;
   for ( int const older : { 0, 1 } ) {
      for ( auto const & heard :
            membershipsOf( member( 3 - older, 2 - older ), { group1, group2, group6 } ) ) {
         auto const greeting = Egress::speakerOf( heard.greeting, 1, 2 );
         auto const goodbye = Egress::speakerOf( heard.goodbye, 1, 2 );
         ASSERT_TRUE( greeting && goodbye );
         EXPECT_EQ( Egress::protocolOf( *greeting ), heard.protocol );
         EXPECT_EQ( std::memcmp( &*greeting, &*goodbye, sizeof *greeting ), 0 );
         EXPECT_EQ( rebuilt( heard ), heard.goodbye );
         // They are heard as what a kernel sends.
         EXPECT_EQ( heardOf( heard.greeting ).speaker, heard.speaker );
         EXPECT_EQ( heardOf( heard.greeting ).says, heard.says );
         EXPECT_EQ( heardOf( heard.greeting ).part, heard.part );
         EXPECT_TRUE( heardOf( heard.goodbye ).leaves );
         frames.insert( frames.end(), { heard.greeting, heard.goodbye } );
      }
   }
   ASSERT_EQ( frames.size(), 10 );
   EXPECT_EQ( complaints( frames ), std::vector< std::string >( frames.size() ) );
}

} // namespace
} // namespace Derivation::Test
