#include "vrf/VrfContainerSm.h"

#include "platform/quill/Exception.h"
#include "platform/trace/Trace.h"

#include <cerrno>
#include <cstring>

namespace Valen {

namespace {

QUILL_TRACE_UNIT( "VrfContainerSm" )

} // namespace

VrfContainerSm::VrfContainerSm(
   Quill::Ptr< Vrf const > vrf, Quill::Ptr< VrfL3Intf const > vrfL3Intf,
   Quill::Ptr< AllIntf > allIntf,
   Quill::Ptr< Interface::DeviceIntfStatusDir const > deviceIntfStatusDir,
   Quill::Ptr< Gantry::TaskScheduler > taskScheduler,
   Quill::Ptr< Config::ConfigDir const > configDir, Quill::Ptr< Status::StatusDir > statusDir )
    : vrf_( std::move( vrf ) ), vrfL3Intf_( *this, std::move( vrfL3Intf ) ),
      allIntf_( std::move( allIntf ) ),
      deviceIntfStatusDir_( *this, std::move( deviceIntfStatusDir ) ),
      taskScheduler_( std::move( taskScheduler ) ), configDir_( std::move( configDir ) ),
      statusDir_( std::move( statusDir ) ) {
   handleInitialized();
}

VrfContainerSm::~VrfContainerSm() {
   handleDestruction();
   quillDoZombieReactors( true );
   intfSmDelAll();
}

Quill::Ptr< IntfSm > VrfContainerSm::intfSmIs( Corvid::IntfId intfId, Quill::Ptr< Intf > intf,
                                               Quill::Ptr< Corvid::RawTxPam > rawTxPam,
                                               Quill::Ptr< Gantry::TaskScheduler > taskScheduler,
                                               Quill::Ptr< Config::ConfigDir const > configDir,
                                               Quill::Ptr< Status::StatusDir > statusDir ) {
   return intfSm_.findOrMake( intfId, std::move( intf ), std::move( rawTxPam ),
                              std::move( taskScheduler ), std::move( configDir ),
                              std::move( statusDir ) );
}

Quill::Ptr< IntfSm > VrfContainerSm::intfSmDel( Corvid::IntfId intfId ) {
   auto child = intfSm_.remove( intfId );
   if ( child ) {
      child->hasNotificationActiveIs( false );
   }
   return child;
}

void VrfContainerSm::intfSmDelAll() {
   for ( auto const & child : intfSm_ ) {
      retire( intfSmDel( child->intfId() ) );
   }
}

void VrfContainerSm::handleInitialized() {
   TRACE0( "vrf %s", vrfName() );
   rawTxPamIs( Corvid::RawTxPam::rawTxPamFactory( "RawTxPam" ) );
   rawTxPam_->netNsIs( vrf_->nsName() );
   try {
      Quill::Expect const expected( Quill::ExceptionId::errnoFailure );
      rawTxPam_->enabledIs( true );
   } catch ( Quill::ErrnoException const & exception ) {
      auto const savedErrno = errno; // the calls below may change it
      TRACE1( "error (%s): %s type: %s, %s", savedErrno, std::strerror( savedErrno ),
              exception.what(), exception.number() );
      if ( savedErrno == ENOENT || savedErrno == EINVAL ) {
         TRACE1( "valid exception" );
         return;
      }
      TRACE1( "valid exception" );
      rawTxPamIs( nullptr ); // before errno is restored, which this may change
      errno = savedErrno;
      throw Quill::ErrnoException( exception );
   }
   initializedIs( true );
   for ( auto const & intf : vrf_->vrfL3Intf()->intf() ) {
      handleIntf( intf );
   }
}

void VrfContainerSm::handleIntf( Quill::Ptr< Valen::Intf > intf ) {
   auto const intfId = intf ? intf->intfId() : Corvid::IntfId();
   TRACE0( "%s", intfId );
   if ( vrfL3Intf() && vrfL3Intf()->intfHas( intf ) ) {
      intf->deviceIs( deviceEntry( intfId ) );
      intfSmIs( intfId, intf, rawTxPam_, taskScheduler_, configDir_, statusDir_ );
   } else if ( intfSm( intfId ) ) {
      TRACE1( "deleting intfSm" );
      retire( intfSmDel( intfId ) );
      intf->deviceIs( defaultDevice() );
   }
}

void VrfContainerSm::handleDevice( Corvid::IntfId intfId ) {
   TRACE0( "%s", intfId );
   if ( !initialized() ) {
      TRACE1( "not initialized" );
      return;
   }
   auto const intf = allIntf_->intf( intfId );
   if ( !intf ) {
      TRACE1( "ignoring device as no intf in allIntf" );
      return;
   }
   bool const inVrf = vrf_->vrfL3Intf()->intfHas( intf );
   auto const directory = deviceIntfStatusDir();
   if ( directory && directory->intfStatusAndDeviceNameHas( intfId ) ) {
      if ( !inVrf ) {
         TRACE1( "ignoring device since intf not linked to vrf" );
         return;
      }
      TRACE1( "adding device" );
      intf->deviceIs( deviceEntry( intfId ) );
   } else if ( inVrf ) {
      TRACE1( "removing device from intf" );
      intf->deviceIs( defaultDevice() );
   }
}

void VrfContainerSm::handleDestruction() {
   TRACE0( "vrf %s", vrfName() );
   intfSmDelAll();
}

Interface::DeviceIntfStatusDir::IntfStatusAndDeviceName
VrfContainerSm::deviceEntry( Corvid::IntfId const & intfId ) const {
   auto const directory = deviceIntfStatusDir();
   return directory ? directory->intfStatusAndDeviceName( intfId ) : defaultDevice();
}

Quill::Ptr< VrfContainerSm >
vrfContainerSmFactory( Quill::Ptr< Vrf const > vrf, Quill::Ptr< VrfL3Intf const > vrfL3Intf,
                       Quill::Ptr< AllIntf > allIntf,
                       Quill::Ptr< Interface::DeviceIntfStatusDir const > deviceIntfStatusDir,
                       Quill::Ptr< Gantry::TaskScheduler > taskScheduler,
                       Quill::Ptr< Config::ConfigDir const > configDir,
                       Quill::Ptr< Status::StatusDir > statusDir ) {
   return Quill::make< VrfContainerSm >( std::move( vrf ), std::move( vrfL3Intf ),
                                         std::move( allIntf ), std::move( deviceIntfStatusDir ),
                                         std::move( taskScheduler ), std::move( configDir ),
                                         std::move( statusDir ) );
}

} // namespace Valen
