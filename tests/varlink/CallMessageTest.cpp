#include "varlink/CallMessage.h"

#include <gtest/gtest.h>

namespace Varlink {
namespace {

TEST( CallMessageTest, ACallHasAMethodParametersAndHowManyAnswersItWants ) {
   auto const plain = CallMessage::parse( R"({"method":"a.B","parameters":{"c":1}})" );
   ASSERT_TRUE( plain );
   EXPECT_EQ( plain->method, "a.B" );
   EXPECT_EQ( plain->parameters, ( Json{ { "c", 1 } } ) );
   EXPECT_EQ( plain->wanted, Wanted::one );
   EXPECT_EQ( CallMessage::parse( R"({"method":"a","more":true})" )->wanted, Wanted::many );
   EXPECT_EQ( CallMessage::parse( R"({"method":"a","oneway":true})" )->wanted, Wanted::none );
   EXPECT_EQ( CallMessage::parse( R"({"method":"a","more":true,"oneway":true})" )->wanted,
              Wanted::none );
   EXPECT_EQ( CallMessage::parse( R"({"method":"a","more":1})" )->wanted, Wanted::one );
}

TEST( CallMessageTest, ParametersMayBeNullOrLeftOut ) {
   EXPECT_EQ( CallMessage::parse( R"({"method":"a"})" )->parameters, Json::object() );
   EXPECT_EQ( CallMessage::parse( R"({"method":"a","parameters":null})" )->parameters,
              Json::object() );
   EXPECT_EQ( CallMessage::parse( R"({"method":"a","parameters":[1]})" )->parameters,
              Json::array( { 1 } ) );
}

TEST( CallMessageTest, OtherTextIsNotACall ) {
   for ( auto const * text : { "", "x", "[]", "{}", R"({"method":7})", R"({"method":"a")" } ) {
      EXPECT_FALSE( CallMessage::parse( text ) ) << text;
   }
}

TEST( CallMessageTest, NestingIsCountedOutsideOfStrings ) {
   auto const nested = []( std::size_t depth ) {
      return R"({"method":"a","parameters":)" + std::string( depth, '[' ) + R"("[[[[\"[[[[")" +
             std::string( depth, ']' ) + "}";
   };
   EXPECT_TRUE( CallMessage::parse( nested( 15 ) ) );
   EXPECT_FALSE( CallMessage::parse( nested( 16 ) ) );
}

} // namespace
} // namespace Varlink
