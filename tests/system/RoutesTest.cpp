// valend beside a full IPv6 table, where the kernel needs much longer to set a link down.
#include "tests/system/RawClient.h"
#include "tests/system/RunningDaemon.h"

#include <gmock/gmock.h>

namespace Valen::Test {
namespace {

class RoutesTest : public RunningDaemonTest {
 protected:
   static constexpr int links = 20;
   static constexpr int routes = 100'000;

   static std::string name( int link ) { return "Link" + std::to_string( link ); }

   void SetUp() override {
      RunningDaemonTest::SetUp();
      if ( IsSkipped() ) {
         return;
      }
      {
         std::ofstream batch( *work_ / "routes" );
         batch << "link add routes type ifb\nlink set routes up\n" << std::hex;
         for ( int route = 0; route < routes; ++route ) {
            batch << "route add 2001:db8:" << ( route >> 16 ) << ':' << ( route & 0xffff )
                  << "::/64 dev routes\n";
         }
         batch << std::dec;
         for ( int link = 0; link < links; ++link ) {
            batch << "link add link" << link << " type ifb\nlink set link" << link << " up\n";
         }
      }
      machine_->ip( "-batch " + *work_ / "routes" );
      std::string config = "shutdown-delay-ms: 500\nmax-shutdown-delay-ms: 60000\ninterfaces:\n";
      std::string messages;
      for ( int link = 0; link < links; ++link ) {
         config += "- {name: " + name( link ) + ", device: link" + std::to_string( link ) + "}\n";
         messages += "    " + name( link ) + ": [" + Settings::toHex( frame( "one" ) ) + "]\n";
      }
      start( config + "agents:\n- name: lldp\n  messages:\n" + messages );
      ASSERT_TRUE( becomesReady( name( links - 1 ) ) );
   }
};

// All links but one go down at the same time. The last one is enabled as soon as the first is down.
TEST_F( RoutesTest, AnAbortIsAnsweredWhileOtherLinksGoDown ) {
   ASSERT_EQ( ctl( { "shutdown", name( links - 1 ), "--delay", "60000" } ).status, 0 );
   RawClient operators( socket() );
   RawClient another( socket() );
   auto others = Json::array();
   for ( int link = 0; link < links - 1; ++link ) {
      others.push_back( name( link ) );
   }
   operators.call( "ShutdownMany", { { "interfaces", others } }, true );
   int ended = 0;
   bool asked = false;
   while ( ended < links - 1 ) {
      auto const answer = operators.answer();
      ASSERT_TRUE( answer.contains( "parameters" ) ) << answer;
      for ( auto const & step : answer[ "parameters" ][ "steps" ] ) {
         ended += step[ "step" ] == "ended";
      }
      if ( ended > 0 && !std::exchange( asked, true ) ) {
         another.call( "Enable", { { "interface", name( links - 1 ) } } );
         EXPECT_EQ( another.answer()[ "parameters" ][ "result" ], "aborted" );
      }
   }
   auto const history = Json::parse( ctl( { "history", "--json" } ).out )[ "shutdowns" ];
   ASSERT_EQ( history.size(), static_cast< std::size_t >( links ) );
   auto const endOf = []( Json const & record ) {
      return record[ "whenMs" ].get< long >() + record[ "totalMs" ].get< long >();
   };
   auto const aborted = std::find_if( history.begin(), history.end(), []( auto const & record ) {
      return record[ "ending" ] == "aborted";
   } );
   ASSERT_NE( aborted, history.end() );
   auto const before = std::count_if( history.begin(), history.end(), [ & ]( auto const & record ) {
      return endOf( record ) < endOf( *aborted );
   } );
   EXPECT_LT( before, links / 2 ) << "so many were down before the abort was taken";
   EXPECT_TRUE( linkUp( *machine_, "link" + std::to_string( links - 1 ) ) );
}

} // namespace
} // namespace Valen::Test
