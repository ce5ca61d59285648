#include "valend/base/OutOfMemory.h"

#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <new>
#include <thread>

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
