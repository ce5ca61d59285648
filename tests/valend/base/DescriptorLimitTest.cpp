#include "valend/base/DescriptorLimit.h"

#include "linux/DescriptorReserve.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

namespace Valend {
namespace {

using Valen::Linux::DescriptorReserve;

// Each test has the soft limit of the process for itself. The hard one could not be restored.
class DescriptorLimitTest : public ::testing::Test {
 protected:
   DescriptorLimitTest() { ::getrlimit( RLIMIT_NOFILE, &before_ ); }
   ~DescriptorLimitTest() override { ::setrlimit( RLIMIT_NOFILE, &before_ ); }

   void softLimitIs( rlim_t limit ) const {
      rlimit const now{ limit, before_.rlim_max };
      ASSERT_EQ( ::setrlimit( RLIMIT_NOFILE, &now ), 0 );
   }

   rlimit before_{};
   Conditions conditions_{ []( auto, auto const & ) {} };
};

TEST_F( DescriptorLimitTest, IsRaisedAsFarAsAllowed ) {
   softLimitIs( before_.rlim_max - 1 );
   DescriptorLimit const limit( conditions_ );
   rlimit now{};
   ::getrlimit( RLIMIT_NOFILE, &now );
   EXPECT_EQ( now.rlim_cur, before_.rlim_max );
   EXPECT_EQ( now.rlim_max, before_.rlim_max );
}

TEST_F( DescriptorLimitTest, FillsTheReserveWhileItExists ) {
   {
      DescriptorLimit const limit( conditions_ );
      EXPECT_EQ( DescriptorReserve::ofProcess().held(), DescriptorReserve::usualSize );
   }
   EXPECT_EQ( DescriptorReserve::ofProcess().held(), 0u );
}

TEST_F( DescriptorLimitTest, ALimitThatIsTooLowIsACondition ) {
   DescriptorLimit limit( conditions_ );
   auto const needed = DescriptorLimit::needed( 100, 50, 256 );
   EXPECT_EQ( DescriptorLimit::needed( 101, 50, 256 ), needed + 3 );
   EXPECT_EQ( DescriptorLimit::needed( 100, 51, 256 ), needed + 1 );
   EXPECT_EQ( DescriptorLimit::needed( 100, 50, 257 ), needed + 1 );
   softLimitIs( needed );
   limit.check( 100, 50, 256 );
   EXPECT_FALSE( conditions_.isRaised( "descriptors" ) );
   limit.check( 101, 50, 256 );
   ASSERT_TRUE( conditions_.isRaised( "descriptors" ) );
   EXPECT_EQ(
      conditions_.raised().front().text,
      "up to " + std::to_string( needed + 3 ) +
         " file descriptors are needed (101 VRFs, 50 interfaces, 256 clients), and the limit is " +
         std::to_string( needed ) + "; raise it (LimitNOFILE= of the service)" );
   limit.check( 100, 50, 256 );
   EXPECT_FALSE( conditions_.isRaised( "descriptors" ) );
}

} // namespace
} // namespace Valend
