// Links that somebody else sets down: how they are heard of, and what is made of it.
#include "valend/kernel/LinkWatch.h"

#include "tests/support/WorkDirectory.h"
#include "tests/valend/DaemonFixture.h"

#include <net/if.h>

namespace Valend {
namespace {

using namespace Test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Ending = ShutdownRecord::Ending;

// --- Hearing -------------------------------------------------------------------------------------

class LinkWatchTest : public ::testing::Test {
 protected:
   LinkWatchTest() {
      watch.seenIs( [ this ]( auto const & place, auto up ) {
         seen.push_back( place.netNs + "/" + place.device +
                         ( !up   ? " gone"
                           : *up ? " up"
                                 : " down" ) );
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

// --- What is made of it --------------------------------------------------------------------------

class WentDownTest : public DaemonFixture {
 protected:
   WentDownTest() : DaemonFixture( stateFolder() ) {
      start( twoInterfaces() );
      controller.resume( journal.read() );
      seen( "et1", true );
   }
   static WorkDirectory const & work() {
      static WorkDirectory const folder;
      return folder;
   }
   static std::string stateFolder() {
      work().remove( "shutdowns" );
      return work() / "";
   }
   // The kernel tells of a device of the default namespace; what it said is so by now.
   void seen( std::string const & device, std::optional< bool > up ) {
      controller.linkSeen( { "default", device }, up );
      turn();
   }
   void somebodySets( bool up ) {
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

TEST_F( WentDownTest, ALinkThatSomebodyElseSetsDownIsRecordedAndShown ) {
   std::vector< std::string > lines;
   controller.endedIs( [ & ]( auto const & record ) { lines.push_back( record.summary() ); } );
   somebodySets( false );
   EXPECT_THAT( lines, ElementsAre( "Ethernet1: went down without goodbye: somebody else set the "
                                    "link down" ) );
   EXPECT_EQ( last().ending, Ending::wentDown );
   EXPECT_STREQ( last().endingText(), "went-down" );
   EXPECT_TRUE( withoutGoodbye() );
   EXPECT_EQ( controller.totals( "Ethernet1" ).wentDown, 1u );
   EXPECT_EQ( controller.totals( "Ethernet1" ).shutdowns, 0u );
   EXPECT_THAT( sentFrames(), IsEmpty() );
   somebodySets( true );
   EXPECT_FALSE( withoutGoodbye() );
   EXPECT_EQ( controller.history().size(), 1u );
   somebodySets( false );
   EXPECT_EQ( controller.history().size(), 2u );
}

TEST_F( WentDownTest, AFlapIsRecordedAlthoughTheLinkIsUpAgain ) {
   seen( "et1", false ); // the kernel has it up by now
   EXPECT_EQ( controller.history().size(), 1u );
}

TEST_F( WentDownTest, TheAgentsOwnShutdownIsNone ) {
   shutdown();
   advance( 500ms );
   seen( "et1", false );
   EXPECT_EQ( controller.history().size(), 1u );
   EXPECT_EQ( last().ending, Ending::down );
   EXPECT_FALSE( withoutGoodbye() );
}

// What is heard may be older than what was done since.
TEST_F( WentDownTest, LateWordOfTheAgentsOwnDoingIsNone ) {
   shutdown();
   advance( 500ms );
   seen( "et1", true ); // of before the shutdown
   EXPECT_EQ( controller.enable( "Ethernet1", "root" ), LinkController::Enabled::up );
   seen( "et1", false ); // of before the enabling
   seen( "et1", true );
   EXPECT_EQ( controller.history().size(), 1u );
   EXPECT_FALSE( withoutGoodbye() );
   somebodySets( false );
   EXPECT_TRUE( withoutGoodbye() ) << "but a real one, however soon, is";
}

TEST_F( WentDownTest, AHeldShutdownEndsAndItsRecordSaysWhy ) {
   shutdown();
   advance( 120ms );
   somebodySets( false );
   EXPECT_FALSE( controller.running( "Ethernet1" ) );
   EXPECT_EQ( last().ending, Ending::down );
   EXPECT_EQ( last().why, "somebody else set the link down 120 ms into the delay" );
   EXPECT_EQ( last().held, 120ms );
   EXPECT_EQ( last().sent, 2u );
   EXPECT_FALSE( withoutGoodbye() ) << "its frames were sent";
   advance( 1000ms );
   EXPECT_THAT( kernel.actions, IsEmpty() );
   EXPECT_EQ( controller.history().size(), 1u );
}

TEST_F( WentDownTest, AShutdownWhoseSocketEmptiesGoesOn ) {
   kernel.outstanding = 100;
   shutdown();
   advance( 510ms );
   somebodySets( false );
   EXPECT_TRUE( controller.running( "Ethernet1" ) );
   advance( 300ms );
   EXPECT_EQ( last().ending, Ending::down );
   EXPECT_EQ( last().why, "somebody else set the link down 510 ms into the delay" );
}

TEST_F( WentDownTest, ADeviceThatGoesOrIsNoInterfacesIsNone ) {
   seen( "et1", std::nullopt );
   seen( "et1", false ); // another device of that name, which was never up
   seen( "eth0", true );
   seen( "eth0", false );
   EXPECT_THAT( controller.history(), IsEmpty() );
}

TEST_F( WentDownTest, ItOutlivesTheAgent ) {
   somebodySets( false );
   EXPECT_NE( work().content( "shutdowns" ).find( "\"ending\":\"went-down\"" ), std::string::npos );
}

} // namespace
} // namespace Valend
