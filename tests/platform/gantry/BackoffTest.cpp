#include "platform/gantry/Backoff.h"

#include <gtest/gtest.h>

namespace Gantry {
namespace {

using namespace std::chrono_literals;

TEST( BackoffTest, DoublesUpToTheLast ) {
   Backoff pause( 10ms, 35ms );
   EXPECT_EQ( pause.take(), 10ms );
   EXPECT_EQ( pause.take(), 20ms );
   EXPECT_EQ( pause.take(), 35ms );
   EXPECT_EQ( pause.take(), 35ms );
   pause.reset();
   EXPECT_EQ( pause.take(), 10ms );
}

} // namespace
} // namespace Gantry
