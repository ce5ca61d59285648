#include "valenctl/frame/FrameOptions.h"

#include <gtest/gtest.h>

namespace Valenctl {
namespace {

class FrameOptionsTest : public ::testing::Test {
 protected:
   FrameOptionsTest() {
      auto const take = [ this ]( std::string const & text ) {
         if ( text == "bad" ) {
            throw Goodbye::BadText( "\"bad\" is not an address" );
         }
         taken.push_back( text );
      };
      addTexts( app, "--many", "TEXT", "Several", take );
      addText( app, "--one", "TEXT", "One", take );
   }

   // The error of a command line; empty when it is right.
   std::string parse( std::vector< std::string > words ) {
      std::reverse( words.begin(), words.end() ); // as the parser wants them
      try {
         app.parse( words );
      } catch ( CLI::ParseError const & e ) {
         return e.what();
      }
      return "";
   }

   CLI::App app;
   std::vector< std::string > taken;
};

TEST_F( FrameOptionsTest, ARepeatedOptionTakesEachText ) {
   EXPECT_EQ( parse( { "--many", "a", "--many", "b" } ), "" );
   EXPECT_EQ( taken, ( std::vector< std::string >{ "a", "b" } ) );
}

TEST_F( FrameOptionsTest, ASingleOptionCannotBeRepeated ) {
   EXPECT_EQ( parse( { "--one", "a" } ), "" );
   EXPECT_NE( parse( { "--one", "a", "--one", "b" } ), "" );
}

TEST_F( FrameOptionsTest, AWrongTextNamesTheOption ) {
   EXPECT_EQ( parse( { "--many", "bad" } ), "--many: \"bad\" is not an address" );
   EXPECT_EQ( parse( { "--one", "bad" } ), "--one: \"bad\" is not an address" );
}

} // namespace
} // namespace Valenctl
