// Shutdowns of a previous run whose links stay up: they are too old, or the link was set up since.
#include "tests/valend/shutdown/ResumeFixture.h"

namespace Valend {
namespace {

using namespace Test;

class ResumeExpiryTest : public ResumeFixture {};

TEST_F( ResumeExpiryTest, AfterALongStopNothingIsSetDown ) {
   for ( std::size_t lines = 1; lines < wholeLines; ++lines ) {
      SCOPED_TRACE( "crash after line " + std::to_string( lines ) );
      crashAfterLine( lines );
      DaemonRun run( directory, 11'000ms );
      std::vector< std::string > logged;
      run.controller.endedIs(
         [ & ]( auto const & record ) { logged.push_back( record.summary() ); } );
      run.startAndResume();
      EXPECT_FALSE( run.controller.running( "Ethernet1" ) );
      run.advance( 3000ms );
      EXPECT_THAT( run.kernel.actions, IsEmpty() );
      EXPECT_THAT( run.sentFrames(), IsEmpty() );
      ASSERT_EQ( run.controller.history().size(), 1u );
      EXPECT_EQ( run.last().ending, Ending::expired );
      EXPECT_THAT( logged,
                   ElementsAre( HasSubstr( "expired; link left unchanged (valend started 1" ) ) );
      EXPECT_EQ( run.controller.statistics().endings().at( Ending::expired ), 1u );
   }
}

// It was set up on purpose.
TEST_F( ResumeExpiryTest, ALinkThatWasSetUpMeanwhileStaysUp ) {
   for ( std::size_t lines = 1; lines < wholeLines; ++lines ) {
      SCOPED_TRACE( "crash after line " + std::to_string( lines ) );
      crashAfterLine( lines );
      DaemonRun run( directory, 700ms );
      run.start( DaemonRun::twoInterfaces() );
      ++run.kernel.at( "default", "et1" ).carrierUps;
      run.controller.resume( recover( run.journal ) );
      run.advance( 3000ms );
      EXPECT_THAT( run.kernel.actions, IsEmpty() );
      EXPECT_THAT( run.sentFrames(), IsEmpty() );
      ASSERT_EQ( run.controller.history().size(), 1u );
      EXPECT_EQ( run.last().ending, Ending::expired );
      EXPECT_THAT( run.last().why, HasSubstr( "link set up since valend stopped" ) );
      EXPECT_FALSE( run.controller.running( "Ethernet1" ) );
   }
}

TEST_F( ResumeExpiryTest, AHeldLinkIsLookedAtWhenItsDeviceIsFirstSeen ) {
   crash( 100ms );
   DaemonRun run( directory, 200ms );
   run.feeder.apply( DaemonRun::twoInterfaces() );
   run.libraryStart();
   run.controller.resume( recover( run.journal ) );
   run.advance( 50ms );
   EXPECT_TRUE( run.controller.running( "Ethernet1" ) );
   run.kernel.deviceIs( "default", "et1", 8 ); // it had index 7
   run.controller.linkSeen( { "default", "et1" }, LinkSeen::up );
   run.turn();
   EXPECT_FALSE( run.controller.running( "Ethernet1" ) );
   EXPECT_EQ( run.last().ending, Ending::expired );
   EXPECT_THAT( run.last().why, HasSubstr( "device recreated since valend stopped" ) );
   run.advance( 1000ms );
   EXPECT_THAT( run.kernel.actions, IsEmpty() );
}

// That is no news: valend was there to see it.
TEST_F( ResumeExpiryTest, ACarrierThatComesAndGoesAfterTheRestartChangesNothing ) {
   crash( 100ms );
   DaemonRun run( directory, 200ms );
   run.startAndResume();
   ++run.kernel.at( "default", "et1" ).carrierUps;
   run.controller.linkSeen( { "default", "et1" }, LinkSeen::up );
   run.advance( 300ms );
   EXPECT_THAT( run.kernel.actions, ElementsAre( "down default/et1" ) );
}

} // namespace
} // namespace Valend
