#include "valenctl/text/JsonFields.h"

#include <gtest/gtest.h>

namespace Valenctl {
namespace {

TEST( JsonFieldsTest, FieldsAreRead ) {
   Json const object{
      { "text", "x" }, { "number", 7 }, { "flag", true }, { "list", { "a", "b" } } };
   EXPECT_EQ( textField( object, "text" ), "x" );
   EXPECT_EQ( numberField( object, "number" ), 7u );
   EXPECT_TRUE( flagField( object, "flag" ) );
   EXPECT_EQ( listField( object, "list" ), ( Json{ "a", "b" } ) );
   EXPECT_EQ( textsField( object, "list" ), ( std::vector< std::string >{ "a", "b" } ) );
   EXPECT_EQ( anyField( object, "number" ), 7 );
}

TEST( JsonFieldsTest, AbsentFieldsAndThoseOfAnotherTypeAreEmpty ) {
   Json const object{
      { "text", 7 }, { "number", "x" }, { "flag", nullptr }, { "list", { 1, "b" } } };
   for ( auto const & each : { object, Json::object(), Json(), Json::array( { 1 } ) } ) {
      EXPECT_EQ( textField( each, "text" ), "" );
      EXPECT_EQ( numberField( each, "number" ), 0u );
      EXPECT_FALSE( flagField( each, "flag" ) );
      EXPECT_EQ( listField( each, "number" ), Json::array() );
      EXPECT_EQ( anyField( each, "none" ), Json() );
   }
   EXPECT_EQ( textsField( object, "list" ), ( std::vector< std::string >{ "b" } ) );
}

TEST( JsonFieldsTest, InvalidUtf8IsReplaced ) {
   Json const object{ { "a", "\xff" } };
   EXPECT_EQ( oneLine( object ), "{\"a\":\"\xef\xbf\xbd\"}" );
   EXPECT_EQ( indented( object ), "{\n  \"a\": \"\xef\xbf\xbd\"\n}" );
}

} // namespace
} // namespace Valenctl
