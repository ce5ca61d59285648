#include "vrf/KernelIntf.h"

#include "platform/orrery/QuillShoal.h"
#include "platform/trace/Trace.h"
#include "types/KernelNetInfo.h"

namespace Valen {

namespace {

QUILL_TRACE_UNIT( "KernelIntf" )

constexpr QuillShoal::MountInfo mountInfo{ QuillShoal::MountType::reader };

} // namespace

KernelIntf::KernelIntf( Quill::Ptr< Interface::AllIntfStatusDir const > allIntfStatusDir,
                        Quill::Ptr< Interface::AllIntfStatusLocalDir const > allIntfStatusLocalDir,
                        Quill::Ptr< Orrery::EntityManager > entityManager )
    : allIntfStatusDir_( std::move( allIntfStatusDir ) ),
      allIntfStatusLocalDir_( std::move( allIntfStatusLocalDir ) ),
      entityManager_( std::move( entityManager ) ),
      vrfDeviceIntfStatusDir_( Quill::make< Interface::VrfDeviceIntfStatusDir >(
         "KernelIntf::VrfDeviceIntfStatusDir" ) ) {
   intfStatusManagerRootIs( allIntfStatusDir_, allIntfStatusLocalDir_, true );
}

KernelIntf::~KernelIntf() {
   handleDestruction();
   vrfDeviceIntfStatusDir_ = nullptr;
   intfStatusManagerRoot_.retire();
}

Corvid::NamespaceName KernelIntf::namespaceName( L3::VrfName const & vrfName ) const {
   auto const * const recorded = namespaceName_.find( vrfName );
   return recorded ? *recorded : Corvid::NamespaceName();
}

void KernelIntf::namespaceNameIs( L3::VrfName vrfName, Corvid::NamespaceName namespaceName ) {
   namespaceName_.set( vrfName, std::move( namespaceName ) );
}

Quill::String KernelIntf::mountPath( Corvid::NamespaceName const & namespaceName ) {
   return Quill::String( "kni/ns/" ) + namespaceName.stringValue() + "/status";
}

Interface::DeviceIntfStatusDir::Ptr KernelIntf::vrfIs( L3::VrfName vrfName,
                                                       Corvid::NamespaceName namespaceName ) {
   TRACE0( "vrf %s, ns %s", vrfName, namespaceName );
   auto const * const recorded = namespaceName_.find( vrfName );
   if ( recorded && *recorded != namespaceName ) {
      leaveNamespace( vrfName );
   }
   auto const path = mountPath( namespaceName );
   auto const mount = Quill::make< QuillShoal::Mount >( entityManager_ );
   mount->handleInitialized();
   mount->doMount( path, "KernelNetInfo::Status", mountInfo );
   auto const status = Quill::ptrCast< KernelNetInfo::Status const >( mount->getEntity( path ) );
   auto const deviceVrfIntfStatusDir =
      vrfDeviceIntfStatusDir_->deviceVrfIntfStatusDirIs( vrfName.stringValue() );
   auto const deviceIntfStatusDir = deviceVrfIntfStatusDir->deviceIntfStatusDirIs( "devices" );
   intfStatusManagerRoot_->intfStatusManagerIs( deviceIntfStatusDir, status, namespaceName );
   namespaceNameIs( vrfName, namespaceName );
   return deviceIntfStatusDir;
}

void KernelIntf::vrfDel( L3::VrfName vrfName ) {
   TRACE0( "vrf %s", vrfName );
   auto const name = namespaceName( vrfName );
   intfStatusManagerRoot_->intfStatusManagerDel( name );
   unmount( name );
   vrfDeviceIntfStatusDir_->deviceVrfIntfStatusDirDel( vrfName.stringValue() );
   namespaceNameDel( vrfName );
}

// Without this, the manager of the old namespace would still fill the VRF's directory, and nothing would
// ever unmount that namespace. Another VRF may have it by now.
void KernelIntf::leaveNamespace( L3::VrfName const & vrfName ) {
   auto const name = namespaceName( vrfName );
   namespaceNameDel( vrfName );
   for ( auto const & entry : namespaceName_ ) {
      if ( entry.value == name ) {
         return;
      }
   }
   intfStatusManagerRoot_->intfStatusManagerDel( name );
   unmount( name );
}

void KernelIntf::unmount( Corvid::NamespaceName const & namespaceName ) {
   auto const mount = Quill::make< QuillShoal::Mount >( entityManager_ );
   mount->handleInitialized();
   mount->doUnmount( mountPath( namespaceName ) );
}

void KernelIntf::handleDestruction() {
   TRACE0( "" );
   for ( auto const & entry : namespaceName_ ) {
      vrfDel( entry.key );
   }
   VALEN_ASSERT( 0 == namespaceNames() );
}

void KernelIntf::intfStatusManagerRootIs(
   Quill::Ptr< Interface::AllIntfStatusDir const > allIntfStatusDir,
   Quill::Ptr< Interface::AllIntfStatusLocalDir const > allIntfStatusLocalDir,
   bool filterByNetNs ) {
   intfStatusManagerRoot_.set( Interface::NetNsIntfStatusManagerRoot::NetNsIntfStatusManagerRootIs(
      std::move( allIntfStatusDir ), std::move( allIntfStatusLocalDir ), filterByNetNs ) );
   intfStatusManagerRoot_->hasNotificationActiveIs( true );
}

Quill::Ptr< KernelIntf >
kernelIntfFactory( Quill::Ptr< Interface::AllIntfStatusDir const > allIntfStatusDir,
                   Quill::Ptr< Interface::AllIntfStatusLocalDir const > allIntfStatusLocalDir,
                   Quill::Ptr< Orrery::EntityManager > entityManager ) {
   return Quill::make< KernelIntf >( std::move( allIntfStatusDir ),
                                     std::move( allIntfStatusLocalDir ),
                                     std::move( entityManager ) );
}

} // namespace Valen
