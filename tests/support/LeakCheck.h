// The base of fixtures that must leave nothing of the framework alive.
#pragma once

#include "platform/corvid/Pkt.h"
#include "platform/quill/Allocation.h"

#include <gtest/gtest.h>

namespace Valen::Test {

// Counts the tracked objects when it is made and when it goes; derive a fixture from it, or make it
// the first member, so that it goes last.
class LeakCheck {
 public:
   LeakCheck() : live_( count() ) {}
   ~LeakCheck() { EXPECT_EQ( count(), live_ ) << "tracked objects are left alive"; }

 private:
   static U64 count() {
      Corvid::globalPktManager().trim();
      return Quill::liveObjects();
   }

   U64 const live_;
};

} // namespace Valen::Test
