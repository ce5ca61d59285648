// Links that are set down outside valend: how they are distinguished from valend's own changes, and recorded.
#include "tests/support/WorkDirectory.h"
#include "tests/valend/DaemonFixture.h"

namespace Valend {
namespace {

using namespace Test;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using Ending = ShutdownRecord::Ending;

class SetDownOutsideTest : public DaemonFixture {
 protected:
   SetDownOutsideTest() : DaemonFixture( stateDirectory() ) {
      start( twoInterfaces() );
      controller.resume( recover( journal ) );
      seen( "et1", true );
   }
   static Valen::Test::WorkDirectory const & work() {
      static Valen::Test::WorkDirectory const directory;
      return directory;
   }
   static std::string stateDirectory() {
      work().remove( "shutdowns" );
      return work() / "";
   }
   // The kernel reports a device of the default namespace.
   void seen( std::string const & device, std::optional< bool > up ) {
      controller.linkSeen( { "default", device }, up );
      turn();
   }
   void setOutside( bool up ) {
      kernel.at( "default", "et1" ).up = up;
      seen( "et1", up );
   }
   void shutdown() {
      controller.shutdown( "Ethernet1", "root", nullptr );
      turn();
   }
   bool withoutGoodbye() const { return controller.downWithoutGoodbye( { "default", "et1" } ); }
   ShutdownRecord const & last() const { return controller.history().back(); }
};

TEST_F( SetDownOutsideTest, ALinkSetDownOutsideIsRecordedAndShown ) {
   std::vector< std::string > lines;
   controller.endedIs( [ & ]( auto const & record ) { lines.push_back( record.summary() ); } );
   setOutside( false );
   EXPECT_THAT( lines, ElementsAre( "Ethernet1: link set down outside valend; no goodbye frames "
                                    "sent" ) );
   EXPECT_EQ( last().ending, Ending::wentDown );
   EXPECT_STREQ( last().endingText(), "went-down" );
   EXPECT_EQ( last().by, "outside valend" );
   EXPECT_EQ( last().why, "link set down outside valend" );
   EXPECT_TRUE( withoutGoodbye() );
   EXPECT_EQ( controller.totals( "Ethernet1" ).wentDown, 1u );
   EXPECT_EQ( controller.totals( "Ethernet1" ).shutdowns, 0u );
   EXPECT_THAT( sentFrames(), IsEmpty() );
   setOutside( true );
   EXPECT_FALSE( withoutGoodbye() );
   EXPECT_EQ( controller.history().size(), 1u );
   setOutside( false );
   EXPECT_EQ( controller.history().size(), 2u );
}

TEST_F( SetDownOutsideTest, AFlapIsRecordedEvenIfTheLinkIsUpAgain ) {
   seen( "et1", false ); // the kernel has it up again
   EXPECT_EQ( controller.history().size(), 1u );
}

TEST_F( SetDownOutsideTest, AShutdownByValendIsNotOutside ) {
   shutdown();
   advance( 500ms );
   seen( "et1", false );
   EXPECT_EQ( controller.history().size(), 1u );
   EXPECT_EQ( last().ending, Ending::down );
   EXPECT_FALSE( withoutGoodbye() );
}

// A report may be older than what valend did since.
TEST_F( SetDownOutsideTest, ALateReportOfValendsOwnChangeIsNotOutside ) {
   shutdown();
   advance( 500ms );
   seen( "et1", true ); // of before the shutdown
   EXPECT_EQ( controller.enable( "Ethernet1", "root" ), LinkController::Enabled::up );
   seen( "et1", false ); // of before the enabling
   seen( "et1", true );
   EXPECT_EQ( controller.history().size(), 1u );
   EXPECT_FALSE( withoutGoodbye() );
   setOutside( false );
   EXPECT_TRUE( withoutGoodbye() ) << "a real change is recorded, however soon";
}

TEST_F( SetDownOutsideTest, AHeldShutdownEndsAndItsRecordSaysWhy ) {
   shutdown();
   advance( 120ms );
   setOutside( false );
   EXPECT_FALSE( controller.running( "Ethernet1" ) );
   EXPECT_EQ( last().ending, Ending::down );
   EXPECT_EQ( last().why, "link set down outside valend 120 ms into the delay" );
   EXPECT_EQ( last().held, 120ms );
   EXPECT_EQ( last().sent, 2u );
   EXPECT_FALSE( withoutGoodbye() ) << "its goodbye frames were sent";
   advance( 1000ms );
   EXPECT_THAT( kernel.actions, IsEmpty() );
   EXPECT_EQ( controller.history().size(), 1u );
}

TEST_F( SetDownOutsideTest, AShutdownWhoseFramesLeaveTheSocketContinues ) {
   kernel.outstanding = 100;
   shutdown();
   advance( 510ms );
   setOutside( false );
   EXPECT_TRUE( controller.running( "Ethernet1" ) );
   advance( 300ms );
   EXPECT_EQ( last().ending, Ending::down );
   EXPECT_EQ( last().why, "link set down outside valend 510 ms into the delay" );
}

TEST_F( SetDownOutsideTest, ADeviceThatGoesOrIsNotAnInterfaceIsIgnored ) {
   seen( "et1", std::nullopt );
   seen( "et1", false ); // another device of that name, never up
   seen( "eth0", true );
   seen( "eth0", false );
   EXPECT_THAT( controller.history(), IsEmpty() );
}

TEST_F( SetDownOutsideTest, ItIsInTheJournal ) {
   setOutside( false );
   EXPECT_NE( work().content( "shutdowns" ).find( "\"ending\":\"went-down\"" ), std::string::npos );
}

} // namespace
} // namespace Valend
