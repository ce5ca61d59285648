// Which goodbyes of speakers become frames of an interface.
#include "valend/configuration/LearnedFrames.h"

#include "tests/valend/DaemonFixture.h"

#include <gmock/gmock.h>

namespace Valend {
namespace {

using namespace Test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

// A frame of a protocol that is recognized by its EtherType.
std::string lldpFrame( char last ) {
   std::string frame( "\x01\x80\xc2\0\0\x0e\x02\0\0\0\0\x01\x88\xcc\x02\x07\x04\x02\0\0\0\0\x01\x04"
                      "\x03\x07p1\x06\x02\0\0\0",
                      33 );
   frame.push_back( last );
   return frame;
}

Egress::Speaker speakerId( int number, U16 kind ) {
   Egress::Speaker id{};
   id.kind = kind;
   id.identity[ 0 ] = static_cast< U8 >( number );
   return id;
}

class LearnedFramesTest : public DaemonFixture {
 protected:
   LearnedFramesTest() {
      publications.changedIs( [ this ]( auto const & name ) { learned.framesChanged( name ); } );
      auto config = twoInterfaces();
      config.agents.clear();
      config.goodbyes = Settings::Goodbyes::learned();
      configIs( config );
   }

   void configIs( Settings::Config const & config ) {
      publications.configIs( config );
      learned.configChanged();
      turn();
   }
   void hears( LinkPlace const & place, int number, std::string const & goodbye,
               U16 kind = EGRESS_LLDP, std::string const & part = "" ) {
      Derivation::Heard heard;
      heard.goodbye = goodbye;
      heard.part = part;
      heard.holdTime = std::chrono::seconds( 120 );
      table.heard( place, speakerId( number, kind ), heard, clock.scheduler()->now() );
      learned.speakersChanged( place );
      turn();
   }
   void leaves( LinkPlace const & place, int number, U16 kind = EGRESS_LLDP ) {
      Derivation::Heard heard;
      heard.leaves = true;
      table.heard( place, speakerId( number, kind ), heard, clock.scheduler()->now() );
      learned.speakersChanged( place );
      turn();
   }
   // "learned-lldp: a b"
   std::vector< std::string > published( std::string const & interface ) const {
      std::vector< std::string > texts;
      for ( auto const * const message : publications.messagesFor( interface ) ) {
         auto text = message->agent + ":";
         for ( auto const & frame : message->frames ) {
            text += " ";
            text += frame.back();
         }
         texts.push_back( text );
      }
      return texts;
   }

