// Shutdowns of a previous run that wait until their interfaces and devices are known.
#include "tests/valend/shutdown/ResumeFixture.h"

namespace Valend {
namespace {

using namespace Test;

class ResumeWaitTest : public ResumeFixture {};

// After a start it takes a moment until the devices are known.
TEST_F( ResumeWaitTest, AnInterfaceThatIsNotReadyIsWaitedFor ) {
   crash( 100ms );
   keepLines( 1 );
   DaemonRun run( directory, 200ms );
   run.kernel.netNsIs( "ns-red", "1:2" );
   run.feeder.apply( DaemonRun::twoInterfaces() );
   run.libraryStart();
   run.controller.resume( recover( run.journal ) );
   run.advance( 1000ms );
   EXPECT_TRUE( run.controller.running( "Ethernet1" ) );
   run.kernel.deviceIs( "default", "et1", 7 );
   run.advance( 10ms );
   EXPECT_THAT( run.sentFrames(), ElementsAre( "default/7:a", "default/7:b" ) );
   run.advance( 500ms );
   EXPECT_THAT( run.kernel.actions, ElementsAre( "down default/et1" ) );
}

TEST_F( ResumeWaitTest, ADeviceThatStaysMissingEndsTheShutdown ) {
   for ( std::size_t const lines : { 1, 5 } ) {
      crashAfterLine( lines );
      DaemonRun run( directory, 700ms );
      run.feeder.apply( DaemonRun::twoInterfaces() );
      run.libraryStart();
      run.controller.resume( recover( run.journal ) );
      run.advance( Shutdown::readyTimeout + 20ms );
      ASSERT_EQ( run.controller.history().size(), 1u );
      EXPECT_EQ( run.last().ending, Ending::noDevice );
      EXPECT_EQ( run.last().why, "no device et1" );
   }
}

TEST_F( ResumeWaitTest, AnInterfaceThatStaysUnreadyGoesDownAndTheRecordSaysWhy ) {
   crash( 0ms );
   keepLines( 1 );
   auto config = DaemonRun::twoInterfaces();
   config.agents.clear();
   DaemonRun run( directory, 200ms );
   run.startAndResume( config );
   run.advance( Shutdown::readyTimeout + 10ms );
   EXPECT_THAT( run.kernel.actions, ElementsAre( "down default/et1" ) );
   EXPECT_EQ( run.last().why, "no frames sent after the restart: interface not ready" );
}

TEST_F( ResumeWaitTest, AnInterfaceThatCannotBecomeReadyGoesDownAtOnce ) {
   crash( 0ms );
   keepLines( 1 );
   DaemonRun run( directory, 200ms );
   run.startAndResume( Settings::Config() );
   run.advance( 10ms );
   EXPECT_THAT( run.kernel.actions, ElementsAre( "down default/et1" ) );
   EXPECT_EQ( run.last().why, "no frames sent after the restart: delay disabled" );
}

} // namespace
} // namespace Valend
