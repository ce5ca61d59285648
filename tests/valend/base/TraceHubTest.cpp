#include "valend/base/TraceHub.h"

#include "tests/support/WorkDirectory.h"

#include <gtest/gtest.h>

namespace Valend {
namespace {

QUILL_TRACE_UNIT( "TraceHubTest" )

TEST( TraceHubTest, AReopenedFileIsANewOneAfterTheOldOneWasMovedAside ) {
   Valen::Test::WorkDirectory const directory;
   Gantry::WorkQueue work;
   Settings::ProcessConfig config;
   config.valueIs( "trace.file", directory / "trace" );
   TraceHub hub( work, config, false );
   TRACE0( "one" );
   std::filesystem::rename( directory / "trace", directory / "trace.1" );
   hub.reopen();
   TRACE0( "two" );
   EXPECT_NE( directory.content( "trace.1" ).find( ": one\n" ), std::string::npos );
   EXPECT_EQ( directory.content( "trace.1" ).find( ": two\n" ), std::string::npos );
   EXPECT_NE( directory.content( "trace" ).find( ": two\n" ), std::string::npos );
}

TEST( TraceHubTest, WithoutAFileThereIsNothingToReopen ) {
   Gantry::WorkQueue work;
   TraceHub hub( work, Settings::ProcessConfig(), false );
   hub.reopen();
   TRACE0( "three" );
   EXPECT_EQ( hub.recent( 1 ).size(), 1u );
}

} // namespace
} // namespace Valend
