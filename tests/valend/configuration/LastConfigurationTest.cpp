#include "valend/configuration/LastConfiguration.h"

#include "tests/support/SteppedClock.h"
#include "tests/support/WorkDirectory.h"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <functional>
#include <sys/stat.h>

namespace Valend {
namespace {

Settings::Config delayOf( U16 milliseconds ) {
   Settings::Config config;
   config.shutdownDelayMs = milliseconds;
   return config;
}

class LastConfigurationTest : public ::testing::Test {
 protected:
   std::optional< LastConfiguration > make( std::string const & directory ) {
      state.emplace( directory, []( auto const & ) {} );
      return std::optional< LastConfiguration >( std::in_place, &*state, "valen.yaml", conditions,
                                                 *worker, clock.scheduler() );
   }
   static ConfigPtr configOf( Settings::Config config ) {
      return std::make_shared< Settings::Config const >( std::move( config ) );
   }
   // Waits until everything is written.
   void workerEnd() { worker.reset(); }
   // Turns the loop until `condition`, while the thread writes. Returns whether it became true.
   bool eventually( std::function< bool() > const & condition ) {
      auto const end = std::chrono::steady_clock::now() + std::chrono::seconds( 30 );
      while ( !condition() && std::chrono::steady_clock::now() < end ) {
         loop.turn( std::chrono::milliseconds( 10 ) );
      }
      return condition();
   }
   std::string condition() const {
      auto const raised = conditions.raised();
      return raised.empty() ? "" : raised.front().name + ": " + raised.front().text;
   }
   std::optional< U16 > keptDelay() const {
      auto const kept = LastConfiguration::read( work.path() );
      return kept && kept->errors.empty() ? kept->config.shutdownDelayMs : std::nullopt;
   }

