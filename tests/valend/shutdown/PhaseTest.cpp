#include "valend/shutdown/Phase.h"

#include <gtest/gtest.h>

namespace Valend {
namespace {

TEST( PhaseTest, APhaseIsFoundByItsText ) {
   for ( auto const & row : enumTexts( Phase() ) ) {
      EXPECT_EQ( valueOf< Phase >( textOf( row.value ) ), row.value );
   }
   EXPECT_EQ( valueOf< Phase >( "dreaming" ), std::nullopt );
}

TEST( PhaseTest, TheLinkIsHeldInTwoPhases ) {
   int held = 0;
   for ( auto const & row : enumTexts( Phase() ) ) {
      held += isHeld( row.value );
   }
   EXPECT_TRUE( isHeld( Phase::held ) );
   EXPECT_TRUE( isHeld( Phase::heldToDeadline ) );
   EXPECT_EQ( held, 2 );
}

} // namespace
} // namespace Valend
