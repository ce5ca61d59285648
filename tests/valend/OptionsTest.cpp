#include "valend/Options.h"

#include "platform/trace/Trace.h"
#include "valend/configuration/Configurator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace Valend {
namespace {

class OptionsTest : public ::testing::Test {
 protected:
   std::optional< Options > parse( std::vector< char const * > arguments ) {
      arguments.insert( arguments.begin(), "valend" );
      ::testing::internal::CaptureStdout();
      ::testing::internal::CaptureStderr();
      auto options = parseOptions( static_cast< int >( arguments.size() ), arguments.data(), exit );
      out = ::testing::internal::GetCapturedStdout();
      err = ::testing::internal::GetCapturedStderr();
      return options;
   }

   Exit exit = Exit::done;
   std::string out;
   std::string err;
};

TEST_F( OptionsTest, WithoutAnyTheUsualPlacesAreTaken ) {
   auto const options = parse( {} );
   ASSERT_TRUE( options );
   EXPECT_EQ( options->config, "/etc/valen/valen.yaml" );
   EXPECT_FALSE( options->check );
   EXPECT_EQ( options->process, Settings::ProcessConfig() );
}

TEST_F( OptionsTest, EachOptionIsTaken ) {
   auto const options = parse( { "--config", "c", "--check", "--socket", "s", "--netns-folder",
                                 "/n", "--trace", "ConfigSm/0", "--trace-file", "f", "--trace-ring",
                                 "r", "--state-directory", "/s", "--metrics-file", "/m" } );
   ASSERT_TRUE( options );
   EXPECT_EQ( options->config, "c" );
   EXPECT_TRUE( options->check );
   EXPECT_EQ( options->process,
              ( Settings::ProcessConfig{ "s", "/n", "ConfigSm/0", "f", "r", "/s", "/m" } ) );
}

TEST_F( OptionsTest, TheCommandLineGoesBeforeTheFile ) {
   Settings::ProcessConfig const file{ "s1", std::nullopt, "l1", std::nullopt, "r1", "/s", "/m1" };
   Settings::ProcessConfig const commandLine{ "s2",         std::nullopt, std::nullopt, "f2",
                                    std::nullopt, std::nullopt, "/m2" };
   EXPECT_EQ( Settings::merged( file, commandLine ),
              ( Settings::ProcessConfig{ "s2", std::nullopt, "l1", "f2", "r1", "/s", "/m2" } ) );
}

TEST_F( OptionsTest, TheServiceManagerSaysWhereTheStateIs ) {
   ::setenv( "STATE_DIRECTORY", "/var/lib/one:/var/lib/two", 1 );
   EXPECT_EQ( Settings::stateDirectoryOf( {} ), "/var/lib/one" );
   Settings::ProcessConfig configured;
   configured.stateDirectory = "/srv";
   EXPECT_EQ( Settings::stateDirectoryOf( configured ), "/srv" );
   ::unsetenv( "STATE_DIRECTORY" );
   EXPECT_EQ( Settings::stateDirectoryOf( configured ), "/srv" );
}

TEST_F( OptionsTest, TheStateDirectoryThatNoFileNamesIsShownAllTheSame ) {
   ::setenv( "STATE_DIRECTORY", "/var/lib/one", 1 );
   Configurator configurator( "f", {}, []( auto const & ) {} );
   configurator.start( {} );
   auto const settings = configurator.inForce()[ "settings" ];
   ::unsetenv( "STATE_DIRECTORY" );
   auto const setting = std::find_if( settings.begin(), settings.end(), []( auto const & each ) {
      return each[ "name" ] == "state-directory";
   } );
   ASSERT_NE( setting, settings.end() );
   EXPECT_EQ( ( *setting )[ "value" ], "/var/lib/one" );
   EXPECT_EQ( ( *setting )[ "origin" ], "default" );
}

TEST_F( OptionsTest, HelpAndVersionEndWell ) {
   EXPECT_FALSE( parse( { "--help" } ) );
   EXPECT_EQ( exit, Exit::done );
   EXPECT_NE( out.find( "78 the configuration is refused" ), std::string::npos );
   EXPECT_FALSE( parse( { "--version" } ) );
   EXPECT_EQ( exit, Exit::done );
   EXPECT_EQ( out.rfind( "valend ", 0 ), 0u );
}

TEST_F( OptionsTest, AWrongOptionIsNamed ) {
   EXPECT_FALSE( parse( { "--colour" } ) );
   EXPECT_EQ( exit, Exit::usage );
   EXPECT_NE( err.find( "--colour" ), std::string::npos );
   EXPECT_EQ( out, "" );
}

TEST_F( OptionsTest, TraceLevelsAreCheckedAndNotSet ) {
   auto const inForce = Quill::traceLevels();
   EXPECT_FALSE( parse( { "--trace", "ConfigSm" } ) );
   EXPECT_EQ( exit, Exit::usage );
   EXPECT_NE( err.find( "trace pattern \"ConfigSm\" is not NAME/LEVEL" ), std::string::npos );
   EXPECT_TRUE( parse( { "--trace", "ConfigSm/0" } ) );
   EXPECT_EQ( Quill::traceLevels(), inForce );
}

} // namespace
} // namespace Valend
