#include "valend/base/TraceHub.h"

#include "tests/support/WorkDirectory.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <thread>

namespace Valend {
namespace {

QUILL_TRACE_UNIT( "TraceHubTest" )

TEST( TraceHubTest, AReopenedFileIsANewOneAfterTheOldOneWasMovedAside ) {
   Valen::Test::WorkDirectory const directory;
   Gantry::WorkQueue work;
   Settings::ProcessConfig config;
   config.valueIs( "trace.file", directory / "trace" );
   {
      TraceHub hub( work, config, TraceHub::WithoutFile::nowhere );
      TRACE0( "one" );
      std::filesystem::rename( directory / "trace", directory / "trace.1" );
      hub.reopen();
      TRACE0( "two" );
   }
   for ( int i = 0; i < 3000 && directory.content( "trace.1" ).empty(); ++i ) {
      std::this_thread::sleep_for( std::chrono::milliseconds( 10 ) ); // its thread writes the rest
   }
   EXPECT_NE( directory.content( "trace.1" ).find( ": one\n" ), std::string::npos );
   EXPECT_EQ( directory.content( "trace.1" ).find( ": two\n" ), std::string::npos );
   EXPECT_NE( directory.content( "trace" ).find( ": two\n" ), std::string::npos );
}

TEST( TraceHubTest, StandardErrorIsUsedOnlyIfWantedAndWithoutAFile ) {
   Valen::Test::WorkDirectory const directory;
   auto const written = [ & ]( TraceHub::WithoutFile withoutFile, bool withFile ) {
      Gantry::WorkQueue work;
      Settings::ProcessConfig config;
      config.valueIs( "trace.levels", "TraceHubTest/0" );
      if ( withFile ) {
         config.valueIs( "trace.file", directory / "trace" );
      }
      testing::internal::CaptureStderr();
      TraceHub const hub( work, config, withoutFile );
      TRACE0( "four" );
      return testing::internal::GetCapturedStderr().find( ": four\n" ) != std::string::npos;
   };
   EXPECT_TRUE( written( TraceHub::WithoutFile::standardError, false ) );
   EXPECT_FALSE( written( TraceHub::WithoutFile::standardError, true ) );
   EXPECT_FALSE( written( TraceHub::WithoutFile::nowhere, false ) );
}

TEST( TraceHubTest, WithoutAFileThereIsNothingToReopen ) {
   Gantry::WorkQueue work;
   TraceHub hub( work, Settings::ProcessConfig(), TraceHub::WithoutFile::nowhere );
   hub.reopen();
   TRACE0( "three" );
   EXPECT_EQ( hub.recent( 1 ).size(), 1u );
}

} // namespace
} // namespace Valend
