#include "valend/base/OutOfMemory.h"

#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <new>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace Valend {
namespace {

constexpr char const * line =
   "valend: out of memory, exiting; shutdowns in progress are resumed at the next start\n";

// A death test runs in a child process, so the handler of this one is not changed.
TEST( OutOfMemoryTest, TheHandlerEndsTheProcessWithALine ) {
   EXPECT_EXIT(
      {
         endWhenOutOfMemory();
         std::get_new_handler()();
      },
      ::testing::ExitedWithCode( outOfMemoryStatus ), line );
}

TEST( OutOfMemoryTest, TheLineForTheJournalHasItsPriority ) {
   EXPECT_EXIT(
      {
         struct stat status {};
         ::fstat( STDERR_FILENO, &status );
         auto const stream =
            std::to_string( status.st_dev ) + ":" + std::to_string( status.st_ino );
         ::setenv( "JOURNAL_STREAM", stream.c_str(), 1 );
         endWhenOutOfMemory();
         std::get_new_handler()();
      },
      ::testing::ExitedWithCode( outOfMemoryStatus ), "^<2>out of memory, exiting; " );
}

TEST( OutOfMemoryTest, ItEndsThoughStandardErrorIsNotRead ) {
   EXPECT_EXIT(
      {
         int ends[ 2 ];
         ASSERT_EQ( ::pipe2( ends, O_NONBLOCK ), 0 );
         while ( ::write( ends[ 1 ], line, 1 ) == 1 ) { // until it is full
         }
         ::fcntl( ends[ 1 ], F_SETFL, O_WRONLY );
         ::dup2( ends[ 1 ], STDERR_FILENO );
         ::alarm( 10 );
         endWhenOutOfMemory();
         std::get_new_handler()();
      },
      ::testing::ExitedWithCode( outOfMemoryStatus ), "" );
}

// The allocators of the sanitizers do not call the handler.
#if !defined( __SANITIZE_ADDRESS__ ) && !defined( __SANITIZE_THREAD__ )
TEST( OutOfMemoryTest, AFailedAllocationEndsTheProcessInAnyThread ) {
   auto const allocate = [] {
      try {
         std::string( std::numeric_limits< std::ptrdiff_t >::max() - 1, 'x' );
      } catch ( std::bad_alloc const & ) { // what the code around it would do without the handler
      }
   };
   EXPECT_EXIT(
      {
         endWhenOutOfMemory();
         allocate();
      },
      ::testing::ExitedWithCode( outOfMemoryStatus ), line );
   EXPECT_EXIT(
      {
         endWhenOutOfMemory();
         std::thread( allocate ).join();
      },
      ::testing::ExitedWithCode( outOfMemoryStatus ), line );
}
#endif

} // namespace
} // namespace Valend
