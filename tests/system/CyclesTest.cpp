// The library on the real kernel, through a thousand shutdowns.
#include "agent/RunnabilitySm.h"
#include "linux/KernelNetInfoProvider.h"
#include "linux/PacketEndpoint.h"
#include "tests/linux/TestNetwork.h"

namespace Valen::Test {
namespace {

// One interface in VRF "red", in a namespace that the test makes, with the frames of one agent.
class CyclesTest : public NetworkTest {
 protected:
   void SetUp() override {
      NetworkTest::SetUp();
      if ( IsSkipped() ) {
         return;
      }
      red_.emplace();
      neighbors_.emplace();
      red_->veth( "et1", *neighbors_, "far1" );
      Corvid::rawTxPamProviderIs( &endpoints_ );
      store_->mountProviderIs( Linux::KernelNetInfoProvider::prefix, &devices_ );
      fillStore();
      library_ = runnabilitySmFactory( configDir_, agents_, intfConfigs_, intfStatuses_,
                                       Quill::make< Interface::AllIntfStatusLocalDir >(),
                                       l3Statuses_, vrfStatuses_, store_, statusDir_,
                                       allVrfFactory(), allIntfFactory() );
      ASSERT_TRUE( turnUntil( [ this ] { return statusDir_->intfStatusHas( intfId_ ); } ) );
   }

   void TearDown() override {
      configDir_->globalConfigIs( nullptr );
      library_ = nullptr;
      Corvid::rawTxPamProviderIs( nullptr );
   }

   // Replaces the agent's frames.
   void queue( std::vector< std::string > const & frames ) {
      auto const message = Quill::make< Config::Agent::Message >( intfId_ );
      for ( auto const & frame : frames ) {
         message->messageEnq( frame );
      }
      messages_->messageIs( intfId_, message );
   }
   void shutdown() { intfConfigs_->intfConfig( intfId_ )->adminShutdownDelayedIs( true ); }
   void enable() { intfConfigs_->intfConfig( intfId_ )->adminShutdownDelayedIs( false ); }
   bool delayed() const { return statusDir_->intfStatus( intfId_ )->delayed(); }

   Corvid::IntfId const intfId_{ "Ethernet1" };
   std::optional< TestNetNs > red_;
   std::optional< TestNetNs > neighbors_;
   Quill::Ptr< Config::ConfigDir > const configDir_ = Quill::make< Config::ConfigDir >();

 private:
   void fillStore() {
      auto const globalConfig = Quill::make< Config::GlobalConfig >();
      globalConfig->shutdownDelayMsIs( 60000 );
      configDir_->globalConfigIs( globalConfig );
      queue( { testFrame( "first" ) } );
      auto const agentDir = Quill::make< Quill::Dir >();
      agentDir->entryIs( "messages", messages_ );
      agents_->entryIs( "agent", agentDir );
      auto const intfConfig = Quill::make< Interface::IntfConfig >( intfId_ );
      intfConfig->adminShutdownDelaySupportedIs( true );
      intfConfigs_->intfConfigAdd( intfConfig );
      intfStatuses_->intfStatusIs( intfId_ )->deviceNameIs( "et1" );
      l3Statuses_->intfStatusIs( intfId_ )->vrfIs( "red" );
      auto const vrf = Quill::make< Ip::VrfStatusLocal >( L3::VrfName( "red" ) );
      vrf->networkNamespaceIs( red_->name() );
      vrf->stateIs( Ip::VrfState::active );
      vrfStatuses_->vrfAdd( vrf );
   }

   Linux::PacketEndpointProvider endpoints_;
   Linux::KernelNetInfoProvider devices_{ loop_ };
   Quill::Ptr< Orrery::EntityManager > const store_ = Quill::make< Orrery::EntityManager >();
   Quill::Ptr< Config::Agent::MessageDir > const messages_ =
      Quill::make< Config::Agent::MessageDir >();
   Quill::Ptr< Quill::Dir > const agents_ = Quill::make< Quill::Dir >();
   Quill::Ptr< Interface::AllIntfConfigDir > const intfConfigs_ =
      Quill::make< Interface::AllIntfConfigDir >();
   Quill::Ptr< Interface::AllIntfStatusDir > const intfStatuses_ =
      Quill::make< Interface::AllIntfStatusDir >();
   Quill::Ptr< L3::Intf::StatusDir > const l3Statuses_ = Quill::make< L3::Intf::StatusDir >();
   Quill::Ptr< Ip::AllVrfStatusLocal > const vrfStatuses_ = Quill::make< Ip::AllVrfStatusLocal >();
   Quill::Ptr< Status::StatusDir > const statusDir_ = Quill::make< Status::StatusDir >();
   Quill::Ptr< RunnabilitySm > library_;
};

// Each cycle has other frames, so that a lost, a duplicate or a late one shows.
TEST_F( CyclesTest, AThousandShutdownsSendEachFrameOnce ) {
   constexpr U32 cycles = 1000;
   constexpr U32 framesPerCycle = 3;
   Capture capture( *neighbors_, "far1" );
   for ( U32 cycle = 0; cycle < cycles; ++cycle ) {
      std::vector< std::string > queued;
      for ( U32 frame = 0; frame < framesPerCycle; ++frame ) {
         queued.push_back(
            testFrame( "cycle " + std::to_string( cycle ) + " frame " + std::to_string( frame ) ) );
      }
      queue( queued );
      shutdown();
      ASSERT_TRUE( delayed() ) << "cycle " << cycle;
      EXPECT_EQ( capture.frames( framesPerCycle ), queued );
      enable();
      ASSERT_FALSE( delayed() ) << "cycle " << cycle;
   }
   EXPECT_TRUE( capture.frames( 1, std::chrono::milliseconds( 200 ) ).empty() ) << "a duplicate";
}

// The far end is read only afterwards: the order in which it has the frames is that of their sending.
TEST_F( CyclesTest, FramesOfManyShutdownsArriveInOrder ) {
   constexpr U32 cycles = 100; // fits into the receiving socket's buffer
   Capture capture( *neighbors_, "far1" );
   std::vector< std::string > expected;
   for ( U32 cycle = 0; cycle < cycles; ++cycle ) {
      expected.push_back( testFrame( "cycle " + std::to_string( cycle ) ) );
      queue( { expected.back() } );
      shutdown();
      enable();
   }
   EXPECT_EQ( capture.frames( cycles ), expected );
}

} // namespace
} // namespace Valen::Test
