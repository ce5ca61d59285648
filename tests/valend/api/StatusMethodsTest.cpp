#include "tests/valend/api/ApiFixture.h"

namespace Valend {
namespace {

using namespace Test;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

class StatusMethodsTest : public ApiFixture {
 protected:
   StatusMethodsTest() { startPublishing( twoInterfaces() ); }
};

TEST_F( StatusMethodsTest, ExplainListsEachRequirement ) {
   auto const explain = [ & ]( char const * name ) {
      auto const answer = call( "Explain", { { "interface", name } } )->parameters();
      std::vector< std::string > lines{ answer[ "ready" ] ? "ready" : "not ready" };
      for ( auto const & each : answer[ "requirements" ] ) {
         lines.push_back( ( each[ "met" ] ? "+ " : "- " ) + each[ "what" ].get< std::string >() +
                          ": " + each[ "detail" ].get< std::string >() );
      }
      return lines;
   };
   EXPECT_THAT(
      explain( "Ethernet2" ),
      ElementsAre( "ready", "+ delay enabled: shutdown-delay-ms is 500",
                   "+ delay enabled for this interface: ", "+ frames queued: lldp 1",
                   "+ VRF ready: VRF red, namespace ns-red", "+ device present: et2, index 7",
                   "+ Ethernet device: et2 carries Ethernet frames", "+ managed by libvalen: " ) );
   kernel.netNsDel( "ns-red" );
   feeder.namespaceChanged( "ns-red" );
   kernel.deviceDel( "ns-red", "et2" );
   auto config = twoInterfaces();
   config.shutdownDelayMs.reset();
   config.interfaces[ "Ethernet2" ].shutdownDelay = false;
   config.agents.clear();
   publications.configIs( config );
   EXPECT_THAT(
      explain( "Ethernet2" ),
      ElementsAre( "not ready", "- delay enabled: shutdown-delay-ms is not set",
                   "- delay enabled for this interface: shutdown-delay is false in its "
                   "configuration",
                   "- frames queued: no agent has frames for it",
                   "- VRF ready: no namespace ns-red",
                   "- device present: no device \"et2\" in namespace \"ns-red\"",
                   "- Ethernet device: ", "- managed by libvalen: once everything above is met" ) );
}

TEST_F( StatusMethodsTest, MetricsAreInThePrometheusFormatUnlessOpenMetricsIsWanted ) {
   Varlink::Caller const reader{ 1000, 1, { 4001 } };
   auto const answers = callAs( reader, "org.valen.daemon.Metrics", Json::object() );
   auto const text = answers->parameters()[ "text" ].get< std::string >();
   EXPECT_THAT( text, HasSubstr( "\nvalen_interfaces 2\n" ) );
   EXPECT_THAT( text, Not( HasSubstr( "# EOF" ) ) );
   EXPECT_EQ( call( "Metrics", { { "format", "prometheus" } } )->parameters()[ "text" ], text );
   EXPECT_THAT( call( "Metrics", { { "format", "openmetrics" } } )->parameters()[ "text" ],
                ::testing::EndsWith( "# EOF\n" ) );
}

TEST_F( StatusMethodsTest, StatusListsWhatIsWrongNow ) {
   auto const listed = [ & ] {
      return call( "Status", Json::object() )->parameters()[ "conditions" ];
   };
   EXPECT_EQ( listed(), Json::array() );
   Condition wrong( conditions, "journal" );
   wrong.raise( "cannot write /state: No space left on device" );
   ASSERT_EQ( listed().size(), 1u );
   EXPECT_EQ( listed()[ 0 ][ "name" ], "journal" );
   EXPECT_EQ( listed()[ 0 ][ "text" ], "cannot write /state: No space left on device" );
   auto const nowMs = std::chrono::duration_cast< std::chrono::milliseconds >(
                         std::chrono::system_clock::now().time_since_epoch() )
                         .count();
   EXPECT_NEAR( listed()[ 0 ][ "since" ].get< double >(), static_cast< double >( nowMs ), 60'000 );
   wrong.clear();
   EXPECT_EQ( listed(), Json::array() );
}

TEST_F( StatusMethodsTest, StatusIsOfEverythingOrOfOneInterface ) {
   auto const all = call( "Status", Json::object() )->parameters();
   EXPECT_EQ( all[ "shutdownDelayMs" ], 500 );
   EXPECT_EQ( all[ "interfaces" ].size(), 2u );
   auto const one = call( "Status", { { "interface", "Ethernet2" } } )->parameters();
   ASSERT_EQ( one[ "interfaces" ].size(), 1u );
   EXPECT_EQ( one[ "interfaces" ][ 0 ][ "name" ], "Ethernet2" );
}

// So many that no slice has room for all of them.
TEST_F( StatusMethodsTest, TheStatusOfEverythingIsMadeInSlices ) {
   auto config = twoInterfaces();
   for ( int i = 0; i < 3000; ++i ) {
      auto const name = "port" + std::to_string( i );
      config.interfaces[ name ] = { name, name, "default", true };
   }
   publications.configIs( config );
   turn();
   auto const answers = std::make_shared< Answers >( "org.valen.daemon.Status" );
   api.call( std::make_shared< Varlink::Call >( "org.valen.daemon.Status", Json::object(),
                                                Varlink::Wanted::one,
                                                Varlink::Caller{ 0, 1, { 0 } }, 1, answers ) );
   for ( int i = 0; i < 5; ++i ) { // each reads one interface or more
      work.run();
   }
   EXPECT_FALSE( answers->last );
   // The interface that was read last goes, and one comes at the end.
   config = twoInterfaces();
   config.interfaces[ "zero" ] = { "zero", "zero", "default", true };
   publications.configIs( config );
   turn();
   ASSERT_TRUE( answers->last );
   auto const interfaces = answers->parameters()[ "interfaces" ];
   EXPECT_LT( interfaces.size(), 3000u );
   EXPECT_EQ( interfaces.front()[ "name" ], "Ethernet1" );
   EXPECT_EQ( interfaces.back()[ "name" ], "zero" );
}

TEST_F( StatusMethodsTest, HistoryIsInTheOrderOfTheRequests ) {
   auto const history = [ & ]( Json const & parameters ) {
      std::vector< std::string > lines;
      auto const answers = call( "History", parameters );
      for ( auto const & record : answers->parameters()[ "shutdowns" ] ) {
         lines.push_back( record[ "interface" ].get< std::string >() + " " +
                          record[ "ending" ].get< std::string >() );
      }
      return lines;
   };
   // Requested in this order; the second ends before the first.
   std::deque< ShutdownRecord > records( 3 );
   auto const at = []( int ms ) {
      return std::chrono::system_clock::time_point( std::chrono::milliseconds( ms ) );
   };
   records[ 0 ].interface = "Ethernet2";
   records[ 0 ].when = at( 2000 );
   records[ 0 ].ending = ShutdownRecord::Ending::aborted;
   records[ 1 ].interface = "Ethernet1";
   records[ 1 ].when = at( 1000 );
   records[ 1 ].ending = ShutdownRecord::Ending::down;
   records[ 2 ].interface = "Ethernet2";
   records[ 2 ].when = at( 3000 );
   records[ 2 ].ending = ShutdownRecord::Ending::goodbye;
   History past;
   for ( auto const & record : records ) {
      past.add( 1, record );
   }
   controller.resume( { {}, {}, std::move( past ) } );
   EXPECT_THAT( history( Json::object() ),
                ElementsAre( "Ethernet1 down", "Ethernet2 aborted", "Ethernet2 goodbye" ) );
   EXPECT_THAT( history( { { "last", 2 } } ),
                ElementsAre( "Ethernet2 aborted", "Ethernet2 goodbye" ) );
   EXPECT_THAT( history( { { "last", 0 } } ), ::testing::IsEmpty() );
   EXPECT_THAT( history( { { "last", 9 } } ), ::testing::SizeIs( 3 ) );
   EXPECT_THAT( history( { { "sinceMs", 2000 } } ),
                ElementsAre( "Ethernet2 aborted", "Ethernet2 goodbye" ) );
   EXPECT_THAT( history( { { "interfaces", { "Ethernet2" } }, { "last", 1 } } ),
                ElementsAre( "Ethernet2 goodbye" ) );
   EXPECT_THAT( history( { { "interfaces", { "Ethernet1", "Ethernet9" } } } ),
                ElementsAre( "Ethernet1 down" ) );
}

TEST_F( StatusMethodsTest, MemoryCountsObjectsAndBytesByType ) {
   auto const live = [ & ]( std::string const & name ) {
      auto const answers = call( "Memory", Json::object() );
      for ( auto const & type : answers->parameters()[ "types" ] ) {
         if ( type[ "type" ] == name ) {
            EXPECT_EQ( type[ "bytes" ] > 0, type[ "live" ] > 0 ) << type;
            return type[ "live" ].get< int >();
         }
      }
      return -1;
   };
   EXPECT_EQ( live( "Valen::Intf" ), 2 );
   publications.configIs( Settings::Config() );
   turn();
   EXPECT_EQ( live( "Valen::Intf" ), 0 );
}

TEST_F( StatusMethodsTest, ExplainListsTheSpeakersAndWhyTheyCannotBeMuted ) {
   auto const explain = [ & ] {
      return call( "Explain", { { "interface", "Ethernet1" } } )->parameters();
   };
   EXPECT_EQ( explain()[ "speakers" ], Json::array() );
   EXPECT_EQ( explain()[ "notMuted" ], nullptr );
   Derivation::Heard heard;
   heard.speaker = "router 192.0.2.1";
   heard.whyNot = "authenticated with MD5";
   heard.holdTime = 40s;
   Egress::Speaker id{};
   id.kind = EGRESS_OSPF2;
   table.heard( { "default", "et1" }, id, heard, clock.scheduler()->now() );
   notMuted = "no right";
   auto const heardOn = explain()[ "speakers" ];
   ASSERT_EQ( heardOn.size(), 1u );
   EXPECT_EQ( heardOn[ 0 ][ "protocol" ], "ospf" );
   EXPECT_EQ( heardOn[ 0 ][ "notLearned" ], "authenticated with MD5" );
   EXPECT_EQ( heardOn[ 0 ][ "change" ], nullptr );
   EXPECT_EQ( explain()[ "notMuted" ], "no right" );
   kernel.deviceDel( "default", "et1" );
   EXPECT_EQ( explain()[ "notMuted" ], nullptr ) << "that it has no device is what matters";
}

} // namespace
} // namespace Valend
