#include "valend/shutdown/InterfaceDelay.h"

#include "tests/valend/DaemonFixture.h"

namespace Valend {
namespace {

using namespace Test;

class InterfaceDelayTest : public DaemonFixture {
 protected:
   InterfaceDelayTest() { start( twoInterfaces() ); }

   InterfaceDelay const delay{ store, "Ethernet1" };
   InterfaceDelay const unknown{ store, "Ethernet9" };
};

TEST_F( InterfaceDelayTest, AnInterfaceIsReadyWhenTheLibraryWouldDelayIt ) {
   EXPECT_TRUE( delay.isReady() );
   EXPECT_EQ( delay.status(), store.statusDir->intfStatus( "Ethernet1" ) );
   EXPECT_FALSE( unknown.isReady() );
   EXPECT_FALSE( unknown.status() );
   kernel.deviceDel( "default", "et1" );
   EXPECT_FALSE( delay.isReady() );
   EXPECT_EQ( delay.whyNever(), "" ) << "the device may come back";
   EXPECT_EQ( delay.whyNotReady(), "interface not ready" );
   EXPECT_EQ( unknown.whyNotReady(), "interface removed from the configuration" );
}

TEST_F( InterfaceDelayTest, TheConfigurationDecidesWhetherItCanBecomeReady ) {
   EXPECT_EQ( delay.whyNever(), "" );
   EXPECT_EQ( unknown.whyNever(), "interface removed from the configuration" );
   auto config = twoInterfaces();
   config.interfaces.at( "Ethernet1" ).shutdownDelay = false;
   feeder.apply( config );
   EXPECT_EQ( delay.whyNever(), "delay disabled for this interface" );
   config.shutdownDelayMs.reset();
   feeder.apply( config );
   EXPECT_EQ( delay.whyNever(), "delay disabled" );
}

TEST_F( InterfaceDelayTest, TheFlagStartsTheDelayAndEndsIt ) {
   delay.raiseFlag();
   EXPECT_TRUE( delayed( "Ethernet1" ) );
   EXPECT_EQ( sentFrames().size(), 2u );
   delay.lowerFlag();
   EXPECT_FALSE( delayed( "Ethernet1" ) );
   unknown.raiseFlag(); // harmless
   unknown.lowerFlag();
}

TEST_F( InterfaceDelayTest, AnotherDelayIsOfThisInterfaceAlone ) {
   InterfaceDelay const other( store, "Ethernet2" );
   delay.raiseFlag( 1200ms );
   other.raiseFlag();
   EXPECT_EQ( store.configDir->globalConfig()->shutdownDelayMs(), 500 );
   advance( 500ms );
   EXPECT_FALSE( delayed( "Ethernet2" ) );
   EXPECT_TRUE( delayed( "Ethernet1" ) );
   advance( 699ms );
   EXPECT_TRUE( delayed( "Ethernet1" ) );
   advance( 1ms );
   EXPECT_FALSE( delayed( "Ethernet1" ) );
   delay.lowerFlag();
   delay.raiseFlag();
   advance( 500ms );
   EXPECT_FALSE( delayed( "Ethernet1" ) ) << "the configured delay again";
}

} // namespace
} // namespace Valend
