// The namespaces of VRFs as valend finds them: single calls that fail, and what is in their place.
#include "tests/system/RunningDaemon.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <iterator>
#include <set>

namespace Valen::Test {
namespace {

using ::testing::HasSubstr;

class NamespaceTest : public RunningDaemonTest {
 protected:
   // Waits until the condition of VRF red has that text, and `explain` as well.
   ::testing::AssertionResult isSaid( std::string const & text ) const {
      std::string conditions;
      std::string explained;
      auto const said = [ & ] {
         auto const status = Json::parse( ctl( { "status", "--json" } ).out, nullptr, false );
         conditions = status.value( "conditions", Json() ).dump();
         explained = ctl( { "explain", "Ethernet2" } ).out;
         return conditions.find( text ) != std::string::npos &&
                explained.find( text ) != std::string::npos;
      };
      return eventually( said ) ? ::testing::AssertionSuccess()
                                : ::testing::AssertionFailure() << conditions << explained;
   }
   std::string file() const { return "/run/netns/" + red_->text(); }
};

TEST_F( NamespaceTest, TheAdviceFollowsWhatIsThere ) {
   start( config( 0 ) );
   ASSERT_TRUE( becomesReady( "Ethernet2" ) );
   auto const missing = "does not exist in /run/netns; create it with";
   auto const plain = file() + " is not a network namespace; remove the file, or mount";
   auto const directory = file() + " is a directory, not a network namespace; remove the directory";

   run( "umount --lazy " + file() ); // leaves the empty file
   EXPECT_TRUE( isSaid( plain ) );
   std::filesystem::remove( file() );
   EXPECT_TRUE( isSaid( missing ) );
   EXPECT_TRUE( becomesUnready( "Ethernet2", "namespace missing" ) );
   std::filesystem::create_directory( file() );
   EXPECT_TRUE( isSaid( directory ) );
   std::filesystem::remove( file() );
   std::ofstream( file() ).put( 'x' );
   EXPECT_TRUE( isSaid( plain ) );
   std::filesystem::remove( file() );
   EXPECT_TRUE( isSaid( missing ) );

   red_->create();
   red_->veth( "et2", *neighbors_, "far3" );
   EXPECT_TRUE( becomesReady( "Ethernet2" ) );
}

// One VRF for each call: whatever fails once, its interface becomes ready, without a restart.
TEST_F( NamespaceTest, ACallThatFailsOnceIsRetried ) {
   struct Failure {
      std::string call;
      int nth;
      int number;
   };
   std::vector< Failure > failures;
   for ( int nth = 1; nth <= 4;
         ++nth ) { // the watcher of names, the VRF, its devices, its endpoint
      failures.insert( failures.end(), { { "open", nth, EMFILE },
                                         { "open", nth, ENOENT },
                                         { "ioctl", nth, ENOTTY },
                                         { "ioctl", nth, ENOMEM },
                                         { "fstat", nth, ENOMEM },
                                         { "fstat", nth, EINVAL } } );
   }
   for ( int nth = 1; nth <= 3; ++nth ) { // the VRF, its devices, its endpoint
      failures.insert( failures.end(), { { "setns", nth, EPERM },
                                         { "setns", nth, EINVAL },
                                         { "socket", nth, ENOBUFS },
                                         { "socket", nth, EINTR },
                                         { "socket", nth, EINVAL } } );
   }
   failures.insert( failures.end(),
                    { { "bind", 1, ENOMEM }, { "sendto", 1, EAGAIN }, { "sendto", 2, ENOBUFS } } );

   std::vector< std::unique_ptr< TestNetNs > > netNss;
   std::string calls;
   std::string vrfs;
   std::string interfaces;
   std::string messages;
   for ( auto const & [ call, nth, number ] : failures ) {
      auto const & netNs = *netNss.emplace_back( std::make_unique< TestNetNs >() );
      auto const n = std::to_string( netNss.size() );
      netNs.ip( "link add et type veth peer name far" );
      netNs.ip( "link set et up" );
      calls += netNs.text() + ":" + call + ":" + std::to_string( nth ) + ":" +
               std::to_string( number ) + " ";
      vrfs += "- {name: vrf" + n + ", namespace: " + netNs.text() + "}\n";
      interfaces += "- {name: Ethernet" + n + ", device: et, vrf: vrf" + n + "}\n";
      messages += "    Ethernet" + n + ": [" + Settings::toHex( frame( n ) ) + "]\n";
   }
   ::setenv( "FAILING_CALLS", calls.c_str(), 1 );
   ::setenv( "FAILED_CALLS", ( *work_ / "failed" ).c_str(), 1 );
   ::setenv( "LD_PRELOAD", FAILING_CALLS, 1 );
   // In a build with the sanitizer, its library is not the first then.
   ::setenv( "ASAN_OPTIONS", "verify_asan_link_order=0", 1 );
   configure( "shutdown-delay-ms: 0\nvrfs:\n" + vrfs + "interfaces:\n" + interfaces +
              "agents:\n- name: lldp\n  messages:\n" + messages );
   launch();
   for ( auto const * name : { "FAILING_CALLS", "FAILED_CALLS", "LD_PRELOAD", "ASAN_OPTIONS" } ) {
      ::unsetenv( name );
   }
   std::string unready;
   EXPECT_TRUE( eventually( [ & ] {
      auto const status = Json::parse( ctl( { "status", "--json" } ).out, nullptr, false );
      unready.clear();
      for ( auto const & each : status.value( "interfaces", Json::array() ) ) {
         if ( !each[ "ready" ] ) {
            auto const n = std::stoul( each[ "name" ].get< std::string >().substr( 8 ) );
            auto const & [ call, nth, number ] = failures[ n - 1 ];
            unready += call + " " + std::to_string( nth ) + " " + std::to_string( number ) + ": " +
                       each[ "notReady" ].dump() + "\n";
         }
      }
      return unready.empty() && status.contains( "interfaces" );
   } ) )
      << unready;
   auto const words = []( std::string const & text ) {
      std::istringstream stream( text );
      return std::multiset< std::string >( std::istream_iterator< std::string >( stream ), {} );
   };
   EXPECT_EQ( words( work_->content( "failed" ) ), words( calls ) ) << "each call has failed, once";
}

} // namespace
} // namespace Valen::Test