   Valen::Test::WorkDirectory const work;
   std::optional< StateDirectory > state;
   Valen::Test::SteppedClock clock;
   Conditions conditions{ []( auto, auto const & ) {} };
   Valen::Linux::EventLoop loop{ clock.scheduler() };
   std::optional< Valen::Linux::Worker > worker{ std::in_place, loop, "test" };
};

TEST_F( LastConfigurationTest, WhatIsKeptIsReadAgain ) {
   EXPECT_EQ( LastConfiguration::read( work.path() ), std::nullopt );
   auto last = make( work.path() );
   last->keep( configOf( delayOf( 5 ) ) );
   EXPECT_TRUE( eventually( [ & ] { return keptDelay() == U16( 5 ); } ) );
   struct stat status {};
   ASSERT_EQ( ::stat( ( work / "configuration.yaml" ).c_str(), &status ), 0 );
   EXPECT_EQ( status.st_mode & 0777, 0600u );
   EXPECT_TRUE( work.content( "configuration.yaml" )
                   .starts_with( "# The last valid configuration of valen.yaml." ) );
   EXPECT_FALSE( work.has( "configuration.yaml.new" ) );
}

TEST_F( LastConfigurationTest, TheDirectoryIsMade ) {
   make( work / "state" )->keep( configOf( delayOf( 5 ) ) );
   workerEnd();
   EXPECT_TRUE( work.has( "state/configuration.yaml" ) );
}

TEST_F( LastConfigurationTest, TheNewestOfSeveralIsKept ) {
   {
      auto last = make( work.path() );
      for ( U16 delay = 1; delay <= 100; ++delay ) {
         last->keep( configOf( delayOf( delay ) ) );
      }
   }
   workerEnd();
   EXPECT_EQ( keptDelay(), U16( 100 ) );
   worker.emplace( loop, "test" );
   auto last = make( work.path() );
   last->keep( configOf( delayOf( 7 ) ) );
   last->keep( configOf( delayOf( 8 ) ) );
   EXPECT_TRUE( eventually( [ & ] { return keptDelay() == U16( 8 ); } ) );
}

TEST_F( LastConfigurationTest, ADirectoryThatCannotBeWrittenIsAConditionUntilItCan ) {
   work.write( "none", "a file in its place" );
   auto last = make( work / "none" );
   last->keep( configOf( delayOf( 5 ) ) );
   EXPECT_TRUE( eventually( [ & ] { return !condition().empty(); } ) );
   EXPECT_EQ( condition(), "last-configuration: a start with errors in the configuration would "
                           "fail: cannot open " +
                              ( work / "none" ) + ": Not a directory" );
   work.remove( "none" );
   clock.advance( LastConfiguration::retryPeriod );
   EXPECT_TRUE( eventually( [ & ] { return condition().empty(); } ) );
}

TEST_F( LastConfigurationTest, AReplacedPathOfTheDirectoryHasNoEffect ) {
   work.directory( "trap" );
   auto last = make( work / "state" );
   last->keep( configOf( delayOf( 5 ) ) );
   ASSERT_TRUE( eventually( [ & ] { return work.has( "state/configuration.yaml" ); } ) );
   std::filesystem::rename( work / "state", work / "moved" );
   work.link( work / "trap", "state" );
   last->keep( configOf( delayOf( 6 ) ) );
   last.reset();
   workerEnd();
   EXPECT_FALSE( work.has( "trap/configuration.yaml" ) );
   EXPECT_EQ( LastConfiguration::read( work / "moved" )->config.shutdownDelayMs, U16( 6 ) );
}

TEST_F( LastConfigurationTest, WhatTheFileHasIsNotWrittenAgain ) {
   auto last = make( work.path() );
   last->keep( configOf( delayOf( 5 ) ) );
   ASSERT_TRUE( eventually( [ & ] { return keptDelay() == U16( 5 ); } ) );
   work.remove( "configuration.yaml" );
   last->keep( configOf( delayOf( 5 ) ) );
   last.reset();
   workerEnd();
   EXPECT_FALSE( work.has( "configuration.yaml" ) );
}

TEST_F( LastConfigurationTest, WithoutADirectoryNothingIsKept ) {
   {
      auto last = make( "" );
      last->keep( configOf( delayOf( 5 ) ) );
   }
   EXPECT_EQ( LastConfiguration::read( "" ), std::nullopt );
   EXPECT_EQ( condition(), "" );
}

TEST_F( LastConfigurationTest, ADamagedFileIsReadWithItsErrors ) {
   work.write( "configuration.yaml", "color: blue" );
   auto const kept = LastConfiguration::read( work.path() );
   ASSERT_TRUE( kept );
   EXPECT_EQ( kept->errors.size(), 1u );
}

// The CPU time that a clock has counted, in nanoseconds.
S64 cpuTime( clockid_t clock ) {
   timespec time{};
   ::clock_gettime( clock, &time );
   return static_cast< S64 >( time.tv_sec ) * 1'000'000'000 + time.tv_nsec;
}

// A large one takes long. Measured as CPU time, because other processes may delay each thread.
TEST_F( LastConfigurationTest, TheCallerDoesNotWriteTheFile ) {
   Settings::Config config;
   config.interfaces[ "et1" ] = { "et1", "et1", "default", true };
   config.agents[ "bulk" ][ "et1" ] = Settings::FrameList( 50, std::string( 65000, 'x' ) );
   auto const plan = configOf( config );
   auto last = make( work.path() );
   auto const before = cpuTime( CLOCK_PROCESS_CPUTIME_ID );
   auto const callerBefore = cpuTime( CLOCK_THREAD_CPUTIME_ID );
   last->keep( plan );
   last.reset();
   workerEnd();
   auto const caller = cpuTime( CLOCK_THREAD_CPUTIME_ID ) - callerBefore;
   EXPECT_LT( 2 * caller, cpuTime( CLOCK_PROCESS_CPUTIME_ID ) - before );
   EXPECT_TRUE( work.has( "configuration.yaml" ) );
}

} // namespace
} // namespace Valend
