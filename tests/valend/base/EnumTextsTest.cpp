#include "valend/base/EnumTexts.h"

#include <gtest/gtest.h>

namespace Valend {
namespace {

enum class Color { red, green };
constexpr auto enumTexts( Color ) {
   return std::to_array< EnumText< Color > >(
      { { Color::red, "red" }, { Color::green, "green" } } );
}

enum class Swapped { red, green };
constexpr auto enumTexts( Swapped ) {
   return std::to_array< EnumText< Swapped > >(
      { { Swapped::green, "green" }, { Swapped::red, "red" } } );
}

TEST( EnumTextsTest, ATableWithEveryValueInOrderIsRecognized ) {
   EXPECT_TRUE( hasEveryValue( Color::green ) );
   EXPECT_FALSE( hasEveryValue( Color::red ) ) << "a row too many";
   EXPECT_FALSE( hasEveryValue( Swapped::green ) );
}

TEST( EnumTextsTest, AValueHasATextAndTheTextAValue ) {
   EXPECT_STREQ( textOf( Color::green ), "green" );
   EXPECT_EQ( valueOf< Color >( "red" ), Color::red );
   EXPECT_EQ( valueOf< Color >( "blue" ), std::nullopt );
}

} // namespace
} // namespace Valend
