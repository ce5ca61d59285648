#include "valenctl/Options.h"

#include <CLI/CLI.hpp>
#include <gtest/gtest.h>

namespace Valenctl {
namespace {

class OptionsTest : public ::testing::Test {
 protected:
   OptionsTest() { addOptions( app, options ); }

   void parse( std::vector< std::string > words ) {
      std::reverse( words.begin(), words.end() ); // as the parser wants them
      app.parse( words );
   }

   Options options;
   CLI::App app;
};

TEST_F( OptionsTest, EachOptionHasADefault ) {
   parse( {} );
   EXPECT_EQ( options.socket, "/run/valen/valend.sock" );
   EXPECT_EQ( options.timeout(), std::chrono::seconds( 10 ) );
   EXPECT_FALSE( options.json );
}

TEST_F( OptionsTest, TheLastSocketIsUsed ) {
   parse( { "--socket", "a", "--socket", "b" } );
   EXPECT_EQ( options.socket, "b" );
}

TEST_F( OptionsTest, TheDatabaseReplacesTheSocket ) {
   parse( { "--database", "unix:///a", "--host", "rtr1,rtr2" } );
   EXPECT_EQ( options.database, "unix:///a" );
   EXPECT_EQ( options.hostNames(), ( std::vector< std::string >{ "rtr1", "rtr2" } ) );
   parse( { "--database", "unix:///a", "--host", "rtr1,all" } );
   EXPECT_EQ( options.hostNames(), std::vector< std::string >() );
   EXPECT_THROW( parse( { "--database", "unix:///a", "--socket", "b" } ), CLI::ParseError );
   EXPECT_THROW( parse( { "--host", "rtr1" } ), CLI::ParseError );
}

TEST_F( OptionsTest, TheTimeoutIsInSecondsUpToADay ) {
   parse( { "--timeout", "0.25", "--json" } );
   EXPECT_EQ( options.timeout(), std::chrono::milliseconds( 250 ) );
   EXPECT_TRUE( options.json );
   parse( { "--timeout", "0" } );
   EXPECT_EQ( options.timeout().count(), 0 );
   for ( auto const * wrong : { "-1", "86401", "soon" } ) {
      EXPECT_THROW( parse( { "--timeout", wrong } ), CLI::ValidationError ) << wrong;
   }
}

} // namespace
} // namespace Valenctl
