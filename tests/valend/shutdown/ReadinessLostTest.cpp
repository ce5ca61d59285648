// What the library, the device or the configuration does during the delay, and when the link goes down then.
#include "tests/valend/shutdown/ShutdownFixture.h"

namespace Valend {
namespace {

using namespace Test;

class ReadinessLostTest : public ShutdownFixture {};

TEST_F( ReadinessLostTest, ADelayThatTheLibraryDoesNotEndTimesOut ) {
   shutdown( "Ethernet1" );
   auto const status = store.statusDir->intfStatus( "Ethernet1" );
   advance( 499ms );
   // `delayed` is raised again as soon as the library clears it.
   clock.advance( 1ms );
   status->delayedIs( true );
   turn();
   advance( ShutdownHold::margin - 1ms );
   EXPECT_THAT( kernel.actions, IsEmpty() );
   advance( 1ms );
   EXPECT_THAT( kernel.actions, ElementsAre( "down default/et1" ) );
   EXPECT_EQ( last().why, "the delay did not end in time" );
}

TEST_F( ReadinessLostTest, AVrfThatFlapsDoesNotEndTheDelay ) {
   shutdown( "Ethernet2" );
   advance( 100ms );
   feeder.namespaceChanged( "ns-red" );
   ASSERT_FALSE( delayed( "Ethernet2" ) );
   advance( 399ms );
   EXPECT_THAT( kernel.actions, IsEmpty() );
   advance( 1ms );
   EXPECT_THAT( kernel.actions, ElementsAre( "down ns-red/et2" ) );
   EXPECT_EQ( last().why, "readiness lost 100 ms into the delay" );
   EXPECT_THAT( sentFrames(), ElementsAre( "ns-red/7:c" ) ) << "no frame is sent twice";
}

TEST_F( ReadinessLostTest, ARecreatedDeviceIsHeldUntilTheDeadline ) {
   shutdown( "Ethernet1" );
   advance( 100ms );
   kernel.deviceDel( "default", "et1" );
   advance( 100ms );
   kernel.deviceIs( "default", "et1", 8 );
   advance( 299ms );
   EXPECT_THAT( kernel.actions, IsEmpty() );
   advance( 1ms );
   EXPECT_THAT( kernel.actions, ElementsAre( "down default/et1" ) );
}

TEST_F( ReadinessLostTest, ADeviceThatIsGoneForGoodEndsTheShutdown ) {
   shutdown( "Ethernet1" );
   advance( 100ms );
   kernel.deviceDel( "default", "et1" );
   advance( 400ms + ShutdownLink::downTimeout + 10ms );
   EXPECT_EQ( last().ending, Ending::noDevice );
   EXPECT_EQ( last().why, "readiness lost 100 ms into the delay; no device et1" );
   EXPECT_FALSE( controller.running( "Ethernet1" ) );
}

TEST_F( ReadinessLostTest, ADeviceRecreatedAtTheEndIsWaitedFor ) {
   shutdown( "Ethernet1" );
   advance( 490ms );
   kernel.deviceDel( "default", "et1" );
   advance( 50ms );
   EXPECT_TRUE( controller.running( "Ethernet1" ) );
   kernel.deviceIs( "default", "et1", 9 );
   advance( 20ms );
   EXPECT_THAT( kernel.actions, ElementsAre( "down default/et1" ) );
}

TEST_F( ReadinessLostTest, DisablingTheDelayEndsIt ) {
   shutdown( "Ethernet1" );
   advance( 100ms );
   auto off = twoInterfaces();
   off.shutdownDelayMs.reset();
   feeder.apply( off );
   turn();
   EXPECT_THAT( kernel.actions, ElementsAre( "down default/et1" ) );
   EXPECT_EQ( last().why, "readiness lost 100 ms into the delay: delay disabled" );
   EXPECT_EQ( last().held, 100ms );
}

TEST_F( ReadinessLostTest, DisablingTheDelayOfTheInterfaceEndsIt ) {
   shutdown( "Ethernet1" );
   advance( 100ms );
   auto config = twoInterfaces();
   config.interfaces.at( "Ethernet1" ).shutdownDelay = false;
   feeder.apply( config );
   turn();
   EXPECT_THAT( kernel.actions, ElementsAre( "down default/et1" ) );
   EXPECT_EQ( last().why,
              "readiness lost 100 ms into the delay: delay disabled for this interface" );
}

TEST_F( ReadinessLostTest, DisablingTheDelayEndsItEvenAfterReadinessWasLost ) {
   shutdown( "Ethernet2" );
   advance( 100ms );
   feeder.namespaceChanged( "ns-red" );
   advance( 100ms );
   auto off = twoInterfaces();
   off.shutdownDelayMs.reset();
   feeder.apply( off );
   turn();
   EXPECT_THAT( kernel.actions, ElementsAre( "down ns-red/et2" ) );
   EXPECT_EQ( last().why, "readiness lost 100 ms into the delay; delay disabled" );
   EXPECT_EQ( last().held, 200ms );
}

TEST_F( ReadinessLostTest, ADelayThatTheLibraryDoesNotStartIsNotWaitedFor ) {
   controller.shutdown( "Ethernet1", { "root" }, [ this ]( auto step, auto const & ) {
      if ( step == ShutdownStep::sent ) {
         store.statusDir->intfStatus( "Ethernet1" )->delayedIs( false );
      }
   } );
   turn();
   EXPECT_THAT( kernel.actions, ElementsAre( "down default/et1" ) );
   EXPECT_EQ( last().why, "the library did not start the delay" );
}

TEST_F( ReadinessLostTest, AnInterfaceRemovedFromTheConfigurationStillGoesDown ) {
   shutdown( "Ethernet1" );
   advance( 100ms );
   feeder.apply( Settings::Config() );
   turn();
   EXPECT_THAT( kernel.actions, ElementsAre( "down default/et1" ) );
   EXPECT_THAT( last().why, ::testing::StartsWith( "readiness lost 100 ms into the delay" ) );
}

TEST_F( ReadinessLostTest, ALinkWhoseStateIsUnknownGoesDown ) {
   kernel.upErrno = ETIMEDOUT;
   shutdown( "Ethernet1" );
   advance( 500ms );
   EXPECT_THAT( steps, ElementsAre( "sent", "delayed", "down" ) );
   EXPECT_EQ( last().why, "the kernel said 110" );
}

} // namespace
} // namespace Valend
