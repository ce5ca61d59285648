#include "valend/base/Described.h"

#include <gtest/gtest.h>

namespace Valend {
namespace {

using Json = nlohmann::json;

struct Part {
   std::string text;
};

template < class Object > void describe( Object & object, Part const & part ) {
   object.add( "text", part.text );
}

struct Whole {
   bool yes = true;
   std::int64_t number = -9'223'372'036'854'775'807;
   std::uint64_t large = 18'446'744'073'709'551'615u;
   char const * name = "whole";
   std::optional< std::string_view > none = std::nullopt;
   std::optional< int > some = 7;
   Part part = { "one" };
   std::vector< Part > parts = {};
   std::vector< Part > more = { { "two" }, { "" } };
};

template < class Object > void describe( Object & object, Whole const & whole ) {
   object.add( "yes", whole.yes );
   object.add( "number", whole.number );
   object.add( "large", whole.large );
   object.add( "name", whole.name );
   object.add( "none", whole.none );
   object.add( "some", whole.some );
   object.add( "part", whole.part );
   object.add( "parts", whole.parts );
   object.add( "more", whole.more );
}

TEST( DescribedTest, TheTextHasEachMemberInTheOrderOfTheList ) {
   EXPECT_EQ( JsonText::of( Whole() ),
              R"({"yes":true,"number":-9223372036854775807,"large":18446744073709551615,)"
              R"("name":"whole","none":null,"some":7,"part":{"text":"one"},"parts":[],)"
              R"("more":[{"text":"two"},{"text":""}]})" );
}

TEST( DescribedTest, TheValueIsThatOfTheText ) {
   EXPECT_EQ( JsonValue::of( Whole() ), Json::parse( JsonText::of( Whole() ) ) );
}

TEST( DescribedTest, TextsAreEscapedAndBytesThatAreNotUtf8Replaced ) {
   for ( std::string const text :
         { "a\"b", "a\\b", "a\nb", "\x01", "\x7f", "\xc3\xa4", "{", "[" } ) {
      EXPECT_EQ( Json::parse( JsonText::of( Part{ text } ) ), Json( { { "text", text } } ) );
   }
   EXPECT_EQ( JsonText::of( Part{ "a\xff" } ), "{\"text\":\"a\xef\xbf\xbd\"}" );
}

} // namespace
} // namespace Valend
