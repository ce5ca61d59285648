// valend runs out of file descriptors in mid-delay: the links still go down in time.
#include "linux/DescriptorReserve.h"
#include "tests/system/RawClient.h"
#include "tests/system/RunningDaemon.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <set>
#include <sys/resource.h>

namespace Valen::Test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

class DescriptorsTest : public RunningDaemonTest {
 protected:
   std::set< int > openDescriptors() const {
      std::set< int > open;
      for ( auto const & entry : std::filesystem::directory_iterator(
               "/proc/" + std::to_string( daemon_->pid() ) + "/fd" ) ) {
         open.insert( std::stoi( entry.path().filename() ) );
      }
      return open;
   }
   // Leaves valend `count` descriptors, once it has closed those of the clients before.
   void leave( int count ) const {
      std::set< int > open;
      while ( std::exchange( open, openDescriptors() ) != open ) {
         std::this_thread::sleep_for( std::chrono::milliseconds( 30 ) );
      }
      int limit = 0;
      for ( int left = 0; left < count || open.contains( limit ); ++limit ) {
         left += !open.contains( limit );
      }
      softLimitIs( static_cast< rlim_t >( limit ) );
   }
   void softLimitIs( rlim_t limit ) const {
      rlimit now{};
      ASSERT_EQ( ::prlimit( daemon_->pid(), RLIMIT_NOFILE, nullptr, &now ), 0 );
      now.rlim_cur = limit;
      ASSERT_EQ( ::prlimit( daemon_->pid(), RLIMIT_NOFILE, &now, nullptr ), 0 );
   }
   void raiseLimit() const { softLimitIs( 1000 ); }

   // Requests the shutdown of both interfaces, and returns in mid-delay.
   void shutdownBoth() {
      start( config( 1000 ) );
      ASSERT_TRUE( becomesReady( "Ethernet1" ) );
      ASSERT_TRUE( becomesReady( "Ethernet2" ) );
      waiting_.emplace( std::vector< std::string >{ VALENCTL, "--socket", socket(), "shutdown",
                                                    "Ethernet1", "Ethernet2", "--wait" },
                        *work_ / "waiting" );
      ASSERT_TRUE( eventually( [ this ] {
         return interface( "Ethernet1" ).value( "delayed", false ) &&
                interface( "Ethernet2" ).value( "delayed", false );
      } ) );
   }
   void expectBothDown() {
      EXPECT_EQ( waiting_->wait(), 0 ) << waiting_->err();
      EXPECT_FALSE( linkUp( *machine_, "et1" ) );
      EXPECT_FALSE( linkUp( *red_, "et2" ) );
      raiseLimit();
      for ( auto const * name : { "Ethernet1", "Ethernet2" } ) {
         ASSERT_TRUE( eventually( [ & ] { return lastRecord( name ).contains( "ending" ); } ) );
         EXPECT_EQ( lastRecord( name )[ "ending" ], "down" ) << lastRecord( name );
         EXPECT_EQ( lastRecord( name )[ "why" ], Json() );
      }
   }

   std::optional< Process > waiting_;
};

class FewDescriptorsTest : public DescriptorsTest, public ::testing::WithParamInterface< int > {};

TEST_P( FewDescriptorsTest, TheLinksGoDown ) {
   shutdownBoth();
   leave( GetParam() );
   expectBothDown();
}

INSTANTIATE_TEST_SUITE_P( Left, FewDescriptorsTest, ::testing::Values( 0, 1, 2 ) );

TEST_F( DescriptorsTest, ClientsDoNotTakeTheLastOnes ) {
   shutdownBoth();
   leave( 40 );
   // None of them is idle. The last one is refused.
   std::vector< std::unique_ptr< RawClient > > clients;
   do {
      clients.push_back( std::make_unique< RawClient >( socket() ) );
      clients.back()->call( "WatchStatus", Json::object(), true );
   } while ( clients.size() < 60 && !clients.back()->answer().is_null() );
   EXPECT_GT( clients.size(), 1u );
   EXPECT_LE( clients.size() - 1, 40 - Linux::DescriptorReserve::keptForWork );
   expectBothDown();
   clients.clear();
   EXPECT_EQ( ctl( { "status" } ).status, 0 );
}

TEST_F( DescriptorsTest, ALimitThatIsTooLowIsShown ) {
   configure( config( 1000 ) );
   launcher_ = { "/bin/sh", "-c", "ulimit -S -n 100; ulimit -H -n 300; exec \"$@\"", "sh" };
   launch();
   ASSERT_TRUE( becomesReady( "Ethernet2" ) ) << daemon_->err();
   EXPECT_TRUE( logged( "descriptors: up to 384 file descriptors are needed "
                        "(2 VRFs, 2 interfaces, 256 clients), and the limit is 300; raise it "
                        "(LimitNOFILE= of the service)" ) )
      << daemon_->err();
   auto const status = Json::parse( ctl( { "status", "--json" } ).out );
   ASSERT_FALSE( status[ "conditions" ].empty() );
   EXPECT_EQ( status[ "conditions" ][ 0 ][ "name" ], "descriptors" );
}

} // namespace
} // namespace Valen::Test
