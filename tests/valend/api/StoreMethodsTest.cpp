#include "tests/valend/api/ApiFixture.h"

namespace Valend {
namespace {

using namespace Test;

class StoreMethodsTest : public ApiFixture {
 protected:
   StoreMethodsTest() { startPublishing( twoInterfaces() ); }
};

TEST_F( StoreMethodsTest, ShowAnswersTheStoreBelowAPath ) {
   auto const value = [ & ]( char const * path ) {
      return call( "Show", { { "path", path } } )->parameters()[ "value" ];
   };
   EXPECT_EQ(
      value( "status/intfStatus/Ethernet1" ),
      ( Json{ { "delayed", false }, { "intfId", "Ethernet1" }, { "shouldDelay", true } } ) );
   EXPECT_EQ( value( "status/intfStatus/Ethernet1/delayed" ), false );
   EXPECT_TRUE( value( "" ).contains( "status" ) );
}

} // namespace
} // namespace Valend
