// valend runs out of memory in mid-delay: the process ends, and the next start finishes the shutdown.
#include "tests/system/RunningDaemon.h"

#include <gmock/gmock.h>
#include <sys/resource.h>

namespace Valen::Test {
namespace {

using ::testing::HasSubstr;

class OutOfMemorySystemTest : public RunningDaemonTest {
 protected:
   // The memory of the daemon may not grow any more.
   void limitMemory() const {
      std::ifstream file( "/proc/" + std::to_string( daemon_->id() ) + "/statm" );
      rlim_t pages = 0;
      file >> pages;
      rlimit const limit{ pages * static_cast< rlim_t >( ::sysconf( _SC_PAGESIZE ) ),
                          RLIM_INFINITY };
      ASSERT_EQ( ::prlimit( daemon_->id(), RLIMIT_AS, &limit, nullptr ), 0 );
   }
};

TEST_F( OutOfMemorySystemTest, TheProcessEndsAndTheNextOneFinishesTheShutdown ) {
   start( config( 5000 ) );
   ASSERT_TRUE( becomesReady( "Ethernet1" ) );
   ASSERT_EQ( ctl( { "shutdown", "Ethernet1" } ).status, 0 );
   limitMemory();
   // The frames of one call take more than what is free.
   auto const frame = std::string( 2 * 1400, 'a' );
   for ( int call = 0; call < 50 && daemon_->running(); ++call ) {
      std::vector< std::string > arguments{ "messages", "add", "big" + std::to_string( call ),
                                            "Ethernet2" };
      arguments.insert( arguments.end(), 600, frame );
      auto const r = ctl( arguments );
      if (call < 3 || call > 45) std::cerr << r.status << r.err.substr(0,300) << r.out.substr(0,100) << "\n";
   }
   ASSERT_TRUE( eventually( [ & ] { return !daemon_->running(); }, std::chrono::seconds( 5 ) ) );
   EXPECT_EQ( daemon_->wait(), 71 );
   EXPECT_THAT( daemon_->err(),
                HasSubstr( "valend: out of memory, exiting; shutdowns in progress are resumed at "
                           "the next start\n" ) );
   EXPECT_TRUE( linkUp( *machine_, "et1" ) );
   launch();
   ASSERT_TRUE( eventually( [ & ] { return !linkUp( *machine_, "et1" ); } ) ) << daemon_->err();
   EXPECT_TRUE( eventually( [ & ] { return lastRecord( "Ethernet1" ).contains( "ending" ); } ) );
   EXPECT_EQ( lastRecord( "Ethernet1" )[ "ending" ], "down" );
   EXPECT_TRUE( lastRecord( "Ethernet1" )[ "resumed" ] );
}

} // namespace
} // namespace Valen::Test
