#include "valend/configuration/Configurator.h"

#include "platform/trace/Trace.h"
#include "tests/support/NotifySocket.h"
#include "tests/support/WorkDirectory.h"
#include "valend/base/Refusal.h"

#include <atomic>
#include <future>
#include <gmock/gmock.h>
#include <thread>

namespace Valend {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using Valen::Test::WorkDirectory;

class ConfiguratorTest : public ::testing::Test {
 protected:
   ~ConfiguratorTest() override { Quill::traceLevelsIs( "" ); }

   void write( std::string const & text ) { directory.write( "valen.yaml", text ); }
   std::unique_ptr< Configurator > make( Settings::ProcessConfig commandLine = {} ) {
      return std::make_unique< Configurator >(
         file, std::move( commandLine ), conditions, loop,
         [ this ]( auto const & plan ) {
            return Configurator::Steps{ [ this, plan ] {
               if ( applySteps ) {
                  std::this_thread::sleep_for( 100us );
               } else {
                  applied.push_back( plan->config() );
               }
               return applySteps ? --applySteps > 0 : false;
            } };
         },
         read );
   }
   std::unique_ptr< Configurator > started( std::string const & text,
                                            Settings::ProcessConfig commandLine = {} ) {
      write( text );
      auto configurator = make( std::move( commandLine ) );
      configurator->start( Settings::readConfig( file ) );
      return configurator;
   }
   std::string condition() const {
      auto const raised = conditions.raised();
      return raised.empty() ? "" : raised.front().name + ": " + raised.front().text;
   }
   // Turns the loop until `done()`; fails after ten seconds.
   template < class Done > void turnUntil( Done const & done ) {
      auto const end = std::chrono::steady_clock::now() + 10s;
      while ( !done() ) {
         ASSERT_LT( std::chrono::steady_clock::now(), end );
         loop.turn( 10ms );
      }
   }
   // What comes of a reload; its log is kept.
   Configurator::Outcome outcomeOf( Configurator & configurator ) {
      ::testing::internal::CaptureStderr();
      std::optional< Configurator::Outcome > outcome;
      configurator.reload( [ & ]( auto const & each ) { outcome = each; } );
      turnUntil( [ & ] { return outcome.has_value(); } );
      log = ::testing::internal::GetCapturedStderr();
      return *outcome;
   }
   std::vector< std::string > reload( Configurator & configurator ) {
      return outcomeOf( configurator ).changes;
   }

