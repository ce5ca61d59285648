#include "devices/NetNsIntfStatusManager.h"

#include "devices/NetNsIntfStatusManagerRoot.h"

namespace Interface {

// A watcher of the directory may remove this manager, or the root with it, in the middle of a
// change. So each handler pins its owners while it is on the stack.

NetNsIntfStatusManager::NetNsIntfStatusManager(
   NetNsIntfStatusManagerRoot & root, Quill::Ptr< DeviceIntfStatusDir > deviceIntfStatusDir,
   Quill::Ptr< KernelNetInfo::Status const > kernelNetInfoStatus,
   Corvid::NamespaceName namespaceName )
    : root_( root ), deviceIntfStatusDir_( std::move( deviceIntfStatusDir ) ),
      kernelNetInfoStatus_( *this, std::move( kernelNetInfoStatus ) ),
      namespaceName_( std::move( namespaceName ) ) {
   handleInitialized();
}

NetNsIntfStatusManager::~NetNsIntfStatusManager() {
   handleDestruction();
   quillDoZombieReactors( true );
}

void NetNsIntfStatusManager::handleInitialized() {
   if ( auto const status = kernelNetInfoStatus() ) {
      for ( auto const & device : status->interface() ) {
         handleInterface( device->ifIndex() );
      }
   }
}

void NetNsIntfStatusManager::handleInterface( U32 ifIndex ) {
   HandlerScope const rootScope( root_ );
   auto device = kernelNetInfoStatus()->interface( ifIndex );
   if ( device && !device->linkLayer().empty() ) {
      device = nullptr;
   }
   auto const child = deviceSm_.find( ifIndex );
   if ( child && child->device() == device.get() ) {
      return;
   }
   auto const from = child ? child->deviceName() : Quill::Name();
   deviceSm_.retire( ifIndex );
   if ( device ) {
      deviceSm_.findOrMake( ifIndex, *this, device );
   }
   deviceMoved( ifIndex, from, device ? device->deviceName() : Quill::Name() );
}

void NetNsIntfStatusManager::handleDestruction() {
   kernelNetInfoStatus_.notifierIs( nullptr );
   deviceSm_.retireAll();
   ifIndexes_.clear();
   deviceIntfStatusDir_->intfStatusAndDeviceNameDelAll();
}

void NetNsIntfStatusManager::deviceNameRefresh( Quill::Name const & deviceName ) {
   for ( auto const & intfId : root_.intfIds( deviceName ) ) {
      intfRefresh( intfId );
   }
   intfRefresh( deviceName.stringValue() );
}

void NetNsIntfStatusManager::intfRefresh( Corvid::IntfId const & intfId ) {
   auto const deviceName = root_.deviceName( intfId );
   auto const * const ifIndex = ifIndexes_.last( deviceName );
   if ( !ifIndex || root_.intfId( deviceName, namespaceName_ ) != intfId ) {
      deviceIntfStatusDir_->intfStatusAndDeviceNameDel( intfId );
   } else {
      deviceIntfStatusDir_->intfStatusAndDeviceNameIs(
         intfId, { root_.intfStatus( intfId ), deviceName, *ifIndex } );
   }
}

void NetNsIntfStatusManager::deviceMoved( U32 ifIndex, Quill::Name from, Quill::Name to ) {
   if ( !from.empty() ) {
      ifIndexes_.remove( from, ifIndex );
   }
   if ( !to.empty() ) {
      ifIndexes_.add( to, ifIndex );
   }
   if ( !from.empty() ) {
      deviceNameRefresh( from );
   }
   if ( !to.empty() && to != from ) {
      deviceNameRefresh( to );
   }
}

NetNsIntfStatusManager::DeviceSm::DeviceSm( NetNsIntfStatusManager & manager,
                                            Quill::Ptr< KernelNetInfo::Interface const > device )
    : manager_( manager ), deviceName_( device->deviceName() ),
      device_( *this, std::move( device ) ) {}

void NetNsIntfStatusManager::DeviceSm::handleDeviceName() {
   HandlerScope const rootScope( manager_.root_ );
   HandlerScope const managerScope( manager_ );
   auto const from = std::exchange( deviceName_, device_.get()->deviceName() );
   manager_.deviceMoved( ifIndex(), from, deviceName_ );
}

} // namespace Interface
