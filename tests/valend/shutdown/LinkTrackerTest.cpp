#include "valend/shutdown/LinkTracker.h"

#include "tests/valend/DaemonFixture.h"

namespace Valend {
namespace {

using namespace Test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class LinkTrackerTest : public DaemonFixture {
 protected:
   LinkTrackerTest() { kernel.deviceIs( "default", "et1", 7 ); }
   // The kernel has the link so, and reports it.
   void report( LinkSeen seen ) {
      kernel.at( "default", "et1" ).up = seen == LinkSeen::up;
      tracker.reported( et1, seen );
   }

   LinkPlace const et1{ "default", "et1" };
   std::vector< std::string > outside;
   LinkTracker tracker{ kernel, clock.scheduler(),
                        [ this ]( auto const & place ) { outside.push_back( place.device ); } };
};

TEST_F( LinkTrackerTest, ALinkThatGoesDownWasSetDownOutside ) {
   report( LinkSeen::up );
   report( LinkSeen::down );
   report( LinkSeen::down );
   EXPECT_THAT( outside, ElementsAre( "et1" ) );
   report( LinkSeen::up );
   report( LinkSeen::down );
   EXPECT_THAT( outside, ElementsAre( "et1", "et1" ) );
}

TEST_F( LinkTrackerTest, TheFirstReportOfADeviceIsNotAChange ) {
   report( LinkSeen::down );
   report( LinkSeen::gone );
   report( LinkSeen::up );
   report( LinkSeen::gone );
   report( LinkSeen::down ); // another device of that name
   EXPECT_THAT( outside, IsEmpty() );
}

TEST_F( LinkTrackerTest, AChangeByValendIsNotOutside ) {
   report( LinkSeen::up );
   tracker.setDown( et1 );
   report( LinkSeen::down );
   EXPECT_THAT( outside, IsEmpty() );
}

// The kernel is asked while a report may be older than valend's own change.
TEST_F( LinkTrackerTest, AReportThatIsOlderThanAChangeByValendIsIgnored ) {
   report( LinkSeen::up );
   tracker.setDown( et1 );
   tracker.setUp( et1 );
   tracker.reported( et1, LinkSeen::down ); // the kernel has it up
   EXPECT_THAT( outside, IsEmpty() );
   report( LinkSeen::down );
   EXPECT_THAT( outside, ElementsAre( "et1" ) ) << "but a real change is not";
}

TEST_F( LinkTrackerTest, TheKernelIsNotAskedLater ) {
   report( LinkSeen::up );
   tracker.setDown( et1 );
   tracker.setUp( et1 );
   clock.advance( LinkTracker::echoTime + 1ms );
   kernel.upErrno = ETIMEDOUT;
   tracker.reported( et1, LinkSeen::down );
   EXPECT_THAT( outside, ElementsAre( "et1" ) );
}

TEST_F( LinkTrackerTest, AReportIsIgnoredWhenTheKernelCannotBeAsked ) {
   report( LinkSeen::up );
   tracker.setDown( et1 );
   tracker.setUp( et1 );
   kernel.upErrno = ENODEV;
   tracker.reported( et1, LinkSeen::down );
   EXPECT_THAT( outside, IsEmpty() );
}

TEST_F( LinkTrackerTest, TheMarkStaysUntilTheLinkIsSetUp ) {
   EXPECT_FALSE( tracker.downWithoutGoodbye( et1 ) );
   report( LinkSeen::up );
   report( LinkSeen::down );
   tracker.markWithoutGoodbye( et1 );
   EXPECT_TRUE( tracker.downWithoutGoodbye( et1 ) );
   report( LinkSeen::up );
   EXPECT_FALSE( tracker.downWithoutGoodbye( et1 ) );
   tracker.markWithoutGoodbye( et1 );
   tracker.setUp( et1 );
   EXPECT_FALSE( tracker.downWithoutGoodbye( et1 ) );
}

} // namespace
} // namespace Valend
