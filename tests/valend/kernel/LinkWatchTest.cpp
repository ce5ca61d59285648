// Links that are set down outside valend, and how they are reported.
#include "valend/kernel/LinkWatch.h"

#include "tests/support/WorkDirectory.h"
#include "tests/valend/DaemonFixture.h"

#include <net/if.h>

namespace Valend {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class LinkWatchTest : public ::testing::Test {
 protected:
   LinkWatchTest() {
      watch.seenIs( [ this ]( auto const & place, auto now ) {
         auto const * const text = now == LinkSeen::up     ? " up"
                                   : now == LinkSeen::down ? " down"
                                                           : " gone";
         seen.push_back( place.netNs + "/" + place.device + text );
      } );
      watch.follow( "red", status );
   }
   Quill::Ptr< KernelNetInfo::Interface > device( U32 ifIndex, char const * name, U32 flags ) {
      auto const device = Quill::make< KernelNetInfo::Interface >( ifIndex );
      device->deviceNameIs( name );
      device->flagsIs( flags );
      return device;
   }

   Valen::Test::LeakCheck leaks;
   std::vector< std::string > seen;
   Quill::Ptr< KernelNetInfo::Status > status =
      Quill::make< KernelNetInfo::Status >( Corvid::NamespaceName( "red" ) );
   LinkWatch watch;
};

TEST_F( LinkWatchTest, ADeviceIsSeenOnceAndThenWhenItIsSetUpOrDown ) {
   auto const et1 = device( 7, "et1", IFF_UP );
   status->interfaceAdd( et1 );
   et1->flagsIs( IFF_UP | IFF_RUNNING ); // its carrier alone
   et1->flagsIs( 0 );
   et1->flagsIs( IFF_UP );
   EXPECT_THAT( seen, ElementsAre( "red/et1 up", "red/et1 down", "red/et1 up" ) );
}

TEST_F( LinkWatchTest, ADeviceThatGoesOrChangesItsNameIsGone ) {
   status->interfaceAdd( device( 7, "et1", IFF_UP ) );
   status->interfaceDel( 7 );
   status->interfaceAdd( device( 7, "et9", 0 ) );
   EXPECT_THAT( seen, ElementsAre( "red/et1 up", "red/et1 gone", "red/et9 down" ) );
}

TEST_F( LinkWatchTest, DevicesThatAreThereAlreadyAreSeen ) {
   auto const other = Quill::make< KernelNetInfo::Status >( Corvid::NamespaceName( "blue" ) );
   other->interfaceAdd( device( 1, "et1", IFF_UP ) );
   watch.follow( "blue", other );
   watch.follow( "blue", other ); // as before
   EXPECT_THAT( seen, ElementsAre( "blue/et1 up" ) );
}

TEST_F( LinkWatchTest, ANamespaceThatIsNotFollowedAnyMoreIsSilent ) {
   auto const et1 = device( 7, "et1", IFF_UP );
   status->interfaceAdd( et1 );
   seen.clear();
   watch.follow( "red", nullptr );
   et1->flagsIs( 0 );
   EXPECT_THAT( seen, IsEmpty() );
}

} // namespace
} // namespace Valend
