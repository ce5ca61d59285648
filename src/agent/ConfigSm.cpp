#include "agent/ConfigSm.h"

#include "platform/quill/Fault.h"
#include "platform/trace/Trace.h"

namespace Valen {

namespace {

QUILL_TRACE_UNIT( "ConfigSm" )

} // namespace

ConfigSm::ConfigSm( Quill::Ptr< Config::ConfigDir const > configDir,
                    Quill::Ptr< Quill::Dir const > agentConfigDir,
                    Quill::Ptr< Interface::AllIntfConfigDir const > allIntfConfigDir,
                    Quill::Ptr< Interface::AllIntfStatusDir const > allIntfStatusDir,
                    Quill::Ptr< Interface::AllIntfStatusLocalDir const > allIntfStatusLocalDir,
                    Quill::Ptr< L3::Intf::StatusDir const > l3IntfStatusDir,
                    Quill::Ptr< Ip::AllVrfStatusLocal const > allVrfStatusLocal,
                    Quill::Ptr< Orrery::EntityManager > entityManager,
                    Quill::Ptr< Status::StatusDir > statusDir, Quill::Ptr< AllVrf > allVrf,
                    Quill::Ptr< AllIntf > allIntf )
    : configDir_( std::move( configDir ) ), agentConfigDir_( *this, std::move( agentConfigDir ) ),
      allIntfConfigDir_( std::move( allIntfConfigDir ) ),
      allIntfStatusDir_( std::move( allIntfStatusDir ) ),
      allIntfStatusLocalDir_( std::move( allIntfStatusLocalDir ) ),
      l3IntfStatusDir_( std::move( l3IntfStatusDir ) ),
      allVrfStatusLocal_( std::move( allVrfStatusLocal ) ),
      entityManager_( std::move( entityManager ) ), statusDir_( std::move( statusDir ) ),
      allVrf_( *this, std::move( allVrf ) ), allIntf_( *this, std::move( allIntf ) ),
      scheduler_( Gantry::TaskSchedulerRoot::findOrCreateScheduler() ) {
   kernelIntfIs( allIntfStatusDir_, allIntfStatusLocalDir_, entityManager_ );
   allVrfStatusLocalSmIs( allVrfStatusLocal_, this->allVrf() );
   allIntfConfigDirSmIs( allIntfConfigDir_, this->allIntf() );
   l3IntfStatusDirSmIs( l3IntfStatusDir_, this->allVrf(), this->allIntf() );
   handleInitialized();
}

ConfigSm::~ConfigSm() {
   handleDestruction();
   quillDoZombieReactors( true );
   // Retired already, unless a watcher of their removal made one again.
   kernelIntfDel();
   agentConfigSmDelAll();
   allVrfStatusLocalSmDel();
   allIntfConfigDirSmDel();
   vrfContainerSmDelAll();
}

// --- The children --------------------------------------------------------------------------------

Quill::Ptr< KernelIntf >
ConfigSm::kernelIntfIs( Quill::Ptr< Interface::AllIntfStatusDir const > allIntfStatusDir,
                        Quill::Ptr< Interface::AllIntfStatusLocalDir const > allIntfStatusLocalDir,
                        Quill::Ptr< Orrery::EntityManager > entityManager ) {
   return kernelIntf_.instantiate( std::move( allIntfStatusDir ),
                                   std::move( allIntfStatusLocalDir ), std::move( entityManager ) );
}

void ConfigSm::kernelIntfDel() {
   kernelIntf_.retire();
}

Quill::Ptr< AllVrfStatusLocalSm >
ConfigSm::allVrfStatusLocalSmIs( Quill::Ptr< Ip::AllVrfStatusLocal const > allVrfStatusLocal,
                                 Quill::Ptr< AllVrf > allVrf ) {
   return allVrfStatusLocalSm_.instantiate( std::move( allVrfStatusLocal ), std::move( allVrf ) );
}

void ConfigSm::allVrfStatusLocalSmDel() {
   allVrfStatusLocalSm_.retire();
}

Quill::Ptr< AllIntfConfigDirSm >
ConfigSm::allIntfConfigDirSmIs( Quill::Ptr< Interface::AllIntfConfigDir const > allIntfConfigDir,
                                Quill::Ptr< AllIntf > allIntf ) {
   return allIntfConfigDirSm_.instantiate( std::move( allIntfConfigDir ), std::move( allIntf ) );
}

void ConfigSm::allIntfConfigDirSmDel() {
   allIntfConfigDirSm_.retire();
}

Quill::Ptr< L3IntfStatusDirSm >
ConfigSm::l3IntfStatusDirSmIs( Quill::Ptr< L3::Intf::StatusDir const > l3IntfStatusDir,
                               Quill::Ptr< AllVrf > allVrf, Quill::Ptr< AllIntf > allIntf ) {
   return l3IntfStatusDirSm_.instantiate( std::move( l3IntfStatusDir ), std::move( allVrf ),
                                          std::move( allIntf ) );
}

void ConfigSm::l3IntfStatusDirSmDel() {
   l3IntfStatusDirSm_.retire();
}

Quill::Ptr< AgentConfigSm > ConfigSm::agentConfigSmIs( Quill::Name agentName,
                                                       Quill::Ptr< Quill::Dir const > agentDir,
                                                       Quill::Ptr< AllIntf > allIntf ) {
   return agentConfigSm_.instantiate( agentName, std::move( agentDir ), std::move( allIntf ) );
}

void ConfigSm::agentConfigSmDel( Quill::Name agentName ) {
   agentConfigSm_.retire( agentName );
}

void ConfigSm::agentConfigSmDelAll() {
   agentConfigSm_.retireAll();
}

Quill::Ptr< VrfContainerSm >
ConfigSm::vrfContainerSmIs( Quill::Ptr< Vrf const > vrf, Quill::Ptr< VrfL3Intf const > vrfL3Intf,
                            Quill::Ptr< AllIntf > allIntf,
                            Quill::Ptr< Interface::DeviceIntfStatusDir const > deviceIntfStatusDir,
                            Quill::Ptr< Gantry::TaskScheduler > scheduler,
                            Quill::Ptr< Config::ConfigDir const > configDir,
                            Quill::Ptr< Status::StatusDir > statusDir ) {
   if ( !vrf ) {
      // The quotation mark at the end belongs to the text.
      throw Quill::NullParameterException( "null vrfContainerSm_Vrf parameter to mutator for "
                                           "Valen::ConfigSm::vrfContainerSm not allowed\"" );
   }
   auto const vrfName = vrf->vrfName();
   return vrfContainerSm_.instantiate( vrfName, std::move( vrf ), std::move( vrfL3Intf ),
                                       std::move( allIntf ), std::move( deviceIntfStatusDir ),
                                       std::move( scheduler ), std::move( configDir ),
                                       std::move( statusDir ) );
}

void ConfigSm::vrfContainerSmDel( L3::VrfName vrfName ) {
   vrfContainerSm_.retire( vrfName );
}

void ConfigSm::vrfContainerSmDelAll() {
   vrfContainerSm_.retireAll();
}

void ConfigSm::hasNotificationActiveIs( bool active ) {
   if ( active == hasNotificationActive() ) {
      return;
   }
   Reactor::hasNotificationActiveIs( active );
   Reactor * const trackers[] = { allVrfStatusLocalSm_.get().get(), allIntfConfigDirSm_.get().get(),
                                  l3IntfStatusDirSm_.get().get() };
   for ( auto * const tracker : trackers ) {
      if ( tracker ) {
         tracker->hasNotificationActiveIs( active );
      }
   }
}

// --- The handlers --------------------------------------------------------------------------------

void ConfigSm::handleInitialized() {
   TRACE0( "" );
   initializedIs( true );
   for ( auto const & entry : agentConfigDir()->entry() ) {
      handleAgent( entry.key );
   }
   replayModel();
}

// Handles what the trackers put into the model before this reactor was initialized. Each entry has
// a fault boundary of its own, so that a VRF that fails does not affect the others.
void ConfigSm::replayModel() {
   for ( auto const & intfMessage : allIntf()->intfMessage() ) {
      auto const intfId = intfMessage->intfId();
      Quill::underFaultBoundary(
         Quill::faultSource< ConfigSm, AllIntf::intfMessageAttr >( reactorName() ),
         [ & ] { return Quill::display( intfId ); }, [ & ] { handleIntfMessage( intfId ); } );
   }
   for ( auto const & vrf : allVrf()->vrf() ) {
      auto const vrfName = vrf->vrfName();
      Quill::underFaultBoundary(
         Quill::faultSource< ConfigSm, AllVrf::vrfAttr >( reactorName() ),
         [ & ] { return Quill::display( vrfName ); }, [ & ] { handleVrf( vrfName ); } );
   }
}

void ConfigSm::handleAgent( Quill::Name name ) {
   TRACE0( "%s", name );
   if ( !initialized() ) {
      TRACE1( "not initialized" );
      return;
   }
   if ( !agentConfigDir()->entryHas( name ) ) {
      TRACE1( "removing agentConfig" );
      agentConfigSmDel( name );
      return;
   }
   auto const entity = agentConfigDir()->entry( name );
   if ( !entity ) {
      TRACE1( "agentConfig added but not yet instantiated" );
      return;
   }
   TRACE1( "adding agentConfig" );
   if ( auto const agentDir = Quill::ptrCast< Quill::Dir const >( entity ) ) {
      agentConfigSmIs( name, agentDir, allIntf() );
   }
}

void ConfigSm::handleVrf( L3::VrfName vrfName ) {
   TRACE0( "vrf %s", vrfName );
   if ( !initialized() ) {
      TRACE1( "not initialized" );
      return;
   }
   auto const vrf = allVrf()->vrf( vrfName );
   auto const vrfL3Intf = allVrf()->vrfL3Intf( vrfName );
   if ( !vrf || !vrfL3Intf ) {
      if ( vrfContainerSm_.has( vrfName ) ) {
         vrfContainerSmDel( vrfName );
         kernelIntf_->vrfDel( vrfName );
      }
      return;
   }
   auto const deviceIntfStatusDir = kernelIntf_->vrfIs( vrfName, vrf->nsName() );
   // No handle, which would outlive the child's removal.
   if ( auto const * const child = vrfContainerSm( vrfName ).get() ) {
      if ( child->vrf() == vrf && child->vrfL3Intf() == vrfL3Intf ) {
         TRACE1( "vrfContainerSm already exists" );
         return;
      }
      TRACE1( "removing stale vrfContainerSm" );
      vrfContainerSmDel( vrfName );
   }
   // If this throws, the VRF stays in kernelIntf, also when its record is removed: it has no container
   // then. It leaves when it returns in another namespace, or with kernelIntf.
   vrfContainerSmIs( vrf, vrfL3Intf, allIntf(), deviceIntfStatusDir, scheduler_, configDir_,
                     statusDir_ );
}

void ConfigSm::handleIntfMessage( Corvid::IntfId intfId ) {
   TRACE0( "%s", intfId );
   if ( !initialized() ) {
      TRACE1( "not initialized" );
      return;
   }
   if ( auto const intfMessage = allIntf()->intfMessage( intfId ) ) {
      TRACE1( "adding intf to allIntf" );
      allIntf()->intfIs( intfId, Quill::Ptr< IntfMessage const >( intfMessage ) );
   } else {
      TRACE1( "removing intf from allIntf" );
      allIntf()->intfDel( intfId );
   }
}

void ConfigSm::handleDestruction() {
   TRACE0( "%s intfStatus to clean up", statusDir_->intfStatuss() );
   vrfContainerSmDelAll();
   l3IntfStatusDirSmDel();
   allIntfConfigDirSmDel();
   allVrfStatusLocalSmDel();
   agentConfigSmDelAll();
   kernelIntfDel();
   VALEN_ASSERT( 0 == statusDir()->intfStatuss() );
}

Quill::Ptr< ConfigSm > configSmFactory(
   Quill::Ptr< Config::ConfigDir const > configDir, Quill::Ptr< Quill::Dir const > agentConfigDir,
   Quill::Ptr< Interface::AllIntfConfigDir const > allIntfConfigDir,
   Quill::Ptr< Interface::AllIntfStatusDir const > allIntfStatusDir,
   Quill::Ptr< Interface::AllIntfStatusLocalDir const > allIntfStatusLocalDir,
   Quill::Ptr< L3::Intf::StatusDir const > l3IntfStatusDir,
   Quill::Ptr< Ip::AllVrfStatusLocal const > allVrfStatusLocal,
   Quill::Ptr< Orrery::EntityManager > entityManager, Quill::Ptr< Status::StatusDir > statusDir,
   Quill::Ptr< AllVrf > allVrf, Quill::Ptr< AllIntf > allIntf ) {
   return ConfigSm::ConfigSmIs( std::move( configDir ), std::move( agentConfigDir ),
                                std::move( allIntfConfigDir ), std::move( allIntfStatusDir ),
                                std::move( allIntfStatusLocalDir ), std::move( l3IntfStatusDir ),
                                std::move( allVrfStatusLocal ), std::move( entityManager ),
                                std::move( statusDir ), std::move( allVrf ), std::move( allIntf ) );
}

bool isVrfSetupFault( Quill::Fault const & fault ) noexcept {
   return fault.isFrom< ConfigSm, AllVrf::vrfAttr >();
}

} // namespace Valen
