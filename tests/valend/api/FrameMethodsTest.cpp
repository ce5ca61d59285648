#include "settings/Hex.h"
#include "tests/valend/api/ApiFixture.h"

namespace Valend {
namespace {

using namespace Test;

// What is published, and when it is sent, is tested with Publications.
class FrameMethodsTest : public ApiFixture {
 protected:
   FrameMethodsTest() { startPublishing( twoInterfaces() ); }

   static Json message( char const * lifetime ) {
      return { { "agent", "bgp" },
               { "interface", "Ethernet1" },
               { "frames", { Settings::toHex( frame( 'x' ) ) } },
               { "lifetime", lifetime } };
   }
   Json listed( char const * interface ) {
      return call( "ListMessages", { { "interface", interface } } )->parameters()[ "messages" ];
   }
};

TEST_F( FrameMethodsTest, ALifetimeIsListedAsItWasGiven ) {
   for ( auto const * const lifetime : { "kept", "connection" } ) {
      EXPECT_EQ( call( "Publish", message( lifetime ) )->parameters()[ "tooLong" ], Json::array() );
      ASSERT_EQ( listed( "Ethernet1" ).size(), 2u ) << "with the configuration's";
      EXPECT_EQ( listed( "Ethernet1" )[ 1 ][ "lifetime" ], lifetime );
      EXPECT_EQ( listed( "Ethernet2" ).size(), 1u );
   }
   call( "Withdraw", { { "agent", "bgp" }, { "interface", "Ethernet1" } } );
   EXPECT_EQ( listed( "Ethernet1" ).size(), 1u );
}

TEST_F( FrameMethodsTest, AConnectionIsNeededWhileFramesAreBoundToIt ) {
   EXPECT_TRUE( call( "Publish", message( "connection" ) )->needed );
   EXPECT_FALSE( call( "Publish", message( "kept" ) )->needed );
   call( "Publish", message( "connection" ), false, 5 );
   api.clientGone( 5 );
   turn();
   EXPECT_EQ( listed( "Ethernet1" ).size(), 1u );
}

TEST_F( FrameMethodsTest, WatchesOfTheStatusNoticeWhatIsPublished ) {
   auto const watching = call( "WatchStatus", { { "interface", "Ethernet1" } }, true, 2 );
   ASSERT_EQ( watching->messages.size(), 1u );
   call( "Publish", message( "kept" ) );
   ASSERT_EQ( watching->messages.size(), 2u );
   EXPECT_EQ( watching->parameters( 1 )[ "interfaces" ][ 0 ][ "frames" ].size(), 2u );
}

TEST_F( FrameMethodsTest, LearnedFramesAreListedWithTheirSpeakers ) {
   auto config = twoInterfaces();
   config.agents.clear();
   config.goodbyes = Settings::Goodbyes::learned();
   publications.configIs( config );
   Derivation::Heard heard;
   heard.speaker = "port eth1";
   heard.change = "ttl 120 -> 0";
   heard.goodbye = frame( 'g' );
   heard.holdTime = 120s;
   Egress::Speaker id{};
   id.kind = EGRESS_LLDP;
   table.heard( { "default", "et1" }, id, heard, clock.scheduler()->now() );
   learned.speakersChanged( { "default", "et1" } );
   advance( 2s );
   call( "Publish", message( "kept" ) );
   for ( auto const & messages :
         { listed( "Ethernet1" ),
           call( "ListMessages", Json::object() )->parameters()[ "messages" ] } ) {
      ASSERT_EQ( messages.size(), 2u );
      EXPECT_EQ( messages[ 0 ][ "agent" ], "bgp" );
      EXPECT_EQ( messages[ 0 ][ "learned" ], Json::array() );
      EXPECT_EQ( messages[ 1 ][ "agent" ], "learned-lldp" );
      EXPECT_EQ( messages[ 1 ][ "learned" ], Json::array( { { { "frame", 1 },
                                                              { "speaker", "port eth1" },
                                                              { "change", "ttl 120 -> 0" },
                                                              { "heardMs", 2000 },
                                                              { "freshMs", 118'000 } } } ) );
   }
}

} // namespace
} // namespace Valend
