#include "intf/IntfSm.h"

#include "intf/IntfIoSm.h"
#include "intf/IntfTrace.h"

// The entry trace of a handler. A macro, because the line names the function that it is in.
#define TRACE_STATE() TRACE0( "%s, intfConfig %s, device %s", intfId(), intfConfig(), device() )

namespace Valen {

namespace {

using namespace IntfTrace;

} // namespace

IntfSm::IntfSm( Corvid::IntfId intfId, Quill::Ptr< Intf > intf,
                Quill::Ptr< Corvid::RawTxPam > rawTxPam,
                Quill::Ptr< Gantry::TaskScheduler > taskScheduler,
                Quill::Ptr< Config::ConfigDir const > configDir,
                Quill::Ptr< Status::StatusDir > statusDir )
    : intfId_( std::move( intfId ) ), intf_( *this, std::move( intf ) ),
      rawTxPam_( std::move( rawTxPam ) ), taskScheduler_( std::move( taskScheduler ) ),
      configDir_( std::move( configDir ) ), statusDir_( std::move( statusDir ) ) {
   handleInitialized();
}

IntfSm::~IntfSm() {
   handleDestruction();
   quillDoZombieReactors( true );
}

IntfSm::Ptr IntfSm::IntfSmIs( Corvid::IntfId intfId, Quill::Ptr< Intf > intf,
                              Quill::Ptr< Corvid::RawTxPam > rawTxPam,
                              Quill::Ptr< Gantry::TaskScheduler > taskScheduler,
                              Quill::Ptr< Config::ConfigDir const > configDir,
                              Quill::Ptr< Status::StatusDir > statusDir ) {
   return Quill::make< IntfSm >( std::move( intfId ), std::move( intf ), std::move( rawTxPam ),
                                 std::move( taskScheduler ), std::move( configDir ),
                                 std::move( statusDir ) );
}

void IntfSm::intfIs( Quill::Ptr< Intf > intf ) {
   if ( intf.get() == intf_.get() ) {
      return;
   }
   HandlerScope const scope( *this );
   intf_.notifierIs( std::move( intf ) );
   if ( intf_.get() ) {
      handleIntfConfig();
      handleDevice();
   }
}

void IntfSm::intfIoSmIs( Quill::Ptr< IntfIoSm > intfIoSm ) {
   intfIoSm_.set( std::move( intfIoSm ) );
}

void IntfSm::handleInitialized() {
   TRACE0( "%s", intfId() );
   VALEN_ASSERT( nullptr != configDir()->globalConfig() );
   VALEN_ASSERT( nullptr != intf()->intfMessage() );
   VALEN_ASSERT( nullptr != intf()->l3IntfStatus() );
   VALEN_ASSERT( nullptr == intf()->intfStatus() );
   VALEN_ASSERT( !statusDir()->intfStatusHas( intfId() ) );
   initializedIs( true );
   maybeCreateIntfStatus();
}

void IntfSm::handleIntfConfig() {
   TRACE_STATE();
   if ( !initialized() ) {
      TRACE1( "not initialized" );
      return;
   }
   if ( intfConfig() ) {
      maybeCreateIntfStatus();
   } else {
      maybeDeleteIntfStatus();
   }
}

void IntfSm::handleDevice() {
   TRACE_STATE();
   if ( !initialized() ) {
      TRACE1( "not initialized" );
      return;
   }
   if ( device() == defaultDevice() ) {
      maybeDeleteIntfStatus();
   } else {
      maybeCreateIntfStatus();
   }
}

void IntfSm::maybeCreateIntfStatus() {
   TRACE_STATE();
   if ( !initialized() ) {
      TRACE1( "not initialized" );
      return;
   }
   if ( !isReady() ) {
      TRACE1( "have not met all requirements to create intfStatus in statusDir" );
      VALEN_ASSERT( nullptr == intfIoSm() );
      return;
   }
   if ( intfIoSm() ) {
      if ( intfIoSm()->intfConfig() == intf()->intfConfig() ) {
         TRACE1( "intfIoSm already exists" );
         VALEN_ASSERT( nullptr != intf()->intfStatus() );
         VALEN_ASSERT( statusDir()->intfStatusHas( intfId() ) );
         return;
      }
      TRACE1( "removing stale intfIoSm" );
      intfIoSmIs( nullptr );
   }
   createIntfStatus();
}

void IntfSm::maybeDeleteIntfStatus() {
   TRACE_STATE();
   VALEN_ASSERT( initialized() );
   if ( intf() && intf()->intfStatus() ) {
      intfIoSmIs( nullptr );
      intf()->intfStatusIs( nullptr );
      statusDir()->intfStatusDel( intfId() );
   } else {
      VALEN_ASSERT( nullptr == intfIoSm() );
      VALEN_ASSERT( !statusDir()->intfStatusHas( intfId() ) );
   }
}

void IntfSm::handleDestruction() {
   TRACE0( "%s", intfId() );
   intfIoSmIs( nullptr );
   if ( intf() ) {
      intf()->intfStatusIs( nullptr );
   }
   statusDir()->intfStatusDel( intfId() );
}

Quill::Ptr< Interface::IntfConfig const > IntfSm::intfConfig() const noexcept {
   return intf_.get() ? intf_.get()->intfConfig() : nullptr;
}

Interface::DeviceIntfStatusDir::IntfStatusAndDeviceName const & IntfSm::device() const noexcept {
   return intf_.get() ? intf_.get()->device() : defaultDevice();
}

bool IntfSm::isReady() const noexcept {
   auto const config = intfConfig();
   return config && config->adminShutdownDelaySupported() && device() != defaultDevice();
}

// In this order: the IntfIoSm requires the entry, linked from the record.
void IntfSm::createIntfStatus() {
   VALEN_ASSERT( nullptr == intf()->intfStatus() );
   VALEN_ASSERT( !statusDir()->intfStatusHas( intfId() ) );
   intf()->intfStatusIs( statusDir()->intfStatusIs( intfId() ) );
   intfIoSmIs( IntfIoSm::IntfIoSmIs( intf(), rawTxPam(), taskScheduler(), intf()->intfConfig(),
                                     configDir() ) );
}

Quill::Ptr< IntfSm > intfSmFactory( Corvid::IntfId intfId, Quill::Ptr< Intf > intf,
                                    Quill::Ptr< Corvid::RawTxPam > rawTxPam,
                                    Quill::Ptr< Gantry::TaskScheduler > taskScheduler,
                                    Quill::Ptr< Config::ConfigDir const > configDir,
                                    Quill::Ptr< Status::StatusDir > statusDir ) {
   return IntfSm::IntfSmIs( std::move( intfId ), std::move( intf ), std::move( rawTxPam ),
                            std::move( taskScheduler ), std::move( configDir ),
                            std::move( statusDir ) );
}

} // namespace Valen