   WorkDirectory directory;
   Conditions conditions{ []( auto, auto const & ) {} };
   std::string const file = directory / "valen.yaml";
   Valen::Linux::EventLoop loop;
   Configurator::Read read = []( auto const & each ) { return Settings::readConfig( each ); };
   std::vector< Settings::Config > applied;
   unsigned applySteps = 0; // of the next application; 0: one
   std::string log;
};

TEST_F( ConfiguratorTest, TheConfigurationOfTheStartIsApplied ) {
   auto const owner = started( "shutdown-delay-ms: 5" );
   auto const & configurator = *owner;
   ASSERT_EQ( applied.size(), 1u );
   EXPECT_EQ( applied[ 0 ].shutdownDelayMs, 5 );
   EXPECT_EQ( configurator.active().config(), applied[ 0 ] );
}

TEST_F( ConfiguratorTest, AReloadAppliesLogsAndReturnsWhatChanged ) {
   auto const owner = started( "shutdown-delay-ms: 5" );
   auto & configurator = *owner;
   write( "shutdown-delay-ms: 6\ninterfaces: [{name: et1}]" );
   EXPECT_THAT( reload( configurator ),
                ElementsAre( "shutdown delay 6 ms, was 5 ms",
                             "interface et1: added, device et1, VRF default" ) );
   ASSERT_EQ( applied.size(), 2u );
   EXPECT_EQ( applied[ 1 ].shutdownDelayMs, 6 );
   EXPECT_EQ( log, "valend: shutdown delay 6 ms, was 5 ms\n"
                   "valend: interface et1: added, device et1, VRF default\n"
                   "valend: reloaded: 2 changes\n" );
   EXPECT_THAT( reload( configurator ), IsEmpty() );
   EXPECT_EQ( log, "valend: reloaded: 0 changes\n" );
}

TEST_F( ConfiguratorTest, WhatIsLookedUpBesidesTheFilesWaitsInTheOtherThread ) {
   auto const configurator = started( "shutdown-delay-ms: 5" );
   std::thread::id thread;
   std::vector< std::size_t > found; // how many configurations were applied before
   configurator->lookUpIs( [ & ]() -> Valen::Linux::Worker::Work {
      thread = std::this_thread::get_id();
      return [ & ] {
         EXPECT_NE( std::this_thread::get_id(), thread );
         found.push_back( applied.size() );
      };
   } );
   reload( *configurator );
   EXPECT_THAT( found, ElementsAre( 1u ) );
   EXPECT_EQ( applied.size(), 2u );
   write( "color: blue" );
   EXPECT_TRUE( outcomeOf( *configurator ).rejected );
   EXPECT_THAT( found, ElementsAre( 1u, 2u ) );
}

TEST_F( ConfiguratorTest, AConfigurationWithErrorsChangesNothing ) {
   auto const owner = started( "shutdown-delay-ms: 5" );
   auto & configurator = *owner;
   auto const before = configurator.active().config();
   write( "shutdown-delay-ms: x\ncolor: blue" );
   auto const rejected = outcomeOf( configurator ).rejected;
   ASSERT_TRUE( rejected );
   EXPECT_EQ( rejected->name(), "ConfigRefused" );
   EXPECT_STREQ( rejected->what(), "configuration rejected; keeping the previous one" );
   EXPECT_EQ( rejected->parameters().at( "errors" ).size(), 2u );
   EXPECT_EQ( rejected->parameters().at( "errors" ).at( 0 ),
              file + ":1:20: shutdown-delay-ms is \"x\"; expected milliseconds from 0 to 65535" );
   EXPECT_THAT( log, HasSubstr( "valend: " + file + ":2:1: unknown key \"color\"" ) );
   EXPECT_THAT( log, HasSubstr( "valend: configuration rejected; keeping the previous one\n" ) );
   EXPECT_EQ( applied.size(), 1u );
   EXPECT_EQ( configurator.active().config(), before );
}

TEST_F( ConfiguratorTest, ARejectedReloadIsAConditionUntilAValidOne ) {
   auto const configurator = started( "shutdown-delay-ms: 5" );
   EXPECT_EQ( condition(), "" );
   write( "shutdown-delay-ms: x\ncolor: blue" );
   EXPECT_TRUE( outcomeOf( *configurator ).rejected );
   EXPECT_EQ( condition(),
              "configuration: rejected: " + file +
                 ":1:20: shutdown-delay-ms is \"x\"; expected milliseconds from 0 to 65535 (and 1 "
                 "more error); the previous one is active. Correct the files and run \"valenctl "
                 "reload\"" );
   write( "shutdown-delay-ms: 5" );
   reload( *configurator );
   EXPECT_EQ( condition(), "" );
}

TEST_F( ConfiguratorTest, AStartWithTheLastValidConfigurationIsLoud ) {
   directory.write( "state/configuration.yaml", "shutdown-delay-ms: 7" );
   write( "color: blue" );
   auto const configurator = make();
   Valen::Test::NotifySocket const manager( directory / "notify" );
   ::setenv( "NOTIFY_SOCKET", manager.path().c_str(), 1 );
   ::testing::internal::CaptureStderr();
   configurator->start( Settings::readConfigFile( directory / "state/configuration.yaml" ),
                        Settings::readConfig( file ).errors );
   log = ::testing::internal::GetCapturedStderr();
   ::unsetenv( "NOTIFY_SOCKET" );
   ASSERT_EQ( applied.size(), 1u );
   EXPECT_EQ( applied[ 0 ].shutdownDelayMs, 7 );
   EXPECT_THAT( log, HasSubstr( "valend: " + file + ":1:1: unknown key \"color\"" ) );
   EXPECT_THAT( condition(),
                HasSubstr( "configuration: rejected: " + file + ":1:1: unknown key" ) );
   EXPECT_THAT( condition(),
                HasSubstr( "; the last valid one, " + ( directory / "state/configuration.yaml" ) +
                           ", is active. Correct the files" ) );
   EXPECT_EQ( manager.received(),
              "STATUS=Configuration rejected (1 error); running with the last valid one" );

   write( "shutdown-delay-ms: 8" );
   EXPECT_THAT( reload( *configurator ), ElementsAre( "shutdown delay 8 ms, was 7 ms" ) );
   EXPECT_EQ( condition(), "" );
   EXPECT_EQ( configurator->active().sources->files, std::vector{ file } );
}

TEST_F( ConfiguratorTest, AWarningIsLoggedAndKept ) {
   directory.write( "conf.d/lldp.yml", "" );
   auto const configurator = started( "" );
   auto const warning = ( directory / "conf.d/lldp.yml" ) +
                        ": ignored; the name of a drop-in must end in \".yaml\" and not begin "
                        "with a dot";
   EXPECT_THAT( configurator->active().warnings, ElementsAre( warning ) );
   EXPECT_THAT( reload( *configurator ), IsEmpty() );
   EXPECT_THAT( log, HasSubstr( "valend: " + warning + "\n" ) );
   directory.remove( "conf.d/lldp.yml" );
   reload( *configurator );
   EXPECT_THAT( configurator->active().warnings, IsEmpty() );
}

TEST_F( ConfiguratorTest, ASettingOfTheNextStartIsReportedUntilThen ) {
   auto const owner = started( "socket: /a" );
   auto & configurator = *owner;
   write( "socket: /b" );
   for ( int i = 0; i < 2; ++i ) {
      EXPECT_THAT( reload( configurator ),
                   ElementsAre( "socket /b: takes effect at the next start" ) );
   }
   EXPECT_EQ( configurator.active().process.value( "socket" ), "/a" );
   write( "socket: /a" );
   EXPECT_THAT( reload( configurator ), IsEmpty() );
}

TEST_F( ConfiguratorTest, TraceLevelsChangeOnReload ) {
   auto const owner = started( "" );
   auto & configurator = *owner;
   write( "trace: {levels: IntfSm/0}" );
   EXPECT_THAT( reload( configurator ), ElementsAre( "trace.levels IntfSm/0, was */0-1" ) );
   EXPECT_EQ( Quill::traceLevels(), "IntfSm/0" );
   write( "" );
   EXPECT_THAT( reload( configurator ), ElementsAre( "trace.levels */0-1, was IntfSm/0" ) );
   EXPECT_EQ( Quill::traceLevels(), "*/0-1" );
}

TEST_F( ConfiguratorTest, TraceLevelsThatWereSetOtherwiseStayUntilTheFilesChangeTheirs ) {
   auto const owner = started( "trace: {levels: IntfSm/0}" );
   auto & configurator = *owner;
   Quill::traceLevelsIs( "VrfSm/1" );
   write( "trace: {levels: IntfSm/0}\nshutdown-delay-ms: 5" );
   reload( configurator );
   EXPECT_EQ( Quill::traceLevels(), "VrfSm/1" );
}

TEST_F( ConfiguratorTest, TheCommandLineOverridesTheFiles ) {
   Settings::ProcessConfig commandLine;
   commandLine.valueIs( "socket", "/line" );
   commandLine.valueIs( "trace.levels", "A/0" );
   auto const owner = started( "socket: /file", commandLine );
   auto & configurator = *owner;
   EXPECT_EQ( configurator.active().process.value( "socket" ), "/line" );
   Quill::traceLevelsIs( "A/0" );
   write( "socket: /other\ntrace: {levels: B/0}" );
   EXPECT_THAT( reload( configurator ), IsEmpty() );
   EXPECT_EQ( Quill::traceLevels(), "A/0" );
}

// --- While a reload runs --------------------------------------------------------------------------

// Reads that wait until they are let go on.
class SlowReadTest : public ConfiguratorTest {
 protected:
   SlowReadTest() {
      read = [ this, gate = goesOn.get_future().share() ]( auto const & each ) {
         ++reads;
         gate.wait();
         return Settings::readConfig( each );
      };
   }
   ~SlowReadTest() override { letGo(); }
   void letGo() {
      if ( !std::exchange( gone, true ) ) {
         goesOn.set_value();
      }
   }

