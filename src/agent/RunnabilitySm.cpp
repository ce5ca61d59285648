#include "agent/RunnabilitySm.h"

#include "agent/ConfigSm.h"
#include "platform/trace/Trace.h"

namespace Valen {

namespace {

QUILL_TRACE_UNIT( "RunnabilitySm" )

} // namespace

RunnabilitySm::RunnabilitySm(
   Quill::Ptr< Config::ConfigDir const > configDir, Quill::Ptr< Quill::Dir const > agentConfigDir,
   Quill::Ptr< Interface::AllIntfConfigDir const > allIntfConfigDir,
   Quill::Ptr< Interface::AllIntfStatusDir const > allIntfStatusDir,
   Quill::Ptr< Interface::AllIntfStatusLocalDir const > allIntfStatusLocalDir,
   Quill::Ptr< L3::Intf::StatusDir const > l3IntfStatusDir,
   Quill::Ptr< Ip::AllVrfStatusLocal const > allVrfStatusLocal,
   Quill::Ptr< Orrery::EntityManager > entityManager, Quill::Ptr< Status::StatusDir > statusDir,
   Quill::Ptr< AllVrf > allVrf, Quill::Ptr< AllIntf > allIntf )
    : configDir_( *this, std::move( configDir ) ), agentConfigDir_( std::move( agentConfigDir ) ),
      allIntfConfigDir_( std::move( allIntfConfigDir ) ),
      allIntfStatusDir_( std::move( allIntfStatusDir ) ),
      allIntfStatusLocalDir_( std::move( allIntfStatusLocalDir ) ),
      l3IntfStatusDir_( std::move( l3IntfStatusDir ) ),
      allVrfStatusLocal_( std::move( allVrfStatusLocal ) ),
      entityManager_( std::move( entityManager ) ), statusDir_( std::move( statusDir ) ),
      allVrf_( std::move( allVrf ) ), allIntf_( std::move( allIntf ) ) {
   handleInitialized();
}

RunnabilitySm::~RunnabilitySm() {
   quillDoZombieReactors( true );
   configSmIs( nullptr );
}

void RunnabilitySm::configDirIs( Quill::Ptr< Config::ConfigDir const > configDir ) {
   configDir_.notifierIs( std::move( configDir ) );
}

void RunnabilitySm::configDirDel() {
   configDirIs( nullptr );
}

void RunnabilitySm::configSmIs( Quill::Ptr< ConfigSm > configSm ) {
   configSm_.set( std::move( configSm ) );
}

void RunnabilitySm::handleInitialized() {
   TRACE0( "" );
   statusDir_->intfStatusDelAll();
   initializedIs( true );
   handleGlobalConfig();
}

void RunnabilitySm::handleGlobalConfig() {
   auto const globalConfig = configDir_.get() ? configDir_.get()->globalConfig() : nullptr;
   TRACE0( "%s", globalConfig );
   if ( !initialized() ) {
      TRACE1( "not initialized" );
      return;
   }
   if ( !globalConfig ) {
      TRACE1( "removing configSm" );
      configSmIs( nullptr );
      statusDir_->agentActiveIs( false );
      return;
   }
   if ( statusDir_->agentActive() ) {
      return;
   }
   TRACE1( "adding configSm" );
   statusDir_->agentActiveIs( true );
   configSmIs( ConfigSm::ConfigSmIs(
      configDir(), agentConfigDir_, allIntfConfigDir_, allIntfStatusDir_, allIntfStatusLocalDir_,
      l3IntfStatusDir_, allVrfStatusLocal_, entityManager_, statusDir_, allVrf_, allIntf_ ) );
}

Quill::Ptr< RunnabilitySm > runnabilitySmFactory(
   Quill::Ptr< Config::ConfigDir const > configDir, Quill::Ptr< Quill::Dir const > agentConfigDir,
   Quill::Ptr< Interface::AllIntfConfigDir const > allIntfConfigDir,
   Quill::Ptr< Interface::AllIntfStatusDir const > allIntfStatusDir,
   Quill::Ptr< Interface::AllIntfStatusLocalDir const > allIntfStatusLocalDir,
   Quill::Ptr< L3::Intf::StatusDir const > l3IntfStatusDir,
   Quill::Ptr< Ip::AllVrfStatusLocal const > allVrfStatusLocal,
   Quill::Ptr< Orrery::EntityManager > entityManager, Quill::Ptr< Status::StatusDir > statusDir,
   Quill::Ptr< AllVrf > allVrf, Quill::Ptr< AllIntf > allIntf ) {
   return RunnabilitySm::RunnabilitySmIs(
      std::move( configDir ), std::move( agentConfigDir ), std::move( allIntfConfigDir ),
      std::move( allIntfStatusDir ), std::move( allIntfStatusLocalDir ),
      std::move( l3IntfStatusDir ), std::move( allVrfStatusLocal ), std::move( entityManager ),
      std::move( statusDir ), std::move( allVrf ), std::move( allIntf ) );
}

} // namespace Valen
