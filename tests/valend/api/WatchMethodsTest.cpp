#include "tests/valend/api/ApiFixture.h"

#include <algorithm>

namespace Valend {
namespace {

using namespace Test;
using ::testing::IsEmpty;

class WatchMethodsTest : public ApiFixture {
 protected:
   WatchMethodsTest() { startPublishing( twoInterfaces() ); }

   // Besides the two, `count` interfaces without devices or frames.
   void addInterfaces( int count ) {
      auto config = twoInterfaces();
      for ( int i = 0; i < count; ++i ) {
         auto const name = "Other" + std::to_string( i );
         config.interfaces[ name ] = { name, name, "default", true };
      }
      publications.configIs( config );
      turn();
   }
   // As call(), without running what the call posts.
   std::shared_ptr< Answers > begin( std::string const & method, Json const & parameters,
                                     bool roomToLast = true ) {
      auto const answers = std::make_shared< Answers >( method );
      answers->roomToLast = roomToLast;
      api.call( std::make_shared< Varlink::Call >( "org.valen.daemon." + method, parameters,
                                                   Varlink::Wanted::many,
                                                   Varlink::Caller{ 0, 1, { 0 } }, 9, answers ) );
      return answers;
   }
};

TEST_F( WatchMethodsTest, ReadersShareTheEncodedAnswers ) {
   for ( auto const & [ method, parameters ] : std::vector< std::pair< std::string, Json > >{
            { "Watch", { { "path", "status" } } }, { "WatchStatus", Json::object() } } ) {
      std::vector< std::shared_ptr< Answers > > readers;
      for ( U64 client = 1; client <= 3; ++client ) {
         readers.push_back( call( method, parameters, true, client ) );
      }
      readers[ 2 ]->untaken = 1;
      controller.shutdown( "Ethernet1", { "root" }, nullptr );
      advance( 20ms );
      ASSERT_EQ( readers[ 0 ]->sent.size(), 2u );
      EXPECT_EQ( readers[ 0 ]->sent[ 1 ], readers[ 1 ]->sent.at( 1 ) );
      EXPECT_EQ( readers[ 2 ]->sent.size(), 1u );
      readers[ 2 ]->untaken = 0;
      advance( 100ms );
      ASSERT_EQ( readers[ 2 ]->sent.size(), 2u );
      EXPECT_EQ( readers[ 2 ]->messages.back(), readers[ 0 ]->messages.back() );
      controller.enable( "Ethernet1", "root", {} );
      advance( 20ms );
   }
}

TEST_F( WatchMethodsTest, OnlyInterfacesThatHaveChangedAreLookedAt ) {
   addInterfaces( 500 );
   for ( U64 client = 1; client <= 20; ++client ) {
      call( "WatchStatus", Json::object(), true, client );
   }
   auto const before = kernel.looks;
   call( "Shutdown", { { "interface", "Ethernet1" } }, false, 99 );
   EXPECT_LT( kernel.looks - before, 20 );
   advance( 250ms );
   EXPECT_LT( kernel.looks - before, 1100 )
      << "all of them once a period, however many the readers";
}

TEST_F( WatchMethodsTest, ManyInterfacesAreLookedAtInSlices ) {
   addInterfaces( 2000 );
   auto const answers = begin( "WatchStatus", Json::object() );
   for ( int turns = 0; !work.empty(); ++turns ) {
      auto const before = kernel.looks;
      work.run();
      EXPECT_LT( kernel.looks - before, 1000 ) << "turn " << turns;
   }
   ASSERT_EQ( answers->messages.size(), 1u ) << "whole";
   EXPECT_EQ( answers->parameters()[ "interfaces" ].size(), 2002u );
}

TEST_F( WatchMethodsTest, WhatIsNotNoticedIsSeenWithinAPeriod ) {
   auto const answers = call( "WatchStatus", Json::object(), true );
   kernel.at( "default", "et1" ).mtu = 9000;
   advance( 250ms );
   ASSERT_EQ( answers->messages.size(), 2u );
   EXPECT_EQ( answers->parameters( 1 )[ "interfaces" ].size(), 1u );
   EXPECT_EQ( answers->parameters( 1 )[ "interfaces" ][ 0 ][ "mtu" ], 9000 );
}

TEST_F( WatchMethodsTest, OneInterfaceIsFollowedAlone ) {
   auto const answers = call( "WatchStatus", { { "interface", "Ethernet2" } }, true );
   ASSERT_EQ( answers->messages.size(), 1u );
   EXPECT_EQ( answers->parameters()[ "interfaces" ].size(), 1u );
   kernel.at( "default", "et1" ).mtu = 9000;
   advance( 300ms );
   EXPECT_EQ( answers->messages.size(), 1u );
   kernel.deviceDel( "ns-red", "et2" );
   turn();
   ASSERT_EQ( answers->messages.size(), 2u ) << "the device is followed";
   EXPECT_EQ( answers->parameters( 1 )[ "interfaces" ][ 0 ][ "link" ], "absent" );
   publications.configIs( Settings::Config() );
   turn();
   EXPECT_EQ( answers->messages.back()[ "parameters" ],
              ( Json{ { "gone", { "Ethernet2" } }, { "interfaces", Json::array() } } ) );
}

TEST_F( WatchMethodsTest, WithoutRoomNoWatchBegins ) {
   for ( auto const & [ method, parameters ] : std::vector< std::pair< std::string, Json > >{
            { "Watch", { { "path", "status" } } },
            { "WatchStatus", Json::object() },
            { "Wait", { { "interface", "Ethernet1" }, { "until", "down" } } },
            { "Trace", Json::object() } } ) {
      auto const refused = begin( method, parameters, false );
      turn();
      EXPECT_EQ( refused->error(),
                 "org.valen.daemon.TooManyClients: too many clients watch, or have "
                 "frames bound to their connections; end some that are not needed" );
      EXPECT_FALSE( refused->lasting );
      auto const begun = begin( method, parameters );
      EXPECT_TRUE( begun->lasting ) << method;
   }
   Json const frames{ { "agent", "a" },
                      { "interface", "Ethernet1" },
                      { "frames", { std::string( 40, '0' ) } },
                      { "lifetime", "connection" } };
   EXPECT_THAT( begin( "Publish", frames, false )->error(),
                ::testing::StartsWith( "org.valen.daemon.TooManyClients" ) );
   EXPECT_TRUE( begin( "Publish", frames )->needed );
}

TEST_F( WatchMethodsTest, WatchAnswersWithTheValueAndThenWithEachChange ) {
   auto const answers =
      call( "Watch", { { "path", "status/intfStatus/Ethernet1/delayed" } }, true );
   ASSERT_EQ( answers->messages.size(), 1u );
   EXPECT_EQ( answers->parameters()[ "value" ], false );
   controller.shutdown( "Ethernet1", { "root" }, nullptr );
   turn();
   ASSERT_EQ( answers->messages.size(), 2u );
   EXPECT_EQ( answers->parameters( 1 )[ "value" ], true );
   controller.shutdown( "Ethernet2", { "root" }, nullptr );
   turn();
   EXPECT_EQ( answers->messages.size(), 2u ) << "what is elsewhere does not matter";
   advance( 600ms );
   ASSERT_EQ( answers->messages.size(), 3u );
   EXPECT_EQ( answers->parameters( 2 )[ "value" ], false );
   EXPECT_FALSE( answers->last );
}

TEST_F( WatchMethodsTest, ChangesOfOneTurnComeAsOneAndThoseThatCancelOutNotAtAll ) {
   auto const answers = call( "Watch", { { "path", "vrf/status" } }, true );
   ASSERT_EQ( answers->messages.size(), 1u );
   feeder.namespaceChanged( "ns-red" ); // out and in again
   turn();
   EXPECT_EQ( answers->messages.size(), 1u );
   kernel.netNsDel( "ns-red" );
   feeder.namespaceChanged( "ns-red" );
   feeder.namespaceChanged( "ns-red" );
   turn();
   EXPECT_EQ( answers->messages.size(), 2u );
}

TEST_F( WatchMethodsTest, AValueThatVanishesIsNullAndIsSeenToComeBack ) {
   auto const answers = call( "Watch", { { "path", "status/intfStatus/Ethernet2" } }, true );
   kernel.deviceDel( "ns-red", "et2" );
   turn();
   kernel.deviceIs( "ns-red", "et2", 9 );
   turn();
   ASSERT_EQ( answers->messages.size(), 3u );
   EXPECT_EQ( answers->parameters( 1 )[ "value" ], nullptr );
   EXPECT_EQ( answers->parameters( 2 )[ "value" ][ "shouldDelay" ], true );
}

TEST_F( WatchMethodsTest, ASlowReaderGetsTheNewestOnly ) {
   auto const answers =
      call( "Watch", { { "path", "status/intfStatus/Ethernet1/delayed" } }, true );
   answers->untaken = 100;
   controller.shutdown( "Ethernet1", { "root" }, nullptr );
   advance( 600ms );
   enable( "Ethernet1" );
   controller.shutdown( "Ethernet1", { "root" }, nullptr );
   advance( 100ms );
   EXPECT_EQ( answers->messages.size(), 1u );
   answers->untaken = 0;
   advance( 100ms );
   ASSERT_EQ( answers->messages.size(), 2u );
   EXPECT_EQ( answers->parameters( 1 )[ "value" ], true );
}

TEST_F( WatchMethodsTest, ASlowReaderGetsNothingOfWhatHasChangedBack ) {
   auto const answers =
      call( "Watch", { { "path", "status/intfStatus/Ethernet1/delayed" } }, true );
   answers->untaken = 100;
   controller.shutdown( "Ethernet1", { "root" }, nullptr );
   advance( 100ms );
   advance( 500ms ); // the delay is over
   answers->untaken = 0;
   advance( 100ms );
   EXPECT_EQ( answers->messages.size(), 1u );
}

TEST_F( WatchMethodsTest, ASlowReaderOfTheStatusGetsAllThatHasChanged ) {
   auto const fast = call( "WatchStatus", Json::object(), true, 1 );
   auto const slow = call( "WatchStatus", Json::object(), true, 2 );
   slow->untaken = 1;
   call( "Shutdown", { { "interface", "Ethernet1" } }, false, 9 );
   advance( 20ms );
   ASSERT_EQ( fast->messages.size(), 2u );
   auto config = twoInterfaces();
   config.interfaces.erase( "Ethernet2" );
   config.agents[ "lldp" ].erase( "Ethernet2" );
   publications.configIs( config );
   advance( 20ms );
   ASSERT_EQ( slow->messages.size(), 1u );
   slow->untaken = 0;
   advance( 100ms );
   ASSERT_EQ( slow->messages.size(), 2u );
   EXPECT_EQ( slow->parameters( 1 )[ "gone" ], Json::array( { "Ethernet2" } ) );
   ASSERT_EQ( slow->parameters( 1 )[ "interfaces" ].size(), 1u );
   EXPECT_EQ( slow->parameters( 1 )[ "interfaces" ][ 0 ][ "delayed" ], true );
}

TEST_F( WatchMethodsTest, ShowAnswersWithTheNewestBesideAWatch ) {
   Json const path{ { "path", "status/intfStatus/Ethernet1/delayed" } };
   call( "Watch", path, true, 2 );
   EXPECT_EQ( call( "Show", path )->parameters()[ "value" ], false );
   controller.shutdown( "Ethernet1", { "root" }, nullptr );
   turn();
   EXPECT_EQ( call( "Show", path )->parameters()[ "value" ], true );
}

TEST_F( WatchMethodsTest, AfterManyBytesReadersRestButNotNewOnes ) {
   addInterfaces( 1000 );
   Json const path{ { "path", "" } };
   std::vector< std::shared_ptr< Answers > > readers;
   for ( U64 client = 1; client <= 10; ++client ) {
      readers.push_back( begin( "Watch", path ) );
   }
   turn();
   ASSERT_EQ( readers.back()->messages.size(), 1u );
   controller.shutdown( "Ethernet1", { "root" }, nullptr );
   turn();
   EXPECT_EQ( readers.front()->messages.size(), 1u ) << "as fast as they may be sent so much";
   auto const late = call( "Watch", path, true, 11 );
   ASSERT_EQ( late->messages.size(), 1u );
   auto const & statuses = late->parameters()[ "value" ][ "status" ][ "intfStatus" ];
   EXPECT_EQ( statuses[ "Ethernet1" ][ "delayed" ], true );
   EXPECT_EQ( readers.front()->messages.size(), 1u );
   advance( 200ms );
   EXPECT_GT( readers.front()->messages.size(), 1u );
}

TEST_F( WatchMethodsTest, ManyReadersAreAnsweredInSlices ) {
   for ( auto const & [ method, parameters ] : std::vector< std::pair< std::string, Json > >{
            { "Watch", { { "path", "status/intfStatus/Ethernet1" } } },
            { "WatchStatus", Json::object() } } ) {
      std::vector< std::shared_ptr< Answers > > readers;
      for ( int i = 0; i < 300; ++i ) {
         readers.push_back( begin( method, parameters ) );
      }
      advance( 20ms );
      controller.shutdown( "Ethernet1", { "root" }, nullptr );
      auto const answered = [ & ] {
         return std::count_if( readers.begin(), readers.end(),
                               []( auto const & reader ) { return reader->messages.size() == 2; } );
      };
      ASSERT_EQ( answered(), 0 ) << method;
      for ( auto before = answered(); !work.empty(); before = answered() ) {
         work.run();
         EXPECT_LT( answered() - before, 300 ) << method;
      }
      EXPECT_EQ( answered(), 300 ) << method;
      controller.enable( "Ethernet1", "root", {} );
      advance( 20ms );
   }
}

TEST_F( WatchMethodsTest, WithoutReadersNothingIsLookedAt ) {
   call( "WatchStatus", Json::object(), true, 7 );
   auto const watched = kernel.looks;
   advance( 1000ms );
   EXPECT_GT( kernel.looks, watched );
   api.clientGone( 7 );
   auto const before = kernel.looks;
   advance( 1000ms );
   EXPECT_EQ( kernel.looks, before );
}

TEST_F( WatchMethodsTest, WatchesEndWithTheirClient ) {
   call( "Watch", { { "path", "" } }, true, 7 );
   call( "WatchStatus", Json::object(), true, 7 );
   EXPECT_TRUE( store.statusDir->hasNotifiees() );
   auto const intf = store.allIntf->intf( "Ethernet1" );
   EXPECT_TRUE( intf->hasNotifiees() );
   api.clientGone( 7 );
   libraryStop();
   EXPECT_FALSE( intf->hasNotifiees() );
}

TEST_F( WatchMethodsTest, WatchStatusAnswersOnlyWhatHasChanged ) {
   auto const answers = call( "WatchStatus", Json::object(), true );
   ASSERT_EQ( answers->messages.size(), 1u );
   EXPECT_EQ( answers->parameters()[ "interfaces" ].size(), 2u );
   advance( 1000ms );
   EXPECT_EQ( answers->messages.size(), 1u ) << "nothing has happened";
   call( "Shutdown", { { "interface", "Ethernet1" } }, false, 2 );
   ASSERT_EQ( answers->messages.size(), 2u );
   auto const changed = answers->parameters( 1 )[ "interfaces" ];
   ASSERT_EQ( changed.size(), 1u );
   EXPECT_EQ( changed[ 0 ][ "name" ], "Ethernet1" );
   EXPECT_EQ( changed[ 0 ][ "delayed" ], true );
   auto config = twoInterfaces();
   config.interfaces.erase( "Ethernet2" );
   config.agents[ "lldp" ].erase( "Ethernet2" );
   publications.configIs( config );
   turn();
   EXPECT_EQ( answers->messages.back()[ "parameters" ][ "gone" ], Json::array( { "Ethernet2" } ) );
}

TEST_F( WatchMethodsTest, WaitAnswersOnceTheConditionIsMet ) {
   EXPECT_EQ( call( "Wait", { { "interface", "Ethernet1" }, { "until", "ready" } } )
                 ->parameters()[ "interface" ][ "ready" ],
              true );
   auto const down = call( "Wait", { { "interface", "Ethernet1" }, { "until", "down" } } );
   auto const late =
      call( "Wait", { { "interface", "Ethernet1" }, { "until", "down" }, { "timeoutMs", 300 } } );
   EXPECT_THAT( down->messages, IsEmpty() );
   call( "Shutdown", { { "interface", "Ethernet1" } }, false, 2 );
   advance( 299ms );
   EXPECT_THAT( late->messages, IsEmpty() );
   advance( 2ms );
   EXPECT_EQ( late->error(),
              "org.valen.daemon.TimedOut: timed out: interface \"Ethernet1\" is not down" );
   EXPECT_THAT( down->messages, IsEmpty() );
   advance( 500ms );
   EXPECT_EQ( down->parameters()[ "interface" ][ "link" ], "down" );
   auto const gone = call( "Wait", { { "interface", "Ethernet1" }, { "until", "up" } } );
   publications.configIs( Settings::Config() );
   advance( 300ms );
   EXPECT_EQ( gone->error(), "org.valen.daemon.NoSuchInterface: interface \"Ethernet1\" is not "
                             "configured" );
}

} // namespace
} // namespace Valend
