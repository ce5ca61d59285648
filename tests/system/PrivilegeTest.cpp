// valend without the privileges that it needs.
#include "tests/system/RunningDaemon.h"

#include <gmock/gmock.h>

namespace Valen::Test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class PrivilegeTest : public RunningDaemonTest {
 protected:
   // Starts valend with the capability removed from what it can get, such as "-net_admin".
   void startWithout( std::string const & capability ) {
      launcher_ = { "/usr/bin/setpriv", "--bounding-set", capability };
      start( config( 300 ) );
   }
};

TEST_F( PrivilegeTest, WithoutNetAdminNoInterfaceIsReadyAndNothingSaysGoodbye ) {
   startWithout( "-net_admin" );
   auto const why = "up or down; grant CAP_NET_ADMIN (AmbientCapabilities= of the unit)";
   for ( std::string const name : { "Ethernet1", "Ethernet2" } ) {
      EXPECT_TRUE( eventually( [ & ] { return interface( name ).contains( "notReady" ); } ) );
      EXPECT_EQ( interface( name )[ "ready" ], false );
      EXPECT_THAT( interface( name )[ "notReady" ].dump(), HasSubstr( why ) );
      EXPECT_THAT( ctl( { "explain", name } ).out, HasSubstr( why ) );
   }
   EXPECT_THAT( ctl( { "status" } ).out,
                AllOf( HasSubstr( "\ncapabilities " ), HasSubstr( "missing CAP_NET_ADMIN:" ),
                       HasSubstr( "\nvrf/default " ), HasSubstr( "\nvrf/red " ) ) );
   EXPECT_TRUE( logged( "valend: capabilities: missing CAP_NET_ADMIN: " ) ) << daemon_->err();

   Capture far1( *neighbors_, "far1" );
   Capture far2( *neighbors_, "far2" );
   auto const waited = ctl( { "shutdown", "Ethernet1", "Ethernet2", "--wait" } );
   EXPECT_EQ( waited.status, 1 );
   EXPECT_THAT( waited.out + waited.err, HasSubstr( "valend goes on trying" ) );
   EXPECT_TRUE( linkUp( *machine_, "et1" ) );
   EXPECT_THAT( far1.frames( 1, std::chrono::milliseconds( 300 ) ), IsEmpty() );
   EXPECT_THAT( far2.frames( 1, std::chrono::milliseconds( 10 ) ), IsEmpty() );
   EXPECT_THAT( interface( "Ethernet1" ).value( "retrying", "" ),
                HasSubstr( "Operation not permitted" ) );
}

TEST_F( PrivilegeTest, OtherMissingCapabilitiesAreNamed ) {
   startWithout( "-net_raw,-sys_admin" );
   EXPECT_THAT( ctl( { "status" } ).out, HasSubstr( "missing CAP_NET_RAW, CAP_SYS_ADMIN: " ) );
   EXPECT_TRUE( eventually( [ & ] { return interface( "Ethernet1" ).contains( "notReady" ); } ) );
   EXPECT_THAT( interface( "Ethernet1" )[ "notReady" ].dump(), HasSubstr( "CAP_NET_RAW" ) );
   EXPECT_THAT( interface( "Ethernet2" )[ "notReady" ].dump(), HasSubstr( "CAP_SYS_ADMIN" ) );
}

TEST_F( PrivilegeTest, NothingIsSaidWithAllOfThem ) {
   start( config( 300 ) );
   EXPECT_TRUE( becomesReady( "Ethernet1" ) );
   EXPECT_THAT( daemon_->err(), ::testing::Not( HasSubstr( "capabilities" ) ) );
}

} // namespace
} // namespace Valen::Test
