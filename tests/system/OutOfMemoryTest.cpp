// valend runs out of memory in mid-delay: the process ends, and the next start resumes the shutdown.
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

TEST_F( OutOfMemorySystemTest, TheProcessEndsAndTheNextOneResumesTheShutdown ) {
   start( config( 60000 ) );
   ASSERT_TRUE( becomesReady( "Ethernet1" ) );
   ASSERT_EQ( ctl( { "shutdown", "Ethernet1" } ).status, 0 );
   limitMemory();
   // A call takes half a megabyte.
   for ( int call = 0; call < 200 && daemon_->running(); ++call ) {
      std::vector< std::string > arguments{ "messages", "add", "big" + std::to_string( call ),
                                            "Ethernet2" };
      arguments.insert( arguments.end(), 80, std::string( 2 * 1400, 'a' ) );
      ctl( arguments );
   }
   ASSERT_TRUE( eventually( [ & ] { return !daemon_->running(); }, std::chrono::seconds( 5 ) ) );
   EXPECT_EQ( daemon_->wait(), 71 );
   EXPECT_THAT( daemon_->err(),
                HasSubstr( "valend: out of memory, exiting; shutdowns in progress are resumed at "
                           "the next start\n" ) );
   EXPECT_TRUE( linkUp( *machine_, "et1" ) );
   launch();
   ASSERT_TRUE( eventually( [ & ] {
      return interface( "Ethernet1" ).value( "shuttingDown", false );
   } ) ) << daemon_->err();
   EXPECT_THAT( daemon_->err(), HasSubstr( "resuming 1 shutdown from the previous run\n" ) );
   ASSERT_EQ( ctl( { "enable", "Ethernet1" } ).status, 0 );
   EXPECT_EQ( lastRecord( "Ethernet1" )[ "ending" ], "aborted" );
   EXPECT_TRUE( lastRecord( "Ethernet1" )[ "resumed" ] );
}

} // namespace
} // namespace Valen::Test