   LinkPlace const et1{ "default", "et1" };
   LinkPlace const et2{ "ns-red", "et2" };
   Publications publications{ feeder, work, clock.scheduler() };
   SpeakerTable table;
   LearnedFrames learned{ feeder.config(), publications, table,
                          conditions,      work,         clock.scheduler() };
};

TEST_F( LearnedFramesTest, AGoodbyeIsPublishedForTheInterfaceOfTheDevice ) {
   hears( et1, 1, lldpFrame( 'a' ) );
   EXPECT_THAT( published( "Ethernet1" ), ElementsAre( "learned-lldp: a" ) );
   EXPECT_THAT( published( "Ethernet2" ), IsEmpty() );
   hears( et2, 1, lldpFrame( 'b' ), EGRESS_VRRP );
   EXPECT_THAT( published( "Ethernet2" ), ElementsAre( "learned-vrrp: b" ) );
}

TEST_F( LearnedFramesTest, TheGoodbyesOfSpeakersAndPartsOfAProtocolStandTogether ) {
   hears( et1, 1, lldpFrame( 'a' ) );
   hears( et1, 2, lldpFrame( 'b' ) );
   hears( et1, 3, lldpFrame( 'c' ), EGRESS_RIP, "1" );
   hears( et1, 3, lldpFrame( 'd' ), EGRESS_RIP, "2" );
   EXPECT_THAT( published( "Ethernet1" ),
                UnorderedElementsAre( "learned-lldp: a b", "learned-rip: c d" ) );
   hears( et1, 1, lldpFrame( 'e' ) );
   EXPECT_THAT( published( "Ethernet1" ),
                UnorderedElementsAre( "learned-lldp: e b", "learned-rip: c d" ) );
}

TEST_F( LearnedFramesTest, WhatASpeakerSaidIsWithdrawnWhenItLeaves ) {
   hears( et1, 1, lldpFrame( 'a' ) );
   hears( et1, 2, lldpFrame( 'b' ) );
   leaves( et1, 1 );
   EXPECT_THAT( published( "Ethernet1" ), ElementsAre( "learned-lldp: b" ) );
   leaves( et1, 2 );
   EXPECT_THAT( published( "Ethernet1" ), IsEmpty() );
}

TEST_F( LearnedFramesTest, ASpeakerWithoutADerivableGoodbyeHasNoFrame ) {
   hears( et1, 1, "" );
   EXPECT_THAT( published( "Ethernet1" ), IsEmpty() );
}

TEST_F( LearnedFramesTest, OnlyTheProtocolsOfTheConfigurationAreLearned ) {
   hears( et1, 1, lldpFrame( 'a' ) );
   hears( et1, 1, lldpFrame( 'b' ), EGRESS_RA );
   auto config = publications.config();
   config.goodbyes = Settings::Goodbyes::of( { "ra" } );
   configIs( config );
   EXPECT_THAT( published( "Ethernet1" ), ElementsAre( "learned-ra: b" ) );
   config.interfaces[ "Ethernet1" ].goodbyes = Settings::Goodbyes();
   configIs( config );
   EXPECT_THAT( published( "Ethernet1" ), IsEmpty() );
   config.interfaces[ "Ethernet1" ].goodbyes = Settings::Goodbyes::learned();
   configIs( config );
   EXPECT_THAT( published( "Ethernet1" ),
                UnorderedElementsAre( "learned-lldp: a", "learned-ra: b" ) );
}

TEST_F( LearnedFramesTest, ConfiguredFramesOfTheSameProtocolTakePrecedence ) {
   hears( et1, 1, lldpFrame( 'a' ) );
   hears( et1, 1, lldpFrame( 'b' ), EGRESS_RA );
   auto config = publications.config();
   config.agents[ "mine" ][ "Ethernet1" ] = { lldpFrame( 'x' ) };
   configIs( config );
   EXPECT_THAT( published( "Ethernet1" ), ElementsAre( "learned-ra: b" ) );
   config.agents.clear();
   configIs( config );
   EXPECT_THAT( published( "Ethernet1" ),
                UnorderedElementsAre( "learned-lldp: a", "learned-ra: b" ) );
}

TEST_F( LearnedFramesTest, PublishedFramesOfTheSameProtocolTakePrecedence ) {
   hears( et1, 1, lldpFrame( 'a' ) );
   publications.publish(
      { "agent", "Ethernet1", { lldpFrame( 'x' ) }, Publications::Lifetime::kept, 7 } );
   turn();
   EXPECT_THAT( published( "Ethernet1" ), ElementsAre( "agent: x" ) );
   publications.withdraw( "agent", "Ethernet1", 7 );
   turn();
   EXPECT_THAT( published( "Ethernet1" ), ElementsAre( "learned-lldp: a" ) );
}

TEST_F( LearnedFramesTest, AnInterfaceThatGetsAnotherDeviceHasTheGoodbyesOfThat ) {
   hears( et1, 1, lldpFrame( 'a' ) );
   LinkPlace const et9{ "default", "et9" };
   hears( et9, 1, lldpFrame( 'z' ) );
   auto config = publications.config();
   config.interfaces[ "Ethernet1" ].device = "et9";
   configIs( config );
   EXPECT_THAT( published( "Ethernet1" ), ElementsAre( "learned-lldp: z" ) );
}

TEST_F( LearnedFramesTest, WhatIsTheSameIsNotPublishedAgain ) {
   hears( et1, 1, lldpFrame( 'a' ) );
   auto const & before = *publications.messagesFor( "Ethernet1" ).front();
   auto const * const frames = &before.frames.list();
   hears( et1, 1, lldpFrame( 'a' ) );
   learned.configChanged();
   turn();
   EXPECT_EQ( &publications.messagesFor( "Ethernet1" ).front()->frames.list(), frames );
}

} // namespace
} // namespace Valend
