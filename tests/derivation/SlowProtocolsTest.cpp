// LACP and OAM.
#include "tests/derivation/Frames.h"

namespace Derivation::Test::SlowProtocolsCases {
namespace {

std::string slow( std::string const & unit ) {
   return ethernet( "0180c2..02", 0x8809, unit );
}

// "port 3 of 02:00:00:00:00:01", in that state.
std::string const own = hex( "0114 8000 02....01 000f 00ff 0003" );
std::string const reserved( 3, '\0' );
std::string const collector = hex( "0310 0032" ) + std::string( 12, '\0' );
std::string const lacpEnd( 52, '\0' );

std::string other( std::string const & state ) {
   return hex( "0214 ffff 02....02 0011 00ff 0005" ) + hex( state ) + reserved;
}

std::string lacpFrame( std::string const & state, std::string const & partner ) {
   return slow( hex( "0101" ) + own + hex( state ) + reserved + partner + collector + lacpEnd );
}

std::string const inSync = lacpFrame( "3d", other( "3d" ) );
Sample const lacpSample( "lacp", inSync );
Sample const shortSample( "lacp, short", lacpFrame( "3f", other( "3f" ) ) );

TEST( LacpTest, TheActorLeavesTheGroup ) {
   auto const heard = heardOf( inSync );
   EXPECT_EQ( heard.protocol, "lacp" );
   EXPECT_EQ( heard.speaker, "system 02:00:00:00:00:01, port 3" );
   EXPECT_EQ( heard.says, "in sync, collecting, distributing" );
   EXPECT_FALSE( heard.leaves );
   EXPECT_EQ( heard.greeting, inSync );
   EXPECT_EQ( heard.goodbye, lacpFrame( "05", other( "3d" ) ) );
   EXPECT_EQ( heard.change, "in sync, collecting, distributing -> out of sync" );
   EXPECT_EQ( heard.replaced, ( std::vector< Replaced >{ { 32, 1, 1 } } ) );
}

TEST( LacpTest, ThePartnerChoosesTheHoldTime ) {
   EXPECT_EQ( heardOf( lacpFrame( "3f", other( "3d" ) ) ).holdTime, std::chrono::seconds( 90 ) );
   EXPECT_EQ( heardOf( lacpFrame( "3d", other( "3f" ) ) ).holdTime, std::chrono::seconds( 3 ) );
}

TEST( LacpTest, WhoIsOutOfSyncLeaves ) {
   auto const heard = heardOf( lacpFrame( "c7", other( "3d" ) ) );
   EXPECT_TRUE( heard.leaves );
   EXPECT_EQ( heard.says, "out of sync" );
   EXPECT_EQ( heard.goodbye, "" );
   for ( std::string const state : { "08", "10", "20" } ) {
      EXPECT_FALSE( heardOf( lacpFrame( state, other( "3d" ) ) ).leaves ) << state;
   }
}

TEST( LacpTest, Version2MayHaveMoreTlvs ) {
   auto const more = []( std::string const & tlv ) {
      return slow( hex( "0102" ) + own + hex( "3d" ) + reserved + other( "3d" ) + collector + tlv +
                   lacpEnd );
   };
   EXPECT_EQ( refusalOf( more( hex( "0404 .." ) ) ), "heard" );
   EXPECT_EQ( refusalOf( more( hex( "0401 .." ) ) ), "lacp: a length is wrong" );
   EXPECT_EQ( refusalOf( more( hex( "04ff .." ) ) ), "lacp: a TLV goes beyond the end" );
}

TEST( LacpTest, OtherUnitsAreRefused ) {
   std::string const missing = "lacp: a TLV is missing, or in the wrong place";
   auto const length = "lacp: a length is wrong";
   EXPECT_EQ( refusalOf( inSync.substr( 0, 123 ) ), "lacp: it ends too early" );
   EXPECT_EQ( refusalOf( inSync + '\0' ), length );
   EXPECT_EQ( refusalOf( patched( inSync + '\0', 15, hex( "02" ) ) ), "heard" );
   EXPECT_EQ( refusalOf( patched( inSync, 15, hex( "00" ) ) ), "lacp: the version is unknown" );
   EXPECT_EQ( refusalOf( patched( inSync, 16, hex( "02" ) ) ), missing );
   EXPECT_EQ( refusalOf( patched( inSync, 36, hex( "01" ) ) ), missing );
   EXPECT_EQ( refusalOf( patched( inSync, 56, hex( "02" ) ) ), missing );
   EXPECT_EQ( refusalOf( patched( inSync, 17, hex( "13" ) ) ), length );
   EXPECT_EQ( refusalOf( patched( inSync, 37, hex( "15" ) ) ), length );
   EXPECT_EQ( refusalOf( patched( inSync, 57, hex( "0f" ) ) ), length );
   EXPECT_EQ( refusalOf( patched( inSync, 73, hex( "01" ) ) ), length );
   EXPECT_EQ( refusalOf( patched( inSync, 14, hex( "02" ) ) ), "nothing" ) << "the marker protocol";
}

std::string const localInformation = hex( "0110 01 0002 00 01 05ee 02.. ...." );
std::string const remoteInformation = hex( "0210 01 0002 00 01 05ee 02.. ...." );

std::string oamFrame( std::string const & flagsAndCode, std::string const & tlvs ) {
   return slow( hex( "03" ) + hex( flagsAndCode ) + tlvs );
}

std::string const information =
   oamFrame( "0050 00", localInformation + remoteInformation + hex( "...." ) );
Sample const oamSample( "oam", information );

TEST( OamTest, TheFlagsGetADyingGasp ) {
   auto const heard = heardOf( information );
   EXPECT_EQ( heard.protocol, "oam" );
   EXPECT_EQ( heard.speaker, "port 02:00:00:00:00:01" );
   EXPECT_EQ( heard.says, "no dying gasp" );
   EXPECT_FALSE( heard.leaves );
   EXPECT_EQ( heard.holdTime, std::chrono::seconds( 5 ) );
   EXPECT_EQ( heard.goodbye,
              oamFrame( "0052 00", localInformation + remoteInformation + hex( "...." ) ) );
   EXPECT_EQ( heard.change, "no dying gasp -> dying gasp" );
   EXPECT_EQ( heard.replaced, ( std::vector< Replaced >{ { 15, 2, 2 } } ) );
   EXPECT_TRUE( heardOf( heard.goodbye ).leaves );
   EXPECT_EQ( heardOf( heard.goodbye ).says, "dying gasp" );
}

TEST( OamTest, OtherUnitsAreNothing ) {
   EXPECT_EQ( refusalOf( oamFrame( "0050 04", hex( "01.." ) ) ), "nothing" );
}

TEST( OamTest, WrongTlvsAreRefused ) {
   EXPECT_EQ( refusalOf( oamFrame( "0050 00", localInformation ) ), "oam: it ends too early" );
   EXPECT_EQ( refusalOf( oamFrame( "0050 00", hex( "0101 .." ) ) ), "oam: a length is wrong" );
   EXPECT_EQ( refusalOf( oamFrame( "0050 00", hex( "0102 .." ) ) ), "oam: a length is wrong" );
   EXPECT_EQ( refusalOf( oamFrame( "0050 00", hex( "0202 .." ) ) ), "oam: a length is wrong" );
   EXPECT_EQ( refusalOf( oamFrame( "0050 00", hex( "fe04 .." ) ) ), "oam: a length is wrong" );
   EXPECT_EQ( refusalOf( oamFrame( "0050 00", hex( "0110 .." ) ) ),
              "oam: a TLV goes beyond the end" );
   EXPECT_EQ( refusalOf( oamFrame( "0050 00", hex( "fe05 ...." ) ) ), "heard" );
   for ( auto const * const unknown : { "0303 ....", "fd03 ....", "ff03 ...." } ) {
      EXPECT_EQ( refusalOf( oamFrame( "0050 00", hex( unknown ) ) ),
                 "oam: a field has a value that is not allowed" );
   }
}

} // namespace
} // namespace Derivation::Test::SlowProtocolsCases
