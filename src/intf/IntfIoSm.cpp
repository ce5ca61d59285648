#include "intf/IntfIoSm.h"

#include "intf/IntfTrace.h"

// The entry trace of a handler. A macro, because the line names the function that it is in.
#define TRACE_STATE()                                                                              \
   TRACE0( "%s, adminShutdownDelayable %s, adminShutdownDelayed %s, delayed %s", intfId(),         \
           flagText< &Interface::IntfConfig::adminShutdownDelayable >( intfConfig() ),             \
           flagText< &Interface::IntfConfig::adminShutdownDelayed >( intfConfig() ),               \
           flagText< &Status::IntfStatus::delayed >( intfStatus() ) )

namespace Valen {

namespace {

using namespace IntfTrace;

// The same for every interface.

template < auto flag, class T > char const * flagText( Quill::Ptr< T > const & entity ) {
   return !entity ? "null" : ( ( *entity ).*flag )() ? "true" : "false";
}

} // namespace

IntfIoSm::IntfIoSm( Quill::Ptr< Intf > intf, Quill::Ptr< Corvid::RawTxPam > rawTxPam,
                    Quill::Ptr< Gantry::TaskScheduler > taskScheduler,
                    Quill::Ptr< Interface::IntfConfig const > intfConfig,
                    Quill::Ptr< Config::ConfigDir const > configDir )
    : intf_( std::move( intf ) ), rawTxPam_( std::move( rawTxPam ) ),
      taskScheduler_( std::move( taskScheduler ) ), intfConfig_( *this, std::move( intfConfig ) ),
      configDir_( std::move( configDir ) ), shutdownDelayTask_( *this, nullptr ) {
   handleInitialized();
}

IntfIoSm::~IntfIoSm() {
   handleDestruction();
   quillDoZombieReactors( true );
   shutdownDelayTaskDel();
}

IntfIoSm::Ptr IntfIoSm::IntfIoSmIs( Quill::Ptr< Intf > intf,
                                    Quill::Ptr< Corvid::RawTxPam > rawTxPam,
                                    Quill::Ptr< Gantry::TaskScheduler > taskScheduler,
                                    Quill::Ptr< Interface::IntfConfig const > intfConfig,
                                    Quill::Ptr< Config::ConfigDir const > configDir ) {
   return Quill::make< IntfIoSm >( std::move( intf ), std::move( rawTxPam ),
                                   std::move( taskScheduler ), std::move( intfConfig ),
                                   std::move( configDir ) );
}

void IntfIoSm::intfConfigIs( Quill::Ptr< Interface::IntfConfig const > intfConfig ) {
   if ( intfConfig.get() == intfConfig_.get() ) {
      return;
   }
   HandlerScope const scope( *this );
   intfConfig_.notifierIs( std::move( intfConfig ) );
   if ( intfConfig_.get() ) {
      handleAdminShutdownDelayed();
   }
}

void IntfIoSm::shutdownDelayTaskIs( Quill::Ptr< Gantry::TaskScheduler > scheduler,
                                    Gantry::TaskPriority priority, Quill::String name ) {
   shutdownDelayTask_.notifierIs(
      Quill::make< Gantry::TimerTask >( std::move( scheduler ), priority, std::move( name ) ) );
   handleShutdownDelayTaskRun();
}

Corvid::IntfId IntfIoSm::intfId() const {
   return intf_ ? intf_->intfId() : Corvid::IntfId();
}

U32 IntfIoSm::ifIndex() const noexcept {
   return intf_ ? intf_->device().ifIndex : 0;
}

Quill::Ptr< IntfMessage const > IntfIoSm::intfMessage() const noexcept {
   return intf_ ? intf_->intfMessage() : nullptr;
}

Quill::Ptr< Status::IntfStatus > IntfIoSm::intfStatus() const noexcept {
   return intf_ ? intf_->intfStatus() : nullptr;
}

double IntfIoSm::shutdownDelay() const noexcept {
   auto const & globalConfig = configDir_->globalConfig();
   return globalConfig ? globalConfig->shutdownDelayMs() / 1000.0 : 0.0;
}

Quill::String IntfIoSm::shutdownDelayTaskName() const {
   return Quill::String( "shutdownDelay::" ) + intfId().stringValue();
}

void IntfIoSm::handleInitialized() {
   TRACE_STATE();
   VALEN_ASSERT( nullptr != intfMessage() );
   VALEN_ASSERT( nullptr != intfConfig() );
   VALEN_ASSERT( nullptr != intfStatus() );
   VALEN_ASSERT( intfConfig()->adminShutdownDelaySupported() );
   VALEN_ASSERT( defaultDevice() != intf()->device() );
   shutdownDelayTaskIs( taskScheduler_, Gantry::TaskPriority::library, shutdownDelayTaskName() );
   raisedStatus_ = intfStatus();
   raisedStatus_->delayedIs( false );
   raisedStatus_->shouldDelayIs( true );
   initializedIs( true );
}

void IntfIoSm::handleAdminShutdownDelayed() {
   TRACE_STATE();
   if ( !initialized() ) {
      TRACE1( "not initialized" );
      return;
   }
   VALEN_ASSERT( intfStatus()->shouldDelay() );
   if ( intfConfig()->adminShutdownDelayed() ) {
      auto const status = intfStatus();
      auto const sent = outputMessages();
      if ( intfStatus() != status ) {
         return; // a watcher removed this reactor in the middle; a successor may have the record
      }
      TRACE1( "%s messages -> shutdown after delay", sent );
      intfStatus()->delayedIs( true );
      shutdownDelayTask()->scheduleTaskDelay( shutdownDelay() );
   } else if ( intfStatus()->delayed() ) {
      TRACE1( "abort shutdown delay" );
      intfStatus()->delayedIs( false );
      shutdownDelayTask()->unscheduleTask();
      abortCountInc( 1 );
   } else {
      TRACE1( "enable immediately" );
      immediateEnableCountInc( 1 );
   }
}

void IntfIoSm::handleShutdownDelayTaskRun() {
   if ( !shutdownDelayTask()->taskCurrentlyRunning() ) {
      return;
   }
   TRACE_STATE();
   intfStatus()->delayedIs( false );
}

void IntfIoSm::handleDestruction() {
   TRACE0( "%s", intfId() );
   if ( raisedStatus_ ) {
      raisedStatus_->delayedIs( false );
      raisedStatus_->shouldDelayIs( false );
   }
}

U32 IntfIoSm::outputMessages() {
   TRACE_STATE();
   U32 sent = 0;
   std::optional< Device > announced;
   for ( auto const & entry : intfMessage()->message() ) {
      auto const & i = entry.value;
      VALEN_ASSERT( i->messages() > 0 );
      for ( auto const & text : i->message() ) {
         if ( sendMessage( text, announced ) ) {
            ++sent;
         } else {
            TRACE1( "packet send failed" );
            sendPktFailedCountInc( 1 );
         }
      }
   }
   messagesOutputCountInc( sent );
   return sent;
}

bool IntfIoSm::sendMessage( Quill::String const & text, std::optional< Device > & announced ) {
   auto const pkt = Corvid::globalPktManager().newPkt();
   pkt->stringValueIs( text, false );
   // Looked up for each packet: the device may change while the endpoint sends the one before.
   auto const & device = intf_->device();
   if ( !announced || announced->ifIndex != device.ifIndex ||
        announced->deviceName != device.deviceName ) [[unlikely]] {
      announced = device;
      rawTxPam_->burstIs( device.ifIndex, device.deviceName.stringValue() );
   }
   return rawTxPam_->send( *pkt, device.ifIndex );
}

Quill::Ptr< IntfIoSm > intfIoSmFactory( Quill::Ptr< Intf > intf,
                                        Quill::Ptr< Corvid::RawTxPam > rawTxPam,
                                        Quill::Ptr< Gantry::TaskScheduler > taskScheduler,
                                        Quill::Ptr< Interface::IntfConfig const > intfConfig,
                                        Quill::Ptr< Config::ConfigDir const > configDir ) {
   return IntfIoSm::IntfIoSmIs( std::move( intf ), std::move( rawTxPam ),
                                std::move( taskScheduler ), std::move( intfConfig ),
                                std::move( configDir ) );
}

} // namespace Valen
