#include "valend/configuration/Configurator.h"

#include "platform/trace/Trace.h"
#include "tests/support/NotifySocket.h"
#include "tests/support/WorkDirectory.h"
#include "valend/base/Refusal.h"

#include <gmock/gmock.h>

namespace Valend {
namespace {

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
         file, std::move( commandLine ), conditions,
         [ this ]( auto const & config ) { applied.push_back( config ); } );
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
   // The changes of a reload; its log is kept.
   std::vector< std::string > reload( Configurator & configurator ) {
      ::testing::internal::CaptureStderr();
      auto const changes = configurator.reload();
      log = ::testing::internal::GetCapturedStderr();
      return changes;
   }

   WorkDirectory directory;
   Conditions conditions{ []( auto, auto const & ) {} };
   std::string const file = directory / "valen.yaml";
   std::vector< Settings::Config > applied;
   std::string log;
};

TEST_F( ConfiguratorTest, TheConfigurationOfTheStartIsApplied ) {
   auto const owner = started( "shutdown-delay-ms: 5" );
   auto const & configurator = *owner;
   ASSERT_EQ( applied.size(), 1u );
   EXPECT_EQ( applied[ 0 ].shutdownDelayMs, 5 );
   EXPECT_EQ( configurator.active().config, applied[ 0 ] );
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

TEST_F( ConfiguratorTest, AConfigurationWithErrorsChangesNothing ) {
   auto const owner = started( "shutdown-delay-ms: 5" );
   auto & configurator = *owner;
   auto const before = configurator.active().config;
   write( "shutdown-delay-ms: x\ncolor: blue" );
   ::testing::internal::CaptureStderr();
   try {
      configurator.reload();
      ADD_FAILURE() << "the configuration was accepted";
   } catch ( Refusal const & e ) {
      EXPECT_EQ( e.name(), "ConfigRefused" );
      EXPECT_STREQ( e.what(), "configuration rejected; keeping the previous one" );
      EXPECT_EQ( e.parameters().at( "errors" ).size(), 2u );
      EXPECT_EQ( e.parameters().at( "errors" ).at( 0 ),
                 file +
                    ":1:20: shutdown-delay-ms is \"x\"; expected milliseconds from 0 to 65535" );
   }
   log = ::testing::internal::GetCapturedStderr();
   EXPECT_THAT( log, HasSubstr( "valend: " + file + ":2:1: unknown key \"color\"" ) );
   EXPECT_THAT( log, HasSubstr( "valend: configuration rejected; keeping the previous one\n" ) );
   EXPECT_EQ( applied.size(), 1u );
   EXPECT_EQ( configurator.active().config, before );
}

TEST_F( ConfiguratorTest, ARejectedReloadIsAConditionUntilAValidOne ) {
   auto const configurator = started( "shutdown-delay-ms: 5" );
   EXPECT_EQ( condition(), "" );
   write( "shutdown-delay-ms: x\ncolor: blue" );
   ::testing::internal::CaptureStderr();
   EXPECT_THROW( configurator->reload(), Refusal );
   ::testing::internal::GetCapturedStderr();
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
   EXPECT_EQ( configurator->active().sources.files, std::vector{ file } );
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

} // namespace
} // namespace Valend
