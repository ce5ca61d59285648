#include "tracking/L3IntfStatusDirSm.h"

#include "platform/trace/Trace.h"

namespace Valen {

namespace {

// Without the "t", because trace filters select by this name.
QUILL_TRACE_UNIT( "L3InfStatusDirSm" )

} // namespace

// --- L3IntfStatusSm ------------------------------------------------------------------------------

L3IntfStatusSm::L3IntfStatusSm( Corvid::IntfId intfId, Quill::Ptr< Intf > intf,
                                Quill::Ptr< L3::Intf::Status const > l3IntfStatus,
                                Quill::Ptr< AllVrf > allVrf )
    : intfId_( std::move( intfId ) ), intf_( std::move( intf ) ),
      l3IntfStatus_( *this, std::move( l3IntfStatus ) ), allVrf_( std::move( allVrf ) ) {
   handleInitialized();
}

L3IntfStatusSm::~L3IntfStatusSm() {
   handleDestruction();
   quillDoZombieReactors( true );
}

void L3IntfStatusSm::handleInitialized() {
   TRACE0( "%s, vrf %s", intfId_, l3IntfStatus()->vrf() );
   intf_->l3IntfStatusIs( l3IntfStatus() );
   initializedIs( true );
   handleVrf();
}

void L3IntfStatusSm::handleVrf() {
   TRACE0( "%s, vrf %s", intfId_, l3IntfStatus()->vrf() );
   if ( !initialized() ) {
      TRACE1( "not initialized" );
      return;
   }
   if ( auto const emptied = leaveVrfL3Intf() ) {
      TRACE1( "removing vrfL3Intf for %s", emptied->vrfName() );
      vrfL3IntfRemove( emptied );
   }
   vrfL3IntfIs( nullptr ); // last: a watcher of the set still finds it here
   auto const joined = allVrf_->vrfL3IntfIs( l3IntfStatus()->vrf() );
   if ( vrfL3Intf_ ) { // a watcher of the new set has moved the interface again
      if ( joined->intfs() == 0 ) {
         vrfL3IntfRemove( joined );
      }
      return;
   }
   vrfL3IntfIs( joined );
   vrfL3Intf_->intfIs( intf_ );
}

void L3IntfStatusSm::handleDestruction() {
   TRACE0( "%s, vrf %s", intfId_, l3IntfStatus()->vrf() );
   if ( auto const emptied = leaveVrfL3Intf() ) {
      TRACE1( "removing vrfL3Intf for %s", emptied->vrfName() );
      vrfL3IntfRemove( emptied );
   }
   intf_->l3IntfStatusIs( nullptr );
}

Quill::Ptr< VrfL3Intf > L3IntfStatusSm::leaveVrfL3Intf() {
   auto const left = vrfL3Intf_; // a watcher of the set may move the interface again
   if ( !left ) {
      return nullptr;
   }
   left->intfDel( intf_ );
   return left->intfs() == 0 ? left : nullptr;
}

// By its name, unless a watcher has already put another set there.
void L3IntfStatusSm::vrfL3IntfRemove( Quill::Ptr< VrfL3Intf > const & emptied ) {
   if ( allVrf_->vrfL3Intf( emptied->vrfName() ) == emptied ) {
      allVrf_->vrfL3IntfDel( emptied->vrfName() );
   }
}

// --- L3IntfStatusDirSm ---------------------------------------------------------------------------

L3IntfStatusDirSm::L3IntfStatusDirSm( Quill::Ptr< L3::Intf::StatusDir const > l3IntfStatusDir,
                                      Quill::Ptr< AllVrf > allVrf, Quill::Ptr< AllIntf > allIntf )
    : l3IntfStatusDir_( *this, std::move( l3IntfStatusDir ) ), allVrf_( std::move( allVrf ) ),
      allIntf_( *this, std::move( allIntf ) ) {
   handleInitialized();
}

L3IntfStatusDirSm::~L3IntfStatusDirSm() {
   handleDestruction();
   quillDoZombieReactors( true );
}

Quill::Ptr< L3IntfStatusSm >
L3IntfStatusDirSm::l3IntfStatusSmIs( Corvid::IntfId intfId, Quill::Ptr< Intf > intf,
                                     Quill::Ptr< L3::Intf::Status const > l3IntfStatus,
                                     Quill::Ptr< AllVrf > allVrf ) {
   return l3IntfStatusSm_.instantiate( intfId, std::move( intf ), std::move( l3IntfStatus ),
                                       std::move( allVrf ) );
}

void L3IntfStatusDirSm::l3IntfStatusSmDel( Corvid::IntfId intfId ) {
   l3IntfStatusSm_.retire( intfId );
}

void L3IntfStatusDirSm::l3IntfStatusSmDelAll() {
   l3IntfStatusSm_.retireAll();
}

void L3IntfStatusDirSm::handleInitialized() {
   TRACE0( "" );
   for ( auto const & status : l3IntfStatusDir()->intfStatus() ) {
      handleIntf( status->intfId() );
   }
}

void L3IntfStatusDirSm::handleIntf( Corvid::IntfId intfId ) {
   TRACE0( "%s", intfId );
   auto const status = l3IntfStatusDir()->intfStatus( intfId );
   if ( !status ) {
      TRACE1( "removing l3IntfStatusSm" );
      l3IntfStatusSmDel( intfId );
      return;
   }
   auto const intf = allIntf()->intf( intfId );
   if ( !intf ) {
      TRACE1( "intf not present" );
      return;
   }
   TRACE1( "adding l3IntfStatusSm" );
   // No handle, which would outlive the child's removal.
   if ( auto const * const child = l3IntfStatusSm( intfId ).get() ) {
      if ( child->l3IntfStatus() == status ) {
         TRACE1( "l3IntfStatusSm already exists" );
         return;
      }
      TRACE1( "removing stale l3IntfStatusSm" );
      l3IntfStatusSmDel( intfId );
   }
   l3IntfStatusSmIs( intfId, intf, status, allVrf_ );
}

void L3IntfStatusDirSm::handleDestruction() {
   TRACE0( "" );
   l3IntfStatusSmDelAll();
}

Quill::Ptr< L3IntfStatusDirSm >
l3IntfStatusDirSmFactory( Quill::Ptr< L3::Intf::StatusDir const > l3IntfStatusDir,
                          Quill::Ptr< AllVrf > allVrf, Quill::Ptr< AllIntf > allIntf ) {
   return Quill::make< L3IntfStatusDirSm >( std::move( l3IntfStatusDir ), std::move( allVrf ),
                                            std::move( allIntf ) );
}

} // namespace Valen
