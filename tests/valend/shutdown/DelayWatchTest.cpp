#include "valend/shutdown/DelayWatch.h"

#include "tests/support/LeakCheck.h"

#include <gmock/gmock.h>

namespace Valend {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class DelayWatchTest : public ::testing::Test {
 protected:
   // The library's status entry of an interface.
   Quill::Ptr< Valen::Status::IntfStatus > entry( Corvid::IntfId const & intfId ) {
      return dir->intfStatusIs( intfId );
   }

   Valen::Test::LeakCheck leaks;
   Corvid::IntfId const one{ "Ethernet1" };
   Corvid::IntfId const two{ "Ethernet2" };
   std::vector< std::string > changed;
   Quill::Ptr< Valen::Status::StatusDir > dir = Quill::make< Valen::Status::StatusDir >();
   Quill::Ptr< DelayWatch > watch = Quill::make< DelayWatch >(
      dir, [ this ]( auto const & interface ) { changed.push_back( interface ); } );
};

TEST_F( DelayWatchTest, AChangeOfDelayedIsReported ) {
   auto const status = entry( one );
   watch->follow( one, status );
   status->delayedIs( true );
   status->delayedIs( false );
   EXPECT_THAT( changed, ElementsAre( "Ethernet1", "Ethernet1" ) );
}

TEST_F( DelayWatchTest, OtherAttributesAndOtherInterfacesAreNotReported ) {
   watch->follow( one, entry( one ) );
   auto const other = entry( two );
   other->delayedIs( true );
   dir->intfStatusDel( two );
   dir->intfStatus( one )->shouldDelayIs( true );
   EXPECT_THAT( changed, IsEmpty() );
}

TEST_F( DelayWatchTest, AnEntryThatIsRemovedOrReplacedIsReported ) {
   watch->follow( one, entry( one ) );
   dir->intfStatusDel( one );
   EXPECT_THAT( changed, ElementsAre( "Ethernet1" ) );
   entry( one );
   EXPECT_THAT( changed, ElementsAre( "Ethernet1", "Ethernet1" ) );
}

TEST_F( DelayWatchTest, AnEntryThatIsNotFollowedIsNotReported ) {
   auto const status = entry( one );
   watch->unfollow( one ); // harmless
   watch->follow( one, status );
   watch->unfollow( one );
   status->delayedIs( true );
   dir->intfStatusDel( one );
   EXPECT_THAT( changed, IsEmpty() );
}

TEST_F( DelayWatchTest, FollowingAnotherEntryReplacesTheFirst ) {
   auto const old = entry( one );
   watch->follow( one, old );
   dir->intfStatusDel( one );
   auto const next = entry( one );
   watch->follow( one, next );
   changed.clear();
   old->delayedIs( true );
   EXPECT_THAT( changed, IsEmpty() );
   next->delayedIs( true );
   EXPECT_THAT( changed, ElementsAre( "Ethernet1" ) );
}

// A shutdown may end inside the call.
TEST_F( DelayWatchTest, AnEntryMayBeUnfollowedWhileItIsReported ) {
   Quill::Ptr< DelayWatch > other;
   other = Quill::make< DelayWatch >( dir, [ & ]( auto const & ) { other->unfollow( one ); } );
   auto const status = entry( one );
   other->follow( one, status );
   watch->follow( one, status );
   status->delayedIs( true );
   status->delayedIs( false );
   EXPECT_EQ( changed.size(), 2u ) << "the other watch still follows it";
}

} // namespace
} // namespace Valend
