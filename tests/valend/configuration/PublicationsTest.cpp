// Publishing frames over the API.
#include "tests/valend/api/ApiFixture.h"

#include "settings/Hex.h"

#include <malloc.h>

namespace Valend {
namespace {

using namespace Test;
using Settings::toHex;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class PublicationsTest : public ApiFixture {
 protected:
   PublicationsTest() {
      auto config = twoInterfaces();
      config.agents[ "lldp" ].erase( "Ethernet2" );
      startPublishing( config );
   }

   std::shared_ptr< Answers > publish( std::string const & agent, Json const & frames,
                                       char const * lifetime = "kept", U64 client = 1,
                                       char const * interface = "Ethernet2" ) {
      return call( "Publish",
                   { { "agent", agent },
                     { "interface", interface },
                     { "frames", frames },
                     { "lifetime", lifetime } },
                   false, client );
   }
   std::shared_ptr< Answers > withdraw( char const * agent, U64 client = 1 ) {
      return call( "Withdraw", { { "agent", agent }, { "interface", "Ethernet2" } }, false,
                   client );
   }
   static std::string hex( char last ) { return toHex( frame( last ) ); }
   // As valend itself publishes what it has learned.
   void learn( std::string const & agent, char last, char const * interface = "Ethernet2" ) {
      publications.publish( { agent,
                              interface,
                              { frame( last ) },
                              Publications::Lifetime::learned,
                              Publications::self } );
      turn();
   }
   // The last byte of each frame that a shutdown of Ethernet2 sends.
   std::string goodbye() {
      sent.packets.clear();
      controller.shutdown( "Ethernet2", { "root" }, nullptr );
      advance( 1100ms );
      enable( "Ethernet2" );
      turn();
      std::string last;
      for ( auto const & packet : sent.packets ) {
         last += packet.bytes.back();
      }
      return last;
   }
   std::vector< std::string > messages() {
      std::vector< std::string > lines;
      auto const answers = call( "ListMessages", Json::object() );
      for ( auto const & each : answers->parameters()[ "messages" ] ) {
         lines.push_back(
            each[ "agent" ].get< std::string >() + " " + each[ "interface" ].get< std::string >() +
            " " + std::to_string( each[ "frames" ].size() ) + " " +
            each[ "lifetime" ].get< std::string >() + ( each[ "inForce" ] ? "" : " not active" ) );
      }
      return lines;
   }
};

TEST_F( PublicationsTest, PublishedFramesMakeAnInterfaceReadyAndAreSent ) {
   ASSERT_FALSE( ready( "Ethernet2" ) );
   auto const answers = publish( "radv", { hex( 'x' ), hex( 'y' ) } );
   EXPECT_EQ( answers->messages.at( 0 ),
              ( Json{ { "parameters", { { "tooLong", Json::array() }, { "saved", true } } } } ) );
   EXPECT_TRUE( ready( "Ethernet2" ) );
   EXPECT_EQ( goodbye(), "xy" );
   EXPECT_THAT( messages(),
                ElementsAre( "lldp Ethernet1 2 configuration", "radv Ethernet2 2 kept" ) );
   EXPECT_EQ( call( "ListMessages", { { "interface", "Ethernet2" } } )
                 ->parameters()[ "messages" ][ 0 ][ "frames" ],
              Json( { hex( 'x' ), hex( 'y' ) } ) );
}

TEST_F( PublicationsTest, PublishingAgainReplacesTheWholeList ) {
   publish( "radv", { hex( 'x' ), hex( 'y' ) } );
   publish( "radv", { hex( 'z' ) } );
   EXPECT_EQ( goodbye(), "z" );
   publish( "ospf", { hex( 'o' ) } );
   EXPECT_EQ( goodbye(), "zo" );
   EXPECT_TRUE( withdraw( "radv" )->last );
   EXPECT_EQ( goodbye(), "o" );
   withdraw( "ospf" );
   EXPECT_FALSE( ready( "Ethernet2" ) );
   publish( "radv", { hex( 'x' ) } );
   EXPECT_EQ( goodbye(), "x" ) << "adding frames again must work";
}

TEST_F( PublicationsTest, ARejectedListChangesNothing ) {
   publish( "radv", { hex( 'x' ) } );
   EXPECT_EQ( publish( "radv", { hex( 'y' ), "00" } )->error(),
              "org.valen.daemon.BadFrame: frame 2: frame of 1 byte; expected at least 14, an "
              "Ethernet header" );
   EXPECT_THAT( publish( "radv", { "0g" } )->error(),
                HasSubstr( "BadFrame: frame 1: \"g\" at character 2" ) );
   EXPECT_EQ( publish( "radv", { toHex( std::string( 65536, 'f' ) ) } )->error(),
              "org.valen.daemon.BadFrame: frame 1: 65536 bytes; the limit is 65535" );
   EXPECT_THAT( publish( "radv", Json::array() )->error(),
                HasSubstr( "NoFrames: no frames given" ) );
   EXPECT_THAT( publish( "", { hex( 'y' ) } )->error(), HasSubstr( "BadName: " ) );
   EXPECT_THAT( publish( "a/b", { hex( 'y' ) } )->error(), HasSubstr( "BadName: " ) );
   EXPECT_THAT( publish( "radv", { hex( 'y' ) }, "kept", 1, "Ethernet9" )->error(),
                HasSubstr( "NoSuchInterface: " ) );
   EXPECT_EQ( goodbye(), "x" );
}

TEST_F( PublicationsTest, FramesThatAreTooLongForTheDeviceAreReported ) {
   EXPECT_EQ( publish( "radv", { hex( 'x' ), toHex( std::string( 1515, 'f' ) ) } )
                 ->parameters()[ "tooLong" ],
              ( Json::array( { { { "frame", 2 }, { "bytes", 1515 }, { "limit", 1514 } } } ) ) );
}

TEST_F( PublicationsTest, ASecondAgentOfTheSameNameIsRejected ) {
   EXPECT_EQ( publish( "lldp", { hex( 'x' ) } )->error(),
              "org.valen.daemon.AgentExists: agent \"lldp\" is in the configuration; publish under "
              "another name" );
   publish( "radv", { hex( 'x' ) }, "connection", 7 );
   EXPECT_EQ(
      publish( "radv", { hex( 'y' ) }, "kept", 8 )->error(),
      "org.valen.daemon.AgentExists: another client publishes as agent \"radv\"; its frames "
      "are withdrawn when it disconnects" );
   EXPECT_THAT( withdraw( "radv", 8 )->error(), HasSubstr( "AgentExists: " ) );
   EXPECT_THAT( withdraw( "ospf", 7 )->error(),
                HasSubstr( "NoSuchMessages: agent \"ospf\" has not published frames for interface "
                           "\"Ethernet2\"" ) );
   EXPECT_THAT( call( "Withdraw", { { "agent", "lldp" }, { "interface", "Ethernet1" } } )->error(),
                HasSubstr( "NoSuchMessages: the frames of agent \"lldp\" for interface "
                           "\"Ethernet1\" are not published: they are in the configuration" ) );
   EXPECT_TRUE( publish( "radv", { hex( 'z' ) }, "connection", 7 )->last );
   EXPECT_EQ( goodbye(), "z" );
}

TEST_F( PublicationsTest, FramesThatAreBoundToAConnectionAreWithdrawnWithIt ) {
   EXPECT_TRUE( publish( "radv", { hex( 'x' ) }, "connection", 7 )->needed );
   EXPECT_FALSE( publish( "ospf", { hex( 'o' ) }, "kept", 7 )->messages.empty() );
   api.clientGone( 8 );
   EXPECT_EQ( goodbye(), "xo" );
   api.clientGone( 7 );
   EXPECT_EQ( goodbye(), "o" );
   EXPECT_TRUE( publish( "radv", { hex( 'y' ) }, "kept", 8 )->last ) << "the name is free again";
   EXPECT_FALSE( publish( "radv", { hex( 'y' ) }, "kept", 8 )->needed );
}

TEST_F( PublicationsTest, TheFramesOfAClientThatIsGoneAreWithdrawnInLaterTurns ) {
   publish( "radv", { hex( 'x' ) }, "connection", 7 );
   publish( "radv", { hex( 'x' ) }, "connection", 7, "Ethernet1" );
   publish( "ospf", { hex( 'o' ) }, "connection", 7 );
   api.clientGone( 7 );
   EXPECT_EQ( publications.messages().size(), 3u );
   api.clientGone( 7 );
   turn();
   EXPECT_THAT( publications.messages(), IsEmpty() );
   EXPECT_EQ( publications.memory(), 0u );
   EXPECT_FALSE( publications.isNeeded( 7 ) );
}

TEST_F( PublicationsTest, TheListOfAllMessagesIsMadeInSlices ) {
   auto config = twoInterfaces();
   for ( int i = 0; i < 2000; ++i ) {
      auto const name = "port" + std::to_string( i );
      config.interfaces[ name ] = { name, name, "default", true };
      config.agents[ "lldp" ][ name ] = { frame( 'x' ) };
   }
   publications.configIs( config );
   publish( "radv", { hex( 'x' ) } );
   publish( "ospf", { hex( 'x' ) } );
   auto const answers = std::make_shared< Answers >( "org.valen.daemon.ListMessages" );
   api.call( std::make_shared< Varlink::Call >( "org.valen.daemon.ListMessages", Json::object(),
                                                Varlink::Wanted::one,
                                                Varlink::Caller{ 0, 1, { 0 } }, 1, answers ) );
   work.run();
   EXPECT_FALSE( answers->last );
   turn();
   EXPECT_EQ( answers->parameters()[ "messages" ].size(), 2004u );
}

TEST_F( PublicationsTest, AnAgentThatConnectsAgainPublishesAtOnce ) {
   publish( "radv", { hex( 'x' ) }, "connection", 7 );
   publish( "radv", { hex( 'x' ) }, "connection", 7, "Ethernet1" );
   api.clientGone( 7 );
   auto const frames = Settings::FrameList{ frame( 'y' ) };
   publications.publish( { "radv", "Ethernet2", frames, Publications::Lifetime::connection, 8 } );
   EXPECT_THROW( publications.publish(
                    { "radv", "Ethernet2", frames, Publications::Lifetime::connection, 9 } ),
                 Refusal )
      << "the name belongs to the new client";
   turn();
   EXPECT_EQ( publications.messages().size(), 1u );
   EXPECT_EQ( goodbye(), "y" );
   EXPECT_TRUE( publications.isNeeded( 8 ) );
   api.clientGone( 8 );
   EXPECT_EQ( goodbye(), "" );
   EXPECT_EQ( publications.memory(), 0u );
}

TEST_F( PublicationsTest, AReloadKeepsPublishedFrames ) {
   publish( "radv", { hex( 'x' ) } );
   auto config = twoInterfaces();
   config.shutdownDelayMs = 700;
   config.agents[ "lldp" ].erase( "Ethernet2" );
   publications.configIs( config );
   EXPECT_EQ( goodbye(), "x" );
   config.agents[ "radv" ][ "Ethernet2" ] = { frame( 'c' ) };
   publications.configIs( config );
   EXPECT_EQ( goodbye(), "c" ) << "the configuration takes precedence";
   EXPECT_THAT( messages(),
                ElementsAre( "lldp Ethernet1 2 configuration", "radv Ethernet2 1 configuration",
                             "radv Ethernet2 1 kept not active" ) );
   config.agents.erase( "radv" );
   publications.configIs( config );
   EXPECT_EQ( goodbye(), "x" );
   config.interfaces.erase( "Ethernet2" );
   publications.configIs( config );
   EXPECT_THAT( messages(), ElementsAre( "lldp Ethernet1 2 configuration",
                                         "radv Ethernet2 1 kept not active" ) );
}

TEST_F( PublicationsTest, TheLinkIsStillHeldWhenItsFramesAreWithdrawnDuringTheDelay ) {
   publish( "radv", { hex( 'x' ) }, "connection", 7 );
   controller.shutdown( "Ethernet2", { "root" }, nullptr );
   advance( 100ms );
   api.clientGone( 7 );
   advance( 300ms );
   EXPECT_TRUE( controller.running( "Ethernet2" ) );
   advance( 300ms );
   EXPECT_THAT( kernel.actions, ElementsAre( "down ns-red/et2" ) );
}

// --- What valend learns --------------------------------------------------------------------------

TEST_F( PublicationsTest, WhatIsLearnedMakesAnInterfaceReadyUntilValendWithdrawsIt ) {
   learn( "learned-ra", 'x' );
   EXPECT_TRUE( ready( "Ethernet2" ) );
   EXPECT_THAT( messages(),
                ElementsAre( "lldp Ethernet1 2 configuration", "learned-ra Ethernet2 1 learned" ) );
   learn( "learned-ra", 'y' );
   EXPECT_EQ( goodbye(), "y" );
   EXPECT_EQ( publications.withdraw( "learned-ra", "Ethernet2", Publications::self ),
              Publications::Lifetime::learned );
   turn();
   EXPECT_FALSE( ready( "Ethernet2" ) );
   EXPECT_EQ( publications.memory(), 0u );
}

TEST_F( PublicationsTest, NamesThatBeginAsThoseOfLearnedFramesAreReserved ) {
   for ( auto const * const lifetime : { "kept", "connection" } ) {
      EXPECT_EQ(
         publish( "learned-ra", { hex( 'x' ) }, lifetime )->error(),
         "org.valen.daemon.BadName: names of agents that begin with \"learned-\" are reserved "
         "for what valend learns; publish under another name" );
   }
   EXPECT_THROW( learn( "ra", 'x' ), Refusal );
   EXPECT_THAT( publications.messages(), IsEmpty() );
   EXPECT_TRUE( publish( "learned", { hex( 'x' ) } )->messages[ 0 ].contains( "parameters" ) );
}

TEST_F( PublicationsTest, AClientNeitherPublishesNorWithdrawsWhatIsLearned ) {
   EXPECT_EQ( publish( "ra", { hex( 'x' ) }, "learned" )->error(),
              "org.varlink.service.InvalidParameter: {\"parameter\":\"lifetime\"}" );
   learn( "learned-ra", 'x' );
   EXPECT_EQ(
      withdraw( "learned-ra" )->error(),
      "org.valen.daemon.AgentExists: the frames of agent \"learned-ra\" for interface "
      "\"Ethernet2\" were learned by valend; the key \"goodbyes\" of the configuration decides "
      "what it learns" );
   api.clientGone( 1 );
   turn();
   EXPECT_FALSE( publications.isNeeded( Publications::self ) );
   EXPECT_EQ( goodbye(), "x" );
}

TEST_F( PublicationsTest, OnlyFramesThatAreKeptAreSaved ) {
   std::vector< std::string > saved;
   auto const save = [ & ]( auto const & agent, auto const &, auto const & frames ) {
      saved.push_back( agent + " " + std::to_string( frames.size() ) );
   };
   Publications other( feeder, work, clock.scheduler(), save );
   using Lifetime = Publications::Lifetime;
   auto const message = []( char const * agent, Lifetime lifetime ) {
      return Publications::Message{ agent, "Ethernet2", { frame( 'x' ) }, lifetime, 0 };
   };
   other.resume( { message( "learned-ra", Lifetime::kept ), message( "bgp", Lifetime::kept ) } );
   EXPECT_EQ( other.messages().size(), 1u ) << "a reserved name is not restored";
   other.configIs( twoInterfaces() );
   other.publish( message( "learned-ra", Lifetime::learned ) );
   other.withdraw( "learned-ra", "Ethernet2", Publications::self );
   EXPECT_THAT( saved, IsEmpty() );
   other.publish( message( "ospf", Lifetime::kept ) );
   EXPECT_THAT( saved, ElementsAre( "ospf 1" ) );
}

// --- Memory --------------------------------------------------------------------------------------

TEST_F( PublicationsTest, TheMemoryOfAllPublishedFramesIsLimited ) {
   auto const count = Publications::maxMemory / ( 2 * 60'000 + Publications::frameMemory ) + 1;
   try {
      publications.publish( { "a", "Ethernet2",
                              Settings::FrameList( count, std::string( 60'000, 'f' ) ),
                              Publications::Lifetime::kept, 1 } );
      FAIL();
   } catch ( Refusal const & e ) {
      EXPECT_EQ( e.name(), "TooMuch" );
      EXPECT_EQ( e.what(), "published frames would take " +
                              std::to_string( count * 120'128 + Publications::entryMemory ) +
                              " bytes of memory; the limit is 134217728" );
   }
   EXPECT_THAT( publications.messages(), IsEmpty() );
   EXPECT_EQ( publications.memory(), 0u );
}

TEST_F( PublicationsTest, WhatIsReplacedOrWithdrawnTakesNoMemory ) {
   publish( "radv", { hex( 'x' ), hex( 'y' ) } );
   auto const two = publications.memory();
   publish( "radv", { hex( 'z' ) } );
   EXPECT_EQ( publications.memory(), two - Publications::frameMemory - 28 );
   publish( "ospf", { hex( 'z' ) }, "connection", 7 );
   api.clientGone( 7 );
   withdraw( "radv" );
   EXPECT_EQ( publications.memory(), 0u );
}

// Sanitizers have heaps of their own.
#if !defined( __SANITIZE_ADDRESS__ ) && !defined( __SANITIZE_THREAD__ )
// What the limit counts is what the process takes, for the smallest frames and for large ones.
TEST_F( PublicationsTest, TheMemoryOfPublishedFramesIsNoMoreThanItIsCounted ) {
   auto config = twoInterfaces();
   for ( int i = 0; i < 300; ++i ) {
      auto const name = "port" + std::to_string( i );
      config.interfaces[ name ] = { name, name, "default", true };
   }
   publications.configIs( config );
   struct Sample {
      unsigned interfaces, frames;
      std::size_t bytes;
   };
   for ( auto const & [ interfaces, frames, bytes ] :
         { Sample{ 10, 5000, 14 }, Sample{ 10, 1000, 15 }, Sample{ 10, 1000, 100 },
           Sample{ 10, 100, 9000 }, Sample{ 300, 1, 14 } } ) {
      auto const before = ::mallinfo2().uordblks;
      U64 number = 0;
      for ( unsigned i = 0; i < interfaces; ++i ) {
         Settings::FrameList list;
         for ( unsigned k = 0; k < frames; ++k ) { // all differ
            std::string each( bytes, 'f' );
            ++number;
            each.replace( 0, sizeof number, reinterpret_cast< char const * >( &number ),
                          sizeof number );
            list.push_back( std::move( each ) );
         }
         list.shrink_to_fit();
         publications.publish( { "agent", "port" + std::to_string( i ), std::move( list ),
                                 Publications::Lifetime::kept, 1 } );
      }
      auto const taken = ::mallinfo2().uordblks - before;
      EXPECT_LE( taken, publications.memory() ) << frames << " frames of " << bytes;
      EXPECT_GE( taken, publications.memory() / 6 ) << frames << " frames of " << bytes;
      for ( unsigned i = 0; i < interfaces; ++i ) {
         publications.withdraw( "agent", "port" + std::to_string( i ), 1 );
      }
   }
}
#endif

TEST_F( PublicationsTest, ThePublisherIsAnsweredWhenItsFramesAreOnTheDisk ) {
   std::vector< std::function< void( bool ) > > waiting;
   whenSaved = [ & ]( auto const & done ) { waiting.push_back( done ); };
   auto const answers = publish( "radv", { hex( 'x' ) } );
   EXPECT_TRUE( ready( "Ethernet2" ) ) << "it is published at once";
   EXPECT_FALSE( answers->last );
   EXPECT_TRUE( publish( "ospf", { hex( 'o' ) }, "connection" )->last ) << "it is not saved";
   ASSERT_EQ( waiting.size(), 1u );
   waiting[ 0 ]( false );
   EXPECT_EQ( answers->parameters()[ "saved" ], false );
   auto const withdrawn = withdraw( "radv" );
   EXPECT_FALSE( withdrawn->last );
   waiting.at( 1 )( true );
   EXPECT_EQ( withdrawn->parameters()[ "saved" ], true );
}

} // namespace
} // namespace Valend
