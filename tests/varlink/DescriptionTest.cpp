#include "varlink/Description.h"

#include <gmock/gmock.h>

namespace Varlink {
namespace {

using ::testing::HasSubstr;
using Kind = Type::Kind;

char const * const example = R"(# A service.
interface org.example.service

type Colour (red, green) # values
type Place (x: int, y: ?int)

# Draws.
method Draw(what: string, at: Place, colours: []Colour, how: (thick, thin), tags: ?[string]bool,
   scale: float, extra: ?object, nested: (inner: (deep: ?[]string))) -> (done: bool)
method Ping() -> ()
error NoPen (message: string, left: int)
)";

Json const fits = Json::parse( R"({"what": "line", "at": {"x": 1, "y": null}, "colours": ["red"],
   "how": "thin", "tags": {"a": true}, "scale": 1.5, "extra": [1],
   "nested": {"inner": {"deep": ["x"]}}})" );

TEST( DescriptionTest, MembersAreFoundByName ) {
   Description const description( example );
   EXPECT_EQ( description.name(), "org.example.service" );
   EXPECT_EQ( description.methods().size(), 2u );
   auto const & draw = description.methods().at( "Draw" );
   ASSERT_EQ( draw.parameters.fields.size(), 8u );
   EXPECT_EQ( draw.parameters.fields[ 0 ].name, "what" );
   EXPECT_EQ( draw.parameters.fields[ 2 ].type.kind, Kind::array );
   EXPECT_EQ( description.resolved( *draw.parameters.fields[ 2 ].type.element ).values,
              ( std::vector< std::string >{ "red", "green" } ) );
   EXPECT_EQ( draw.answer.fields[ 0 ].type.kind, Kind::boolean );
   EXPECT_TRUE( description.methods().at( "Ping" ).parameters.fields.empty() );
   EXPECT_EQ( description.errors().at( "NoPen" ).fields.size(), 2u );
   EXPECT_EQ( description.types().at( "Place" ).kind, Kind::structure );
}

TEST( DescriptionTest, AMismatchIsTheFieldThatIsWrong ) {
   Description const description( example );
   auto const & parameters = description.methods().at( "Draw" ).parameters;
   auto const mismatch = [ & ]( char const * pointer, Json const & value ) {
      auto changed = fits;
      changed[ Json::json_pointer( pointer ) ] = value;
      return description.mismatch( changed, parameters ).value_or( "none" );
   };
   EXPECT_EQ( description.mismatch( fits, parameters ), std::nullopt );
   EXPECT_EQ( mismatch( "/what", 1 ), "what" );
   EXPECT_EQ( mismatch( "/what", nullptr ), "what" );
   EXPECT_EQ( mismatch( "/at", "here" ), "at" );
   EXPECT_EQ( mismatch( "/at/x", 1.5 ), "at" );
   EXPECT_EQ( mismatch( "/at/x", U64( 1 ) << 63 ), "at" ) << "more than a signed integer holds";
   EXPECT_EQ( mismatch( "/at/x", -5 ), "none" );
   EXPECT_EQ( mismatch( "/at/z", 1 ), "at" ) << "an unknown field of a structure";
   EXPECT_EQ( mismatch( "/at/y", 2 ), "none" );
   EXPECT_EQ( mismatch( "/colours", "red" ), "colours" );
   EXPECT_EQ( mismatch( "/colours/0", "blue" ), "colours" );
   EXPECT_EQ( mismatch( "/how", "wide" ), "how" );
   EXPECT_EQ( mismatch( "/how", 1 ), "how" );
   EXPECT_EQ( mismatch( "/tags/a", "yes" ), "tags" );
   EXPECT_EQ( mismatch( "/tags", Json::array() ), "tags" );
   EXPECT_EQ( mismatch( "/tags", nullptr ), "none" );
   EXPECT_EQ( mismatch( "/scale", "1" ), "scale" );
   EXPECT_EQ( mismatch( "/scale", 2 ), "none" );
   EXPECT_EQ( mismatch( "/nested/inner/deep/0", 7 ), "nested" );
   EXPECT_EQ( mismatch( "/nested/inner", nullptr ), "nested" );
   EXPECT_EQ( mismatch( "/unknown", 1 ), "unknown" );
}

