#include "valend/Options.h"

#include "platform/trace/Trace.h"

#include <filesystem>
#include <gtest/gtest.h>
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

TEST_F( OptionsTest, WithoutOptionsEverythingIsAtItsDefault ) {
   auto const options = parse( {} );
   ASSERT_TRUE( options );
   EXPECT_EQ( options->config, "/etc/valen/valen.yaml" );
   EXPECT_FALSE( options->check );
   EXPECT_EQ( options->process, Settings::ProcessConfig() );
}

TEST_F( OptionsTest, EachOptionIsRead ) {
   auto const options = parse( { "--config", "c", "--check" } );
   ASSERT_TRUE( options );
   EXPECT_EQ( options->config, "c" );
   EXPECT_TRUE( options->check );
   for ( auto const & setting : Settings::processSettings ) {
      if ( !setting.onCommandLine() ) {
         continue;
      }
      auto const option = "--" + std::string( setting.option );
      using Settings::SettingType;
      auto const * const value = setting.type == SettingType::traceLevels    ? "ConfigSm/0"
                                 : setting.type == SettingType::milliseconds ? "250"
                                                                             : "/value";
      auto const one = parse( { option.c_str(), value } );
      ASSERT_TRUE( one ) << option;
      Settings::ProcessConfig expected;
      expected.valueIs( setting, value );
      EXPECT_EQ( one->process, expected ) << option;
   }
}

TEST_F( OptionsTest, ARelativePathStartsAtTheWorkingDirectory ) {
   auto const options = parse( { "--state-directory", "state", "--socket", "sock" } );
   ASSERT_TRUE( options );
   EXPECT_EQ( options->process.given( "state-directory" ),
              ( std::filesystem::current_path() / "state" ).string() );
   EXPECT_EQ( options->process.given( "socket" ), "sock" )
      << "made absolute, it might exceed the length of a Unix address";
}

TEST_F( OptionsTest, AValueOutsideTheLimitsIsRejected ) {
   EXPECT_FALSE( parse( { "--socket", std::string( 108, 's' ).c_str() } ) );
   EXPECT_EQ( exit, Exit::usage );
   EXPECT_NE( err.find( "socket has 108 bytes; expected a path of 1 to 107 bytes" ),
              std::string::npos );
   EXPECT_FALSE( parse( { "--state-directory", "" } ) );
   EXPECT_NE( err.find( "state-directory is \"\"; expected an absolute path" ), std::string::npos );
}

TEST_F( OptionsTest, HelpListsEveryOptionWithItsDefault ) {
   EXPECT_FALSE( parse( { "--help" } ) );
   EXPECT_EQ( exit, Exit::done );
   EXPECT_NE( out.find( "See valend(8) for exit statuses." ), std::string::npos );
   for ( auto const & setting : Settings::processSettings ) {
      if ( !setting.onCommandLine() ) {
         EXPECT_EQ( out.find( setting.help ), std::string::npos ) << setting.name;
         continue;
      }
      EXPECT_NE( out.find( "--" + std::string( setting.option ) + " " ), std::string::npos );
      EXPECT_NE( out.find( setting.help ), std::string::npos ) << setting.name;
      EXPECT_NE( out.find( setting.shownDefault() ), std::string::npos ) << setting.name;
   }
}

TEST_F( OptionsTest, TheVersionIsPrinted ) {
   EXPECT_FALSE( parse( { "--version" } ) );
   EXPECT_EQ( exit, Exit::done );
   EXPECT_EQ( out.rfind( "valend ", 0 ), 0u );
}

TEST_F( OptionsTest, AnUnknownOptionIsReported ) {
   EXPECT_FALSE( parse( { "--color" } ) );
   EXPECT_EQ( exit, Exit::usage );
   EXPECT_NE( err.find( "--color" ), std::string::npos );
   EXPECT_EQ( out, "" );
}

TEST_F( OptionsTest, TraceLevelsAreCheckedAndNotSet ) {
   auto const active = Quill::traceLevels();
   EXPECT_FALSE( parse( { "--trace", "ConfigSm" } ) );
   EXPECT_EQ( exit, Exit::usage );
   EXPECT_NE( err.find( "trace pattern \"ConfigSm\" is not NAME/LEVEL" ), std::string::npos );
   EXPECT_TRUE( parse( { "--trace", "ConfigSm/0" } ) );
   EXPECT_EQ( Quill::traceLevels(), active );
}

} // namespace
} // namespace Valend
