#include "valend/shutdown/Phase.h"

#include <gtest/gtest.h>

namespace Valend {
namespace {

TEST( PhaseTest, APhaseIsFoundByItsText ) {
   for ( auto const & row : phaseTexts ) {
      EXPECT_EQ( valueIn( phaseTexts, textOf( row.value ) ), row.value );
   }
   EXPECT_EQ( valueIn( phaseTexts, "dreaming" ), std::nullopt );
}

TEST( PhaseTest, TheLinkIsHeldInTwoPhases ) {
   int held = 0;
   for ( auto const & row : phaseTexts ) {
      held += isHeld( row.value );
   }
   EXPECT_TRUE( isHeld( Phase::held ) );
   EXPECT_TRUE( isHeld( Phase::heldToDeadline ) );
   EXPECT_EQ( held, 2 );
}

enum class Color { red, green };

TEST( EnumTextsTest, ATableWithEveryValueInOrderIsRecognized ) {
   constexpr EnumText< Color > whole[] = { { Color::red, "red" }, { Color::green, "green" } };
   constexpr EnumText< Color > swapped[] = { { Color::green, "green" }, { Color::red, "red" } };
   constexpr EnumText< Color > small[] = { { Color::red, "red" } };
   EXPECT_TRUE( hasEveryValue( whole, Color::green ) );
   EXPECT_FALSE( hasEveryValue( swapped, Color::green ) );
   EXPECT_FALSE( hasEveryValue( small, Color::green ) );
   EXPECT_STREQ( textIn( whole, Color::green ), "green" );
   EXPECT_EQ( valueIn( whole, "green" ), Color::green );
   EXPECT_EQ( valueIn( whole, "blue" ), std::nullopt );
}

} // namespace
} // namespace Valend
