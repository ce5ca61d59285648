#include "valend/speakers/SentGoodbyes.h"

#include "settings/Hex.h"

#include <gmock/gmock.h>

namespace Valend {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

// An LLDPDU of the port with that number and the time to live.
std::string lldp( char const * port, char const * ttl ) {
   return Settings::frameFromHex(
      std::string( "0180c200000e02000000000188cc0207040200000000010403077031" )
         .replace( 54, 2, port ) +
      "0602" + ttl + "0000" );
}

std::vector< SentGoodbye > among( std::vector< std::string > const & frames ) {
   return goodbyesAmong( { frames.begin(), frames.end() } );
}

TEST( SentGoodbyesTest, EachSpeakerThatLeavesIsNamedOnce ) {
   SentGoodbye const one{ "lldp", "chassis 02:00:00:00:00:01, port p1" };
   SentGoodbye const two{ "lldp", "chassis 02:00:00:00:00:01, port p2" };
   EXPECT_THAT( among( { lldp( "32", "0000" ), lldp( "31", "0000" ), lldp( "32", "0000" ) } ),
                ElementsAre( two, one ) );
}

TEST( SentGoodbyesTest, WhatIsNoGoodbyeIsLeftOut ) {
   EXPECT_THAT( among( { lldp( "31", "0078" ) } ), IsEmpty() );
   EXPECT_THAT( among( { std::string( 60, 'h' ) } ), IsEmpty() );
   EXPECT_THAT( among( { lldp( "31", "0000" ).substr( 0, 30 ) } ), IsEmpty() );
}

TEST( SentGoodbyesTest, NotMoreThanTheMostAreNamed ) {
   std::vector< std::string > frames;
   for ( std::size_t i = 0; i < mostGoodbyes + 4; ++i ) {
      frames.push_back( lldp( std::to_string( 41 + i ).c_str(), "0000" ) );
   }
   EXPECT_THAT( among( frames ), SizeIs( mostGoodbyes ) );
}

TEST( SentGoodbyesTest, ASpeakerHasANameIfItsFrameDecodes ) {
   EXPECT_EQ( speakerName( lldp( "31", "0000" ) ), "chassis 02:00:00:00:00:01, port p1" );
   EXPECT_EQ( speakerName( std::string( 60, 'h' ) ), "" );
}

} // namespace
} // namespace Valend
