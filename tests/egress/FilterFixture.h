// A namespace with a filter, each test by tcx and by clsact. Its far end is in another namespace.
#pragma once

#include "egress/Filters.h"
#include "egress/Mutes.h"
#include "tests/egress/Wire.h"
#include "tests/linux/UserNamespace.h"

#include <gtest/gtest.h>
#include <optional>

namespace Egress::Test {

class FilterFixture : public ::testing::TestWithParam< Hook > {
 protected:
   void SetUp() override {
      if ( Valen::Test::inUserNamespace() ) {
         GTEST_SKIP() << Valen::Test::filtersNeedRoot;
      }
      filters_.emplace( GetParam() );
      mutes_.emplace( filters_->mutes() );
   }

   static constexpr U32 number_ = 7; // of the namespace
   TestNetNs const near_;
   TestNetNs const far_;
   std::optional< Filters > filters_;
   std::optional< Mutes > mutes_;
};

} // namespace Egress::Test
