#include "valend/report/SpeakersReport.h"

#include "settings/Hex.h"
#include "tests/valend/DaemonFixture.h"

namespace Valend {
namespace {

using namespace Test;
using Json = nlohmann::json;
using ::testing::IsEmpty;

// A goodbye that the protocol LLDP is recognized by.
std::string const goodbye = Settings::frameFromHex(
   "0180c200000e02000000000188cc02070402000000000104050565746831060200000000" );

class SpeakersReportTest : public DaemonFixture {
 protected:
   SpeakersReportTest() {
      publications.changedIs( [ this ]( auto const & name ) { learned.framesChanged( name ); } );
      config.agents.clear();
      config.goodbyes = Settings::Goodbyes::learned();
      start( Settings::Config() );
      configIs();
   }
   void configIs() {
      publications.configIs( config );
      learned.configChanged();
      turn();
   }
   static Derivation::Heard heard( std::string const & bye, std::string const & whyNot = "" ) {
      Derivation::Heard heard;
      heard.speaker = "port eth1";
      heard.says = "ttl 120";
      heard.change = bye.empty() ? "" : "ttl 120 -> 0";
      heard.goodbye = bye;
      heard.whyNot = whyNot;
      heard.holdTime = 120s;
      return heard;
   }
   void hears( Derivation::Heard const & heard, U16 kind = EGRESS_LLDP ) {
      Egress::Speaker id{};
      id.kind = kind;
      table.heard( { "default", "et1" }, id, heard, clock.scheduler()->now() );
      learned.speakersChanged( { "default", "et1" } );
      turn();
   }
   Json heardOn( char const * interface ) const {
      return report.heard( feeder.config().interfaces.at( interface ) );
   }
   Json notLearned() const { return heardOn( "Ethernet1" ).at( 0 )[ "notLearned" ]; }

   Settings::Config config = twoInterfaces();
   Publications publications{ feeder, work, clock.scheduler() };
   SpeakerTable table;
   LearnedFrames learned{ feeder.config(), publications, table,
                          conditions,      work,         clock.scheduler() };
   SpeakersReport report{ { feeder.config(), table, learned,
                            []( auto const & place ) { return "no filter on " + place.device; },
                            clock.scheduler() } };
};

TEST_F( SpeakersReportTest, ALearnedFrameHasItsSpeakerAndItsAge ) {
   hears( heard( goodbye ) );
   advance( 3s );
   auto const messages = publications.messagesFor( "Ethernet1" );
   ASSERT_EQ( messages.size(), 1u );
   EXPECT_EQ( report.learned( *messages.front() ), Json::array( { { { "frame", 1 },
                                                                    { "speaker", "port eth1" },
                                                                    { "change", "ttl 120 -> 0" },
                                                                    { "heardMs", 3000 },
                                                                    { "freshMs", 117'000 } } } ) );
}

TEST_F( SpeakersReportTest, WhatWasNotLearnedHasNoSpeaker ) {
   hears( heard( goodbye ) );
   Publications::Message const message{
      "mine", "Ethernet1", { goodbye }, Publications::Lifetime::kept, 1 };
   EXPECT_THAT( report.learned( message ), IsEmpty() );
   Publications::Message const old{ "learned-lldp",
                                    "Ethernet1",
                                    { "another" },
                                    Publications::Lifetime::learned,
                                    Publications::self };
   EXPECT_THAT( report.learned( old ), IsEmpty() );
}

TEST_F( SpeakersReportTest, EachSpeakerIsListedWithItsLatestFrame ) {
   EXPECT_THAT( heardOn( "Ethernet1" ), IsEmpty() );
   auto part = heard( goodbye );
   part.part = "10.0.0.0/8";
   hears( part, EGRESS_RIP );
   advance( 1s );
   part.part = "172.16.0.0/12";
   part.says = "1 route";
   hears( part, EGRESS_RIP );
   EXPECT_EQ( heardOn( "Ethernet1" ), Json::array( { { { "protocol", "rip" },
                                                       { "speaker", "port eth1" },
                                                       { "says", "1 route" },
                                                       { "frames", 2 },
                                                       { "change", "ttl 120 -> 0" },
                                                       { "notLearned", nullptr },
                                                       { "heardMs", 0 },
                                                       { "freshMs", 120'000 } } } ) );
   EXPECT_THAT( heardOn( "Ethernet2" ), IsEmpty() );
}

TEST_F( SpeakersReportTest, WhyAGoodbyeIsNotLearnedIsSaid ) {
   hears( heard( "", "authenticated with MD5" ) );
   EXPECT_EQ( notLearned(), "authenticated with MD5" );
   hears( heard( goodbye ) );
   EXPECT_EQ( notLearned(), nullptr );
   config.interfaces[ "Ethernet1" ].goodbyes = Settings::Goodbyes::of( { "ra" } );
   configIs();
   EXPECT_EQ( notLearned(), "not wanted: \"goodbyes: [ra]\"" );
   config.agents[ "mine" ][ "Ethernet1" ] = { goodbye };
   configIs();
   EXPECT_EQ( notLearned(), "agent \"mine\" has frames of this protocol" );
   config.agents.clear();
   config.interfaces[ "Ethernet1" ].goodbyes.reset();
   configIs();
   EXPECT_EQ( notLearned(), nullptr );
   publications.publish( { "agent", "Ethernet1", { goodbye }, Publications::Lifetime::kept, 1 } );
   EXPECT_EQ( notLearned(), "agent \"agent\" has frames of this protocol" );
}

// What is published of it is no reason of another agent.
TEST_F( SpeakersReportTest, WhatWasLearnedDoesNotTakePrecedenceOverItself ) {
   for ( int i = 0; i < 3; ++i ) {
      hears( heard( goodbye ) );
      learned.framesChanged( "Ethernet1" );
      turn();
      EXPECT_EQ( notLearned(), nullptr );
      EXPECT_EQ( publications.messagesFor( "Ethernet1" ).size(), 1u );
   }
}

TEST_F( SpeakersReportTest, WhySpeakersCannotBeMutedIsOfTheDevice ) {
   EXPECT_EQ( report.whyNotMuted( feeder.config().interfaces.at( "Ethernet2" ) ),
              "no filter on et2" );
}

} // namespace
} // namespace Valend
