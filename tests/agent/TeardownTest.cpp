#include "tests/agent/AgentStore.h"
#include "tests/support/LeakCheck.h"
#include "tests/support/RecordingRawTxPam.h"
#include "tests/support/SteppedClock.h"

#include <gmock/gmock.h>

namespace Valen {
namespace {

using Test::AgentStore;
using Test::LeakCheck;
using Test::RecordingRawTxPams;
using Test::SteppedClock;

// Live objects by type, the empty types left out.
std::map< std::string, U64 > liveByType() {
   std::map< std::string, U64 > live;
   for ( auto const * type : Quill::allocationTypes() ) {
      if ( type->live ) {
         live[ type->name ] = type->live;
      }
   }
   return live;
}

// Ten VRFs of ten interfaces each, the default VRF among them, two agents, everything ready.
class TeardownTest : public ::testing::Test {
 protected:
   static constexpr U32 vrfs = 10;
   static constexpr U32 intfsPerVrf = 10;

   TeardownTest() {
      for ( U32 v = 0; v < vrfs; ++v ) {
         auto const vrf = v ? "vrf" + std::to_string( v ) : "default";
         auto const netNs = v ? "ns-" + vrf : "default";
         if ( v ) {
            store.vrfStatusIs( vrf, netNs );
         }
         for ( U32 i = 1; i <= intfsPerVrf; ++i ) {
            addIntf( "Ethernet" + std::to_string( v * intfsPerVrf + i ), vrf, netNs, i );
         }
      }
      sm = store.newRunnabilitySm();
   }

   void addIntf( std::string const & intfId, std::string const & vrf, std::string const & netNs,
                 U32 ifIndex ) {
      store.kernel.deviceIs( netNs, intfId, ifIndex );
      store.l3StatusIs( intfId, vrf );
      configs.push_back( store.intfConfigIs( intfId ) );
      store.messageIs( "lacp", intfId, { "bye" } );
      store.messageIs( "lldp", intfId, { "gone", "really" } );
   }

   LeakCheck leakCheck;
   SteppedClock clock;
   RecordingRawTxPams pams;
   AgentStore store;
   std::vector< Quill::Ptr< Interface::IntfConfig > > configs;
   Quill::Ptr< RunnabilitySm > sm;
};

TEST_F( TeardownTest, TenCyclesOfTheFeatureLeaveNothingBehind ) {
   // The first cycle mounts the kernel's namespaces, which stay with their watchers.
   store.globalConfigIs( 1000 );
   store.globalConfigDel();
   Corvid::globalPktManager().trim();
   auto const off = liveByType();
   std::map< std::string, U64 > on;
   for ( int cycle = 0; cycle < 10; ++cycle ) {
      store.globalConfigIs( 1000 );
      EXPECT_EQ( store.statusDir->intfStatuss(), vrfs * intfsPerVrf );
      EXPECT_EQ( pams.live, vrfs );
      if ( on.empty() ) {
         on = liveByType();
      }
      EXPECT_EQ( liveByType(), on );

      store.globalConfigDel();
      EXPECT_EQ( store.statusDir->intfStatuss(), 0u );
      EXPECT_EQ( pams.live, 0u );
      EXPECT_EQ( store.entityManager->mounts(), 0u );
      EXPECT_EQ( store.allIntf->intfs(), 0u );
      EXPECT_EQ( store.allIntf->intfMessages(), 0u );
      EXPECT_EQ( store.allVrf->vrfs(), 0u );
      EXPECT_EQ( store.allVrf->vrfL3Intfs(), 0u );
      EXPECT_EQ( liveByType(), off );
   }
   EXPECT_GT( on.at( "Valen::IntfIoSm" ), 0u );
}

TEST_F( TeardownTest, SwitchedOffInMidDelayItLeavesNothingBehindEither ) {
   store.globalConfigIs( 1000 );
   store.globalConfigDel();
   auto const off = liveByType();
   for ( int cycle = 0; cycle < 10; ++cycle ) {
      store.globalConfigIs( 1000 );
      for ( auto const & config : configs ) {
         config->adminShutdownDelayedIs( true );
      }
      EXPECT_EQ( clock.scheduler()->armedTasks(), vrfs * intfsPerVrf );
      EXPECT_EQ( pams.packets.size(), 3u * vrfs * intfsPerVrf );
      pams.packets.clear();
      pams.bursts.clear();

      store.globalConfigDel();
      EXPECT_EQ( clock.scheduler()->armedTasks(), 0u );
      EXPECT_EQ( store.statusDir->intfStatuss(), 0u );
      Corvid::globalPktManager().trim();
      EXPECT_EQ( liveByType(), off );
      for ( auto const & config : configs ) {
         config->adminShutdownDelayedIs( false );
      }
   }
}

TEST_F( TeardownTest, TheEndOfTheLibraryWhileItRunsIsAnEndToo ) {
   store.globalConfigIs( 1000 );
   store.globalConfigDel();
   sm = nullptr;
   auto const off = liveByType();
   store.globalConfigIs( 1000 );
   for ( int cycle = 0; cycle < 10; ++cycle ) {
      store.statusDir->agentActiveIs( false );
      sm = store.newRunnabilitySm();
      EXPECT_EQ( store.statusDir->intfStatuss(), vrfs * intfsPerVrf );
      sm = nullptr;
      EXPECT_EQ( store.statusDir->intfStatuss(), 0u );
   }
   store.globalConfigDel();
   EXPECT_EQ( liveByType(), off );
}

} // namespace
} // namespace Valen
