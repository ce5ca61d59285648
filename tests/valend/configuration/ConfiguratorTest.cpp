#include "valend/configuration/Configurator.h"

#include "platform/trace/Trace.h"
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
   Configurator started( std::string const & text, Settings::ProcessConfig commandLine = {} ) {
      write( text );
      Configurator configurator( file, std::move( commandLine ),
                                 [ this ]( auto const & config ) { applied.push_back( config ); } );
      configurator.start( Settings::readConfig( file ) );
      return configurator;
   }
   // The changes of a reload; its log is kept.
   std::vector< std::string > reload( Configurator & configurator ) {
      ::testing::internal::CaptureStderr();
      auto const changes = configurator.reload();
      log = ::testing::internal::GetCapturedStderr();
      return changes;
   }

   WorkDirectory directory;
   std::string const file = directory / "valen.yaml";
   std::vector< Settings::Config > applied;
   std::string log;
};

TEST_F( ConfiguratorTest, TheConfigurationOfTheStartIsApplied ) {
   auto const configurator = started( "shutdown-delay-ms: 5" );
   ASSERT_EQ( applied.size(), 1u );
   EXPECT_EQ( applied[ 0 ].shutdownDelayMs, 5 );
   EXPECT_EQ( configurator.active().config, applied[ 0 ] );
}

TEST_F( ConfiguratorTest, AReloadAppliesLogsAndReturnsWhatChanged ) {
   auto configurator = started( "shutdown-delay-ms: 5" );
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
   auto configurator = started( "shutdown-delay-ms: 5" );
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

TEST_F( ConfiguratorTest, ASettingOfTheNextStartIsReportedUntilThen ) {
   auto configurator = started( "socket: /a" );
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
   auto configurator = started( "" );
   write( "trace: {levels: IntfSm/0}" );
   EXPECT_THAT( reload( configurator ), ElementsAre( "trace.levels IntfSm/0, was */0-1" ) );
   EXPECT_EQ( Quill::traceLevels(), "IntfSm/0" );
   write( "" );
   EXPECT_THAT( reload( configurator ), ElementsAre( "trace.levels */0-1, was IntfSm/0" ) );
   EXPECT_EQ( Quill::traceLevels(), "*/0-1" );
}

TEST_F( ConfiguratorTest, TraceLevelsThatWereSetOtherwiseStayUntilTheFilesChangeTheirs ) {
   auto configurator = started( "trace: {levels: IntfSm/0}" );
   Quill::traceLevelsIs( "VrfSm/1" );
   write( "trace: {levels: IntfSm/0}\nshutdown-delay-ms: 5" );
   reload( configurator );
   EXPECT_EQ( Quill::traceLevels(), "VrfSm/1" );
}

TEST_F( ConfiguratorTest, TheCommandLineOverridesTheFiles ) {
   Settings::ProcessConfig commandLine;
   commandLine.valueIs( "socket", "/line" );
   commandLine.valueIs( "trace.levels", "A/0" );
   auto configurator = started( "socket: /file", commandLine );
   EXPECT_EQ( configurator.active().process.value( "socket" ), "/line" );
   Quill::traceLevelsIs( "A/0" );
   write( "socket: /other\ntrace: {levels: B/0}" );
   EXPECT_THAT( reload( configurator ), IsEmpty() );
   EXPECT_EQ( Quill::traceLevels(), "A/0" );
}

} // namespace
} // namespace Valend
