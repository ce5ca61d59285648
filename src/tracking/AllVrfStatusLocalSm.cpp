#include "tracking/AllVrfStatusLocalSm.h"

#include "platform/trace/Trace.h"

namespace Valen {

namespace {

QUILL_TRACE_UNIT( "AllVrfStatusLocalSm" )

constexpr char const * defaultVrfName = "default";

} // namespace

// --- VrfStatusLocalSm ----------------------------------------------------------------------------

VrfStatusLocalSm::VrfStatusLocalSm( L3::VrfName vrfName,
                                    Quill::Ptr< Ip::VrfStatusLocal const > vrfStatusLocal,
                                    Quill::Ptr< VrfL3Intf > vrfL3Intf, Quill::Ptr< AllVrf > allVrf )
    : vrfName_( std::move( vrfName ) ), vrfStatusLocal_( *this, std::move( vrfStatusLocal ) ),
      vrfL3Intf_( std::move( vrfL3Intf ) ), allVrf_( std::move( allVrf ) ) {
   handleState();
}

VrfStatusLocalSm::~VrfStatusLocalSm() {
   handleDestruction();
   quillDoZombieReactors( true );
}

void VrfStatusLocalSm::handleState() {
   auto const status = vrfStatusLocal();
   TRACE0( "vrf %s, state%s", vrfName_, status->state() );
   if ( status->state() == Ip::VrfState::active ) {
      allVrf_->vrfIs( vrfName_, status->networkNamespace(),
                      Quill::Ptr< VrfL3Intf const >( vrfL3Intf_ ) );
   } else {
      allVrf_->vrfDel( vrfName_ );
   }
}

void VrfStatusLocalSm::handleDestruction() {
   TRACE0( "vrf %s", vrfName_ );
   if ( allVrf_->vrfHas( vrfName_ ) ) {
      allVrf_->vrfDel( vrfName_ );
   }
}

// --- AllVrfStatusLocalSm -------------------------------------------------------------------------

AllVrfStatusLocalSm::AllVrfStatusLocalSm(
   Quill::Ptr< Ip::AllVrfStatusLocal const > allVrfStatusLocal, Quill::Ptr< AllVrf > allVrf )
    : allVrfStatusLocal_( *this, std::move( allVrfStatusLocal ) ),
      allVrf_( *this, std::move( allVrf ) ) {
   handleInitialized();
}

AllVrfStatusLocalSm::~AllVrfStatusLocalSm() {
   handleDestruction();
   quillDoZombieReactors( true );
}

Quill::Ptr< VrfStatusLocalSm > AllVrfStatusLocalSm::vrfStatusLocalSmIs(
   L3::VrfName vrfName, Quill::Ptr< Ip::VrfStatusLocal const > vrfStatusLocal,
   Quill::Ptr< VrfL3Intf > vrfL3Intf, Quill::Ptr< AllVrf > allVrf ) {
   return vrfStatusLocalSm_.instantiate( vrfName, std::move( vrfStatusLocal ),
                                         std::move( vrfL3Intf ), std::move( allVrf ) );
}

void AllVrfStatusLocalSm::vrfStatusLocalSmDel( L3::VrfName vrfName ) {
   vrfStatusLocalSm_.retire( vrfName );
}

void AllVrfStatusLocalSm::vrfStatusLocalSmDelAll() {
   vrfStatusLocalSm_.retireAll();
}

void AllVrfStatusLocalSm::handleInitialized() {
   TRACE0( "" );
   for ( auto const & status : allVrfStatusLocal()->vrf() ) {
      handleVrf( status->vrfName() );
   }
}

void AllVrfStatusLocalSm::handleVrf( L3::VrfName vrfName ) {
   TRACE0( "vrf %s", vrfName );
   auto const status = allVrfStatusLocal()->vrf( vrfName );
   // No handle, which would outlive the child's removal.
   auto const * const child = vrfStatusLocalSm( vrfName ).get();
   if ( !status ) {
      if ( child ) {
         TRACE1( "removing VrfStatusLocalSm" );
         vrfStatusLocalSmDel( vrfName );
      }
      return;
   }
   auto const vrfL3Intf = allVrf()->vrfL3Intf( vrfName );
   if ( !vrfL3Intf ) {
      TRACE1( "vrfL3Intf not present" );
      return;
   }
   TRACE1( "adding VrfStatusLocalSm" );
   if ( child ) {
      if ( child->vrfStatusLocal() == status && child->vrfL3Intf() == vrfL3Intf ) {
         TRACE1( "vrfStatusLocalSm already exists" );
         return;
      }
      TRACE1( "removing stale vrfStatusLocalSm" );
      vrfStatusLocalSmDel( vrfName );
   }
   vrfStatusLocalSmIs( vrfName, status, vrfL3Intf, allVrf() );
}

void AllVrfStatusLocalSm::handleVrfL3Intf( L3::VrfName vrfName ) {
   TRACE0( "vrf %s", vrfName );
   if ( vrfName.view() == defaultVrfName ) {
      handleDefaultVrf();
   } else {
      handleVrf( vrfName );
   }
}

void AllVrfStatusLocalSm::handleDefaultVrf() {
   TRACE0( "" );
   L3::VrfName const defaultVrf( defaultVrfName );
   auto const model = allVrf();
   auto const vrfL3Intf = model->vrfL3Intf( defaultVrf );
   if ( !vrfL3Intf ) {
      model->vrfDel( defaultVrf );
      return;
   }
   if ( auto const vrf = model->vrf( defaultVrf ) ) {
      if ( vrf->vrfL3Intf() == vrfL3Intf ) {
         TRACE1( "vrf already exists" );
         return;
      }
      TRACE1( "removing stale vrf" );
      model->vrfDel( defaultVrf );
   }
   model->vrfIs( defaultVrf, Corvid::NamespaceName::defaultNamespace(),
                 Quill::Ptr< VrfL3Intf const >( vrfL3Intf ) );
}

void AllVrfStatusLocalSm::handleDestruction() {
   TRACE0( "" );
   vrfStatusLocalSmDelAll();
}

Quill::Ptr< AllVrfStatusLocalSm >
allVrfStatusLocalSmFactory( Quill::Ptr< Ip::AllVrfStatusLocal const > allVrfStatusLocal,
                            Quill::Ptr< AllVrf > allVrf ) {
   return Quill::make< AllVrfStatusLocalSm >( std::move( allVrfStatusLocal ), std::move( allVrf ) );
}

} // namespace Valen
