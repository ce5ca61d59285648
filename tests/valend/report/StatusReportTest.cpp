#include "valend/report/StatusReport.h"

#include "tests/valend/DaemonFixture.h"

namespace Valend {
namespace {

using namespace Test;

class StatusReportTest : public DaemonFixture {
 protected:
   Json of( std::string const & interface ) const {
      StatusReport const report( store, feeder, kernel, controller );
      return report.interface( feeder.config().interfaces.at( interface ) );
   }
   Json vrfs() const { return StatusReport( store, feeder, kernel, controller ).vrfs(); }
};

TEST_F( StatusReportTest, AReadyInterfaceIsShownWhole ) {
   start( twoInterfaces() );
   EXPECT_EQ( of( "Ethernet2" ),
              ( Json{ { "name", "Ethernet2" },
                      { "device", "et2" },
                      { "vrf", "red" },
                      { "namespace", "ns-red" },
                      { "link", "up" },
                      { "carrier", true },
                      { "ifIndex", 7 },
                      { "mtu", 1500 },
                      { "ready", true },
                      { "notReady", nullptr },
                      { "delayed", false },
                      { "remainingMs", nullptr },
                      { "shuttingDown", false },
                      { "retrying", nullptr },
                      { "frames",
                        { { { "agent", "lldp" }, { "count", 1 }, { "tooLong", Json::array() } } } },
                      { "shutdowns", 0 },
                      { "sent", 0 },
                      { "failed", 0 },
                      { "lastError", nullptr },
                      { "aborts", 0 },
                      { "withoutGoodbye", false } } ) );
}

TEST_F( StatusReportTest, AHeldInterfaceShowsWhatIsLeft ) {
   start( twoInterfaces() );
   controller.shutdown( "Ethernet1", { "root" }, nullptr );
   advance( 100ms );
   auto const status = of( "Ethernet1" );
   EXPECT_EQ( status[ "delayed" ], true );
   EXPECT_EQ( status[ "remainingMs" ], 400 );
   EXPECT_EQ( status[ "shuttingDown" ], true );
   advance( 400ms );
   EXPECT_EQ( of( "Ethernet1" )[ "link" ], "down" );
   EXPECT_EQ( of( "Ethernet1" )[ "shutdowns" ], 1 );
   EXPECT_EQ( of( "Ethernet1" )[ "sent" ], 2 );
}

TEST_F( StatusReportTest, WhyAnInterfaceIsNotReadyIsSaid ) {
   start( twoInterfaces() );
   auto config = twoInterfaces();
   config.shutdownDelayMs.reset();
   feeder.apply( config );
   EXPECT_EQ( of( "Ethernet1" )[ "notReady" ], "delay disabled" );

   config = twoInterfaces();
   config.interfaces.at( "Ethernet1" ).shutdownDelay = false;
   config.agents.at( "lldp" ).erase( "Ethernet2" );
   feeder.apply( config );
   EXPECT_EQ( of( "Ethernet1" )[ "notReady" ], "delay disabled for this interface" );
   EXPECT_EQ( of( "Ethernet2" )[ "notReady" ], "no frames" );

   feeder.apply( twoInterfaces() );
   kernel.deviceDel( "default", "et1" );
   EXPECT_EQ( of( "Ethernet1" )[ "notReady" ], "no device" );
   EXPECT_EQ( of( "Ethernet1" )[ "link" ], "absent" );
   EXPECT_EQ( of( "Ethernet1" )[ "ifIndex" ], nullptr );

   kernel.deviceIs( "default", "et1", 8, "none" );
   EXPECT_EQ( of( "Ethernet1" )[ "notReady" ], "not an Ethernet device (link/none)" );
   EXPECT_EQ( of( "Ethernet1" )[ "ready" ], false );
   EXPECT_EQ( of( "Ethernet1" )[ "link" ], "up" );

   kernel.netNsDel( "ns-red" );
   feeder.namespaceChanged( "ns-red" );
   EXPECT_EQ( of( "Ethernet2" )[ "notReady" ], "namespace missing" );
   kernel.netNsIs( "ns-red", "1:1" );
   feeder.namespaceChanged( "ns-red" );
   EXPECT_EQ( of( "Ethernet2" )[ "notReady" ],
              "namespace \"ns-red\" is already used by VRF \"default\"" );
   EXPECT_EQ( vrfs()[ 1 ][ "error" ], "namespace \"ns-red\" is already used by VRF \"default\"" );
   EXPECT_EQ( vrfs()[ 0 ],
              ( Json{ { "name", "default" }, { "namespace", "default" }, { "error", nullptr } } ) );
}

TEST_F( StatusReportTest, AKernelVrfInPlaceOfANamespaceIsHintedAt ) {
   start( twoInterfaces() );
   kernel.netNsDel( "ns-red" );
   feeder.namespaceChanged( "ns-red" );
   auto const vrfRequirement = [ this ] {
      StatusReport const report( store, feeder, kernel, controller );
      return report.requirements( feeder.config().interfaces.at( "Ethernet2" ) )[ 3 ];
   };
   EXPECT_EQ( vrfRequirement()[ "detail" ], "no namespace ns-red" );
   kernel.deviceIs( "default", "red", 9 );
   EXPECT_EQ(
      vrfRequirement()[ "detail" ],
      "no namespace ns-red; there is a device \"red\": for an interface that is enslaved to "
      "a vrf device, leave out \"vrf\"" );
   EXPECT_EQ( vrfRequirement()[ "met" ], false );
}

TEST_F( StatusReportTest, FramesThatTheDeviceCannotTakeAreFlaggedOnceItIsKnown ) {
   auto config = twoInterfaces();
   config.agents[ "bulk" ][ "Ethernet1" ] = { std::string( 1514, 'x' ), std::string( 1515, 'x' ) };
   start( config );
   EXPECT_EQ(
      of( "Ethernet1" )[ "frames" ][ 0 ],
      ( Json{ { "agent", "bulk" },
              { "count", 2 },
              { "tooLong", { { { "frame", 2 }, { "bytes", 1515 }, { "limit", 1514 } } } } } ) );
   kernel.deviceDel( "default", "et1" );
   EXPECT_EQ( of( "Ethernet1" )[ "frames" ][ 0 ][ "tooLong" ], Json::array() );
}

TEST_F( StatusReportTest, AShutdownIsShownWhole ) {
   ShutdownRecord record;
   record.interface = "Ethernet1";
   record.place = { "ns-red", "et1" };
   record.request = { "root", "alice", "new optics", 700ms };
   record.when = std::chrono::system_clock::time_point( 1234567ms );
   record.withDelay = true;
   record.sent = 3;
   record.failed = 1;
   record.failReason = "Network is down";
   record.agents = { { "lldp", 3, { { 100, 1 } }, { { "lldp", "port eth1" } } } };
   record.sending = 200us;
   record.held = 500ms;
   record.total = 501ms;
   record.muted = { { "lldp", "port et1", 2, false } };
   record.notMuted = "too many";
   record.ending = ShutdownRecord::Ending::down;
   Json const refused{ { "errno", 100 }, { "reason", "Network is down" }, { "count", 1 } };
   EXPECT_EQ( StatusReport::record( record ),
              ( Json{ { "interface", "Ethernet1" },
                      { "device", "et1" },
                      { "namespace", "ns-red" },
                      { "by", "root" },
                      { "login", "alice" },
                      { "requestId", nullptr },
                      { "reason", "new optics" },
                      { "requestedDelayMs", 700 },
                      { "whenMs", 1234567 },
                      { "withDelay", true },
                      { "resumed", false },
                      { "sent", 3 },
                      { "failed", 1 },
                      { "failReason", "Network is down" },
                      { "agents",
                        { { { "agent", "lldp" },
                            { "sent", 3 },
                            { "refused", { refused } },
                            { "goodbyes",
                              { { { "protocol", "lldp" }, { "speaker", "port eth1" } } } } } } },
                      { "sendingUs", 200 },
                      { "heldMs", 500 },
                      { "totalMs", 501 },
                      { "muted",
                        { { { "protocol", "lldp" },
                            { "speaker", "port et1" },
                            { "heldBack", 2 },
                            { "greeted", false } } } },
                      { "notMuted", "too many" },
                      { "unflushedBytes", 0 },
                      { "ending", "down" },
                      { "why", nullptr },
                      { "count", 1 },
                      { "untilMs", nullptr } } ) );
}

} // namespace
} // namespace Valend