TEST( DescriptionTest, OnlyAnOptionalFieldMayBeLeftOut ) {
   Description const description( example );
   auto const & parameters = description.methods().at( "Draw" ).parameters;
   for ( auto const & field : parameters.fields ) {
      auto without = fits;
      without.erase( field.name );
      auto const expected =
         field.type.kind == Kind::optional ? std::nullopt : std::optional( field.name );
      EXPECT_EQ( description.mismatch( without, parameters ), expected ) << field.name;
   }
}

// --- Errors --------------------------------------------------------------------------------------

std::string errorOf( std::string const & text ) {
   try {
      Description const description( text );
   } catch ( DescriptionError const & e ) {
      return e.what();
   }
   return "none";
}

std::string member( std::string const & text ) {
   return errorOf( "interface a.b\n" + text );
}

TEST( DescriptionTest, AnErrorHasLineAndColumn ) {
   EXPECT_EQ( errorOf( "" ), "1:1: expected \"interface\", not the end" );
   EXPECT_EQ( errorOf( "# x\n interfaces a.b" ),
              "2:2: expected \"interface\", not \"interfaces\"" );
   EXPECT_EQ( errorOf( "interface x" ), "1:11: \"x\" is not a name like \"org.example.service\"" );
   EXPECT_EQ( member( "methods" ),
              "2:1: expected \"type\", \"method\" or \"error\", not \"methods\"" );
   EXPECT_EQ( member( "type lower (a: int)" ),
              "2:6: \"lower\" does not begin with a capital letter, or has a \"_\"" );
   EXPECT_EQ( member( "method M(a int) -> ()" ), "2:12: expected \")\", not \"int\"" );
   EXPECT_EQ( member( "method M(a: int)" ), "2:17: expected \"->\", not the end" );
   EXPECT_EQ( member( "method M(a, b) -> ()" ), "2:9: expected fields with types, not values" );
   EXPECT_EQ( member( "method M(a: ??int) -> ()" ), "2:14: duplicate \"?\"" );
   EXPECT_EQ( member( "method M(a: [int]int) -> ()" ), "2:14: expected \"string\", not \"int\"" );
   EXPECT_EQ( member( "method M(a: ) -> ()" ), "2:13: expected a type, not \")\"" );
   EXPECT_EQ( member( "method M(1a: int) -> ()" ), "2:10: \"1a\" does not begin with a letter" );
   EXPECT_EQ( member( "method M(a: int" ), "2:16: expected \")\", not the end" );
   EXPECT_EQ( member( "type T (a: int)\nmethod M(a: []Other) -> ()" ),
              "3:15: type \"Other\" is not defined" );
}

TEST( DescriptionTest, ANameIsDefinedOnce ) {
   EXPECT_EQ( member( "type T (a: int)\nmethod T() -> ()" ), "3:8: duplicate \"T\"" );
   EXPECT_EQ( member( "error E ()\nerror E ()" ), "3:7: duplicate \"E\"" );
   EXPECT_EQ( member( "type T (a: int, a: bool)" ), "2:17: duplicate \"a\"" );
   EXPECT_EQ( member( "type T (a, b, a)" ), "2:15: duplicate \"a\"" );
}

TEST( DescriptionTest, TheDepthOfTypesIsBounded ) {
   auto const nested = []( int depth ) {
      std::string text = "type T (a: ";
      for ( int i = 1; i < depth; ++i ) {
         text += "[]";
      }
      return member( text + "int)" );
   };
   EXPECT_EQ( nested( Description::maxDepth ), "none" );
   EXPECT_THAT( nested( Description::maxDepth + 1 ), HasSubstr( "nested more than 16 deep" ) );
   EXPECT_THAT( nested( 100'000 ), HasSubstr( "nested more than 16 deep" ) );
   std::string structures;
   for ( int i = 0; i < 100'000; ++i ) {
      structures += "(a: ";
   }
   EXPECT_THAT( member( "type T " + structures ), HasSubstr( "nested more than 16 deep" ) );
}

} // namespace
} // namespace Varlink
