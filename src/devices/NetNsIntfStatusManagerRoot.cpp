#include "devices/NetNsIntfStatusManagerRoot.h"

namespace Interface {

NetNsIntfStatusManagerRoot::NetNsIntfStatusManagerRoot(
   Quill::Ptr< AllIntfStatusDir const > allIntfStatusDir,
   Quill::Ptr< AllIntfStatusLocalDir const > allIntfStatusLocalDir, bool filterByNetNs )
    : allIntfStatusDir_( *this, std::move( allIntfStatusDir ) ),
      allIntfStatusLocalDir_( *this, std::move( allIntfStatusLocalDir ) ),
      filterByNetNs_( filterByNetNs ) {
   handleInitialized();
}

NetNsIntfStatusManagerRoot::~NetNsIntfStatusManagerRoot() {
   handleDestruction();
   quillDoZombieReactors( true );
}

NetNsIntfStatusManagerRoot::Ptr NetNsIntfStatusManagerRoot::NetNsIntfStatusManagerRootIs(
   Quill::Ptr< AllIntfStatusDir const > allIntfStatusDir,
   Quill::Ptr< AllIntfStatusLocalDir const > allIntfStatusLocalDir, bool filterByNetNs ) {
   return Quill::make< NetNsIntfStatusManagerRoot >(
      std::move( allIntfStatusDir ), std::move( allIntfStatusLocalDir ), filterByNetNs );
}

Quill::Ptr< NetNsIntfStatusManager > NetNsIntfStatusManagerRoot::intfStatusManagerIs(
   Quill::Ptr< DeviceIntfStatusDir > deviceIntfStatusDir,
   Quill::Ptr< KernelNetInfo::Status const > kernelNetInfoStatus,
   Corvid::NamespaceName namespaceName ) {
   if ( auto const existing = intfStatusManager( namespaceName ) ) {
      if ( existing->deviceIntfStatusDir() == deviceIntfStatusDir &&
           existing->kernelNetInfoStatus() == kernelNetInfoStatus ) {
         return existing;
      }
      intfStatusManagerDel( namespaceName );
   }
   return intfStatusManager_.findOrMake( namespaceName, *this, std::move( deviceIntfStatusDir ),
                                         std::move( kernelNetInfoStatus ), namespaceName );
}

void NetNsIntfStatusManagerRoot::intfStatusManagerDel( Corvid::NamespaceName namespaceName ) {
   if ( auto manager = intfStatusManager_.remove( namespaceName ) ) {
      manager->handleDestruction(); // now, even if its own handler is on the stack
      retire( std::move( manager ) );
   }
}

void NetNsIntfStatusManagerRoot::intfStatusManagerDelAll() {
   for ( auto const & manager : intfStatusManager_ ) {
      intfStatusManagerDel( manager->namespaceName() );
   }
}

Quill::Name NetNsIntfStatusManagerRoot::deviceName( Corvid::IntfId const & intfId ) const {
   auto configured = configuredName( intfId );
   return configured.empty() ? Quill::Name( intfId.stringValue() ) : configured;
}

Corvid::IntfId
NetNsIntfStatusManagerRoot::intfId( Quill::Name const & deviceName,
                                    Corvid::NamespaceName const & namespaceName ) const {
   Corvid::IntfId first;
   for ( auto const & candidate : intfIds( deviceName ) ) {
      auto const where = place( candidate, namespaceName );
      if ( where == Place::here ) {
         return candidate;
      }
      if ( where == Place::anywhere && first.empty() ) {
         first = candidate;
      }
   }
   if ( !first.empty() ) {
      return first;
   }
   Corvid::IntfId own( deviceName.stringValue() );
   bool const onOwnDevice = configuredName( own ).empty();
   return onOwnDevice && place( own, namespaceName ) != Place::elsewhere ? own : Corvid::IntfId();
}

Quill::Ptr< IntfStatus const >
NetNsIntfStatusManagerRoot::intfStatus( Corvid::IntfId const & intfId ) const noexcept {
   auto const * const dir = allIntfStatusDir_.get();
   return dir ? dir->intfStatus( intfId ) : nullptr;
}

Quill::Ptr< IntfStatusLocal const >
NetNsIntfStatusManagerRoot::intfStatusLocal( Corvid::IntfId const & intfId ) const noexcept {
   auto const * const dir = allIntfStatusLocalDir_.get();
   return dir ? dir->intfStatusLocal( intfId ) : nullptr;
}

NetNsIntfStatusManagerRoot::Place
NetNsIntfStatusManagerRoot::place( Corvid::IntfId const & intfId,
                                   Corvid::NamespaceName const & namespaceName ) const {
   auto const local = filterByNetNs_ ? intfStatusLocal( intfId ) : nullptr;
   if ( !local || local->netNsName().empty() ) {
      return Place::anywhere;
   }
   return local->netNsName() == namespaceName ? Place::here : Place::elsewhere;
}

void NetNsIntfStatusManagerRoot::handleInitialized() {
   if ( auto const dir = allIntfStatusDir() ) {
      for ( auto const & status : dir->intfStatus() ) {
         handleIntf( status->intfId() );
      }
   }
   if ( auto const dir = allIntfStatusLocalDir() ) {
      for ( auto const & local : dir->intfStatusLocal() ) {
         if ( !intfSm_.has( local->intfId() ) ) { // else handled above, with its status
            handleIntf( local->intfId() );
         }
      }
   }
}

void NetNsIntfStatusManagerRoot::handleIntf( Corvid::IntfId intfId ) {
   auto const from = deviceName( intfId );
   intfSmUpdate( intfId );
   auto const to = deviceName( intfId );
   for ( auto const & manager : intfStatusManager_ ) {
      // The new name first, so that the interface moves from one device to the other in one step.
      manager->deviceNameRefresh( to );
      if ( to != from ) {
         manager->deviceNameRefresh( from );
      }
   }
}

void NetNsIntfStatusManagerRoot::handleDestruction() {
   intfStatusManagerDelAll();
}

Quill::Name
NetNsIntfStatusManagerRoot::configuredName( Corvid::IntfId const & intfId ) const noexcept {
   auto const child = intfSm_.find( intfId );
   return child ? child->deviceName() : Quill::Name();
}

void NetNsIntfStatusManagerRoot::intfSmUpdate( Corvid::IntfId const & intfId ) {
   auto const status = intfStatus( intfId );
   auto const local = intfStatusLocal( intfId );
   auto const from = configuredName( intfId );
   auto const to = status ? status->deviceName() : Quill::Name();
   if ( from != to && !from.empty() ) {
      intfIds_.remove( from, intfId );
   }
   if ( from != to && !to.empty() ) {
      intfIds_.add( to, intfId );
   }
   if ( !status && !local ) {
      intfSm_.retire( intfId );
      return;
   }
   auto const child = intfSm_.findOrMake( intfId, *this, intfId );
   child->watch( status, local );
   child->deviceNameIs( to );
}

NetNsIntfStatusManagerRoot::IntfSm::IntfSm( NetNsIntfStatusManagerRoot & root,
                                            Corvid::IntfId intfId )
    : root_( root ), intfId_( std::move( intfId ) ), status_( *this, nullptr ),
      local_( *this, nullptr ) {}

void NetNsIntfStatusManagerRoot::IntfSm::watch(
   Quill::Ptr< IntfStatus const > status, Quill::Ptr< IntfStatusLocal const > local ) noexcept {
   status_.notifierIs( std::move( status ) );
   local_.notifierIs( std::move( local ) );
}

void NetNsIntfStatusManagerRoot::IntfSm::handleChange() {
   HandlerScope const rootScope( root_ );
   root_.handleIntf( intfId_ );
}

} // namespace Interface
