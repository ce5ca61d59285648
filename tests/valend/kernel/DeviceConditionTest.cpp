#include "valend/kernel/DeviceCondition.h"

#include "tests/support/LeakCheck.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Valend {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class FakeNamespaces final : public Namespaces {
 public:
   NamespaceView look( std::string const & ) const override { return view; }
   NamespaceView view{ "1:1", "", false };
};

class DeviceConditionTest : public ::testing::Test {
 protected:
   std::vector< std::string > raised() const {
      std::vector< std::string > list;
      for ( auto const & each : conditions.raised() ) {
         list.push_back( each.name + ": " + each.text );
      }
      return list;
   }

   Valen::Test::LeakCheck leaks;
   Conditions conditions{ []( auto, auto const & ) {} };
   FakeNamespaces namespaces;
   Quill::Ptr< KernelNetInfo::Status > status =
      Quill::make< KernelNetInfo::Status >( Corvid::NamespaceName( "red" ) );
   Quill::Ptr< DeviceCondition > condition =
      Quill::make< DeviceCondition >( conditions, namespaces, status );
};

TEST_F( DeviceConditionTest, NothingIsRaisedWhileTheFirstReadIsUnderWay ) {
   EXPECT_THAT( raised(), IsEmpty() );
}

TEST_F( DeviceConditionTest, ANamespaceThatCannotBeWatchedIsRaised ) {
   status->errorIs( "namespace red: Too many open files" );
   EXPECT_THAT( raised(), ElementsAre( "devices/red: namespace red: Too many open files" ) );
   status->errorIs( "" );
   EXPECT_THAT( raised(), IsEmpty() );
}

TEST_F( DeviceConditionTest, AMissingNamespaceIsTheVrfsCondition ) {
   namespaces.view = { "", "no namespace red", true };
   status->errorIs( "namespace red: No such file or directory" );
   EXPECT_THAT( raised(), IsEmpty() );
}

TEST_F( DeviceConditionTest, LostNotificationsAreRaisedUntilAllDevicesWereRead ) {
   status->synchronizedIs( true );
   status->resyncsIs( 1 );
   status->synchronizedIs( false );
   EXPECT_THAT( raised(), ElementsAre( "devices/red: notifications of the kernel were lost; "
                                       "reading all devices again" ) );
   status->synchronizedIs( true );
   EXPECT_THAT( raised(), IsEmpty() );
}

} // namespace
} // namespace Valend
