// valend runs out of memory in mid-delay: the process ends, and the next start resumes the shutdown.
#include "tests/system/RawClient.h"
#include "tests/system/RunningDaemon.h"

#include <gmock/gmock.h>
#include <list>
#include <sys/resource.h>

namespace Valen::Test {
namespace {

using ::testing::HasSubstr;

class OutOfMemorySystemTest : public RunningDaemonTest {
 protected:
   // The memory of the daemon may not grow any more. (A limit of the address space would not do: the heaps of
   // threads have a lot of that in reserve.)
   void limitMemory() const {
      rlimit const limit{ 1, RLIM_INFINITY };
      ASSERT_EQ( ::prlimit( daemon_->pid(), RLIMIT_DATA, &limit, nullptr ), 0 );
   }
};

TEST_F( OutOfMemorySystemTest, TheProcessEndsAndTheNextOneResumesTheShutdown ) {
   start( config( 60000 ) );
   ASSERT_TRUE( becomesReady( "Ethernet1" ) );
   ASSERT_EQ( ctl( { "shutdown", "Ethernet1" } ).status, 0 );
   limitMemory();
   // Calls without an end: valend keeps what it has of each.
   std::list< RawClient > clients;
   for ( int client = 0; client < 200 && daemon_->running(); ++client ) {
      try {
         clients.emplace_back( socket() ).send( std::string( 200'000, ' ' ) );
      } catch ( Quill::ErrnoException const & ) { // it has ended
      }
   }
   ASSERT_TRUE( eventually( [ & ] { return !daemon_->running(); }, std::chrono::seconds( 5 ) ) );
   EXPECT_EQ( daemon_->wait(), 71 );
   EXPECT_TRUE( logged( "valend: out of memory, exiting; shutdowns in progress are resumed at "
                        "the next start\n" ) )
      << daemon_->err();
   EXPECT_TRUE( linkUp( *machine_, "et1" ) );
   launch();
   ASSERT_TRUE(
      eventually( [ & ] { return interface( "Ethernet1" ).value( "shuttingDown", false ); } ) )
      << daemon_->err();
   EXPECT_TRUE( logged( "resuming 1 shutdown from the previous run\n" ) ) << daemon_->err();
   ASSERT_EQ( ctl( { "enable", "Ethernet1" } ).status, 0 );
   EXPECT_EQ( lastRecord( "Ethernet1" )[ "ending" ], "aborted" );
   EXPECT_TRUE( lastRecord( "Ethernet1" )[ "resumed" ] );
}

} // namespace
} // namespace Valen::Test
