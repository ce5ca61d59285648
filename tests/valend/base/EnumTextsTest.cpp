#include "valend/base/EnumTexts.h"

#include <gtest/gtest.h>

namespace Valend {
namespace {

enum class Colour { red, green };
constexpr auto enumTexts( Colour ) {
   return std::to_array< EnumText< Colour > >(
      { { Colour::red, "red" }, { Colour::green, "green" } } );
}

TEST( EnumTextsTest, AValueHasATextAndTheTextAValue ) {
   EXPECT_STREQ( textOf( Colour::green ), "green" );
   EXPECT_EQ( valueOf< Colour >( "red" ), Colour::red );
   EXPECT_EQ( valueOf< Colour >( "blue" ), std::nullopt );
}

} // namespace
} // namespace Valend