   std::promise< void > goesOn;
   bool gone = false;
   std::atomic< int > reads = 0;
};

TEST_F( SlowReadTest, TheLoopDoesNotWaitForTheFiles ) {
   auto const configurator = started( "shutdown-delay-ms: 5" );
   write( "shutdown-delay-ms: 6" );
   bool done = false;
   configurator->reload( [ & ]( auto const & ) { done = true; } );
   bool turned = false;
   Gantry::Timer timer( loop.scheduler(), "test", [ & ] { turned = true; } );
   timer.start( 20ms );
   turnUntil( [ & ] { return turned && reads == 1; } );
   EXPECT_FALSE( done );
   EXPECT_EQ( configurator->active().config().shutdownDelayMs, 5 );
   ::testing::internal::CaptureStderr();
   letGo();
   turnUntil( [ & ] { return done; } );
   ::testing::internal::GetCapturedStderr();
   EXPECT_EQ( configurator->active().config().shutdownDelayMs, 6 );
}

TEST_F( SlowReadTest, ReloadsThatWaitBecomeOneWhichReadsTheNewestFiles ) {
   auto const configurator = started( "shutdown-delay-ms: 5" );
   write( "shutdown-delay-ms: 6" );
   Valen::Test::NotifySocket const manager( directory / "notify" );
   ::setenv( "NOTIFY_SOCKET", manager.path().c_str(), 1 );
   ::testing::internal::CaptureStderr();
   std::vector< std::pair< char, U64 > > ended;
   auto const ends = [ & ]( char name ) {
      return
         [ &ended, name ]( auto const & outcome ) { ended.emplace_back( name, outcome.number ); };
   };
   configurator->reload( ends( 'a' ) );
   turnUntil( [ & ] { return reads == 1; } );
   configurator->reload( ends( 'b' ) );
   configurator->reload( ends( 'c' ) );
   configurator->reload( ends( 'd' ) );
   letGo();
   turnUntil( [ & ] { return ended.size() == 4; } );
   ::testing::internal::GetCapturedStderr();
   ::unsetenv( "NOTIFY_SOCKET" );
   EXPECT_EQ( ended, ( std::vector< std::pair< char, U64 > >{
                        { 'a', 1 }, { 'b', 2 }, { 'c', 2 }, { 'd', 2 } } ) );
   EXPECT_EQ( reads, 2 );
   for ( int i = 0; i < 2; ++i ) { // each begins after the one before has ended
      EXPECT_THAT( manager.received(), ::testing::StartsWith( "RELOADING=1" ) );
      EXPECT_THAT( manager.received(), ::testing::StartsWith( "READY=1" ) );
   }
}

TEST_F( SlowReadTest, AReadThatDoesNotEndIsAConditionAndDoesNotHoldUpTheEnd ) {
   auto configurator = started( "shutdown-delay-ms: 5" );
   configurator->reload( nullptr );
   turnUntil( [ & ] { return reads == 1; } );
   auto const end = std::chrono::steady_clock::now() + Configurator::readTimeout + 30s;
   while ( condition().empty() && std::chrono::steady_clock::now() < end ) {
      loop.turn( 100ms );
   }
   EXPECT_EQ( condition(),
              "configuration-read: the files of " + file +
                 " have not been read within 5 s; the previous configuration is active" );
   configurator.reset(); // or it hangs
}

TEST_F( ConfiguratorTest, ALargeConfigurationIsAppliedInManyTurns ) {
   auto const configurator = started( "shutdown-delay-ms: 5" );
   std::string text = "shutdown-delay-ms: 6\ninterfaces:\n";
   for ( int i = 0; i < 100; ++i ) {
      text += "- {name: p" + std::to_string( i ) + "}\n";
   }
   write( text );
   applySteps = 200;
   std::optional< Configurator::Outcome > outcome;
   ::testing::internal::CaptureStderr();
   configurator->reload( [ & ]( auto const & each ) { outcome = each; } );
   turnUntil( [ & ] { return applySteps < 200; } );
   auto const before = loop.turns();
   turnUntil( [ & ] { return outcome.has_value(); } );
   ::testing::internal::GetCapturedStderr();
   EXPECT_EQ( outcome->changes.size(), 101u );
   EXPECT_GT( loop.turns() - before, 10u );
}

TEST_F( ConfiguratorTest, StandardInputIsNotReadAgain ) {
   Configurator configurator( "-", {}, conditions, loop, [ this ]( auto const & ) {
      return Configurator::Steps{ [ this ] {
         applied.emplace_back();
         return false;
      } };
   } );
   EXPECT_THAT( outcomeOf( configurator ).rejected->parameters().at( "errors" ),
                ElementsAre( "-: standard input cannot be read again" ) );
   EXPECT_THAT( applied, IsEmpty() );
}

} // namespace
} // namespace Valend
