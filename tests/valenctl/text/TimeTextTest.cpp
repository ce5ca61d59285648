#include "valenctl/text/TimeText.h"

#include <gtest/gtest.h>

namespace Valenctl {
namespace {

TEST( TimeTextTest, ATimeHasAsManyDecimalsAsItsUnit ) {
   EXPECT_EQ( timeText( std::chrono::milliseconds( 1'700'000'000'023 ) ),
              "2023-11-14T22:13:20.023Z" );
   EXPECT_EQ( timeText( std::chrono::microseconds( 1'700'000'000'000'456 ) ),
              "2023-11-14T22:13:20.000456Z" );
   EXPECT_EQ( timeText( std::chrono::milliseconds( 0 ) ), "1970-01-01T00:00:00.000Z" );
}

} // namespace
} // namespace Valenctl
