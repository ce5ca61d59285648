// Links that are set down outside valend: how they are distinguished from valend's own changes, and recorded.
#include "tests/valend/shutdown/ShutdownFixture.h"

namespace Valend {
namespace {

using namespace Test;

class SetDownOutsideTest : public JournaledFixture {
 protected:
   SetDownOutsideTest() { seen( "et1", LinkSeen::up ); }

   // The kernel reports a device of the default namespace.
   void seen( std::string const & device, LinkSeen state ) {
      controller.linkSeen( { "default", device }, state );
      turn();
   }
   void setOutside( LinkSeen state ) {
      kernel.at( "default", "et1" ).up = state == LinkSeen::up;
      seen( "et1", state );
   }
   bool withoutGoodbye() const { return controller.downWithoutGoodbye( { "default", "et1" } ); }
};

TEST_F( SetDownOutsideTest, ALinkSetDownOutsideIsRecordedAndShown ) {
   std::vector< std::string > lines;
   controller.endedIs( [ & ]( auto const & record ) { lines.push_back( record.summary() ); } );
   setOutside( LinkSeen::down );
   EXPECT_THAT( lines, ElementsAre( "Ethernet1: link set down outside valend; no goodbye frames "
                                    "sent" ) );
   EXPECT_EQ( last().ending, Ending::wentDown );
   EXPECT_STREQ( last().endingText(), "went-down" );
   EXPECT_EQ( last().request.by, "outside valend" );
   EXPECT_EQ( last().why, "link set down outside valend" );
   EXPECT_TRUE( withoutGoodbye() );
   EXPECT_EQ( controller.totals( "Ethernet1" ).wentDown, 1u );
   EXPECT_EQ( controller.totals( "Ethernet1" ).shutdowns, 0u );
   EXPECT_THAT( sentFrames(), IsEmpty() );
   setOutside( LinkSeen::up );
   EXPECT_FALSE( withoutGoodbye() );
   EXPECT_EQ( controller.history().size(), 1u );
}

TEST_F( SetDownOutsideTest, ALinkThatFlapsPushesNothingOutOfTheHistoryOrTheJournal ) {
   std::size_t told = 0;
   controller.endedIs( [ & ]( auto const & record ) { told += record.count; } );
   controller.shutdown( "Ethernet2", { "root" }, nullptr );
   advance( 500ms );
   for ( int flap = 0; flap < 1000; ++flap ) {
      setOutside( LinkSeen::down );
      setOutside( LinkSeen::up );
      clock.advance( 10ms );
   }
   EXPECT_EQ( told, 1001u ) << "each is logged and counted";
   EXPECT_EQ( controller.totals( "Ethernet1" ).wentDown, 1000u );
   ASSERT_EQ( controller.history().size(), 2u );
   EXPECT_EQ( controller.history().front().interface, "Ethernet2" );
   EXPECT_EQ( last().count, 1000u );
   clock.advance( Repeats::lastPause );
   auto const content = files.content( "shutdowns" );
   auto const lines = std::count( content.begin(), content.end(), '\n' );
   EXPECT_LT( lines, 12 ) << "of which the shutdown and the header are seven";
   EXPECT_NE( content.find( "\"count\":1000" ), std::string::npos );
}

TEST_F( SetDownOutsideTest, AFlapIsRecordedEvenIfTheLinkIsUpAgain ) {
   seen( "et1", LinkSeen::down ); // the kernel has it up again
   EXPECT_EQ( controller.history().size(), 1u );
}

TEST_F( SetDownOutsideTest, AShutdownByValendIsNotOutside ) {
   shutdown( "Ethernet1" );
   advance( 500ms );
   seen( "et1", LinkSeen::down );
   EXPECT_EQ( controller.history().size(), 1u );
   EXPECT_EQ( last().ending, Ending::down );
   EXPECT_FALSE( withoutGoodbye() );
}

// A report may be older than what valend did since.
TEST_F( SetDownOutsideTest, ALateReportOfValendsOwnChangeIsNotOutside ) {
   shutdown( "Ethernet1" );
   advance( 500ms );
   seen( "et1", LinkSeen::up ); // of before the shutdown
   EXPECT_EQ( enable( "Ethernet1" ), "up" );
   seen( "et1", LinkSeen::down ); // of before the enabling
   seen( "et1", LinkSeen::up );
   EXPECT_EQ( controller.history().size(), 1u );
   EXPECT_FALSE( withoutGoodbye() );
   setOutside( LinkSeen::down );
   EXPECT_TRUE( withoutGoodbye() ) << "a real change is recorded, however soon";
}

// The kernel reports a link as down before it deletes or moves the device, and other programs set one down for a
// moment to change it. Only at the end of the delay is it known.
TEST_F( SetDownOutsideTest, AHeldShutdownGoesOnToItsDeadline ) {
   shutdown( "Ethernet1" );
   advance( 120ms );
   setOutside( LinkSeen::down );
   EXPECT_EQ( controller.remaining( "Ethernet1" ), 380ms );
   advance( 1000ms );
   EXPECT_EQ( last().ending, Ending::down );
   EXPECT_EQ( last().why, "link set down outside valend 120 ms into the delay" );
   EXPECT_EQ( last().held, 500ms );
   EXPECT_EQ( last().sent, 2u );
   EXPECT_FALSE( withoutGoodbye() ) << "its goodbye frames were sent";
   EXPECT_THAT( kernel.actions, IsEmpty() );
   EXPECT_EQ( controller.history().size(), 1u );
}

TEST_F( SetDownOutsideTest, ALinkThatIsUpAgainIsSetDownAtTheEndOfItsDelay ) {
   shutdown( "Ethernet1" );
   advance( 120ms );
   setOutside( LinkSeen::down );
   setOutside( LinkSeen::up );
   advance( 100ms );
   setOutside( LinkSeen::down ); // and once more
   setOutside( LinkSeen::up );
   advance( 279ms );
   EXPECT_THAT( kernel.actions, IsEmpty() );
   advance( 1ms );
   EXPECT_THAT( kernel.actions, ElementsAre( "down default/et1" ) );
   EXPECT_EQ( last().ending, Ending::down );
   EXPECT_EQ( last().why, "link went down 120 ms into the delay and came up again" );
   EXPECT_EQ( controller.history().size(), 1u );
}

// The kernel's reports, in their order, of a device that moves to another namespace and comes back.
TEST_F( SetDownOutsideTest, ADeviceThatIsRecreatedWhileItIsHeldIsSetDownAtTheEnd ) {
   shutdown( "Ethernet1" );
   advance( 120ms );
   setOutside( LinkSeen::down );
   kernel.deviceDel( "default", "et1" );
   seen( "et1", LinkSeen::gone );
   advance( 100ms );
   kernel.deviceIs( "default", "et1", 9 );
   seen( "et1", LinkSeen::up );
   advance( 279ms );
   EXPECT_THAT( kernel.actions, IsEmpty() );
   advance( 1ms );
   EXPECT_THAT( kernel.actions, ElementsAre( "down default/et1" ) );
   EXPECT_EQ( last().ending, Ending::down );
   EXPECT_EQ( last().why, "readiness lost 120 ms into the delay; link went down 120 ms into the "
                          "delay and came up again" );
}

TEST_F( SetDownOutsideTest, ADeviceThatDoesNotComeBackEndsTheShutdownAfterItsDelay ) {
   shutdown( "Ethernet1" );
   advance( 120ms );
   setOutside( LinkSeen::down );
   kernel.deviceDel( "default", "et1" );
   seen( "et1", LinkSeen::gone );
   advance( 380ms );
   EXPECT_TRUE( controller.running( "Ethernet1" ) );
   advance( ShutdownLink::downTimeout + 10ms );
   EXPECT_EQ( last().ending, Ending::noDevice );
   EXPECT_EQ( last().why, "readiness lost 120 ms into the delay; no device et1" );
}

// The answer to the operator must be true.
TEST_F( SetDownOutsideTest, EnablingAHeldShutdownWhoseLinkIsDownSetsItUp ) {
   shutdown( "Ethernet1" );
   advance( 120ms );
   setOutside( LinkSeen::down );
   EXPECT_EQ( enable( "Ethernet1" ), "up" );
   EXPECT_THAT( kernel.actions, ElementsAre( "up default/et1" ) );
   EXPECT_EQ( last().ending, Ending::aborted );
   EXPECT_EQ( last().why, "enabled after 120 ms; link was down, and set up again" );
}

TEST_F( SetDownOutsideTest, AShutdownWhoseFramesLeaveTheSocketContinues ) {
   kernel.outstanding = 100;
   shutdown( "Ethernet1" );
   advance( 510ms );
   setOutside( LinkSeen::down );
   EXPECT_TRUE( controller.running( "Ethernet1" ) );
   advance( 300ms );
   EXPECT_EQ( last().ending, Ending::down );
   EXPECT_EQ( last().why, "link set down outside valend 510 ms into the delay" );
}

TEST_F( SetDownOutsideTest, ADeviceThatGoesOrIsNotAnInterfaceIsIgnored ) {
   seen( "et1", LinkSeen::gone );
   seen( "et1", LinkSeen::down ); // another device of that name, never up
   seen( "eth0", LinkSeen::up );
   seen( "eth0", LinkSeen::down );
   EXPECT_THAT( controller.history(), IsEmpty() );
}

TEST_F( SetDownOutsideTest, ItIsInTheJournal ) {
   setOutside( LinkSeen::down );
   EXPECT_NE( files.content( "shutdowns" ).find( "\"ending\":\"went-down\"" ), std::string::npos );
}

} // namespace
} // namespace Valend
