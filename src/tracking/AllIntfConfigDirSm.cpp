#include "tracking/AllIntfConfigDirSm.h"

#include "platform/trace/Trace.h"

namespace Valen {

namespace {

QUILL_TRACE_UNIT( "AllIntfConfigDirSm" )

} // namespace

AllIntfConfigDirSm::AllIntfConfigDirSm(
   Quill::Ptr< Interface::AllIntfConfigDir const > allIntfConfigDir, Quill::Ptr< AllIntf > allIntf )
    : allIntfConfigDir_( *this, std::move( allIntfConfigDir ) ),
      allIntf_( *this, std::move( allIntf ) ) {
   handleInitialized();
}

AllIntfConfigDirSm::~AllIntfConfigDirSm() {
   handleDestruction();
   quillDoZombieReactors( true );
}

void AllIntfConfigDirSm::handleInitialized() {
   TRACE0( "" );
   if ( auto const dir = allIntfConfigDir() ) {
      for ( auto const & intfConfig : dir->intfConfig() ) {
         handleIntfConfig( intfConfig->intfId() );
      }
   }
}

void AllIntfConfigDirSm::handleIntfConfig( Corvid::IntfId intfId ) {
   TRACE0( "%s", intfId );
   auto const dir = allIntfConfigDir();
   auto const intfConfig = dir ? dir->intfConfig( intfId ) : nullptr;
   auto const intfRecord = intf( intfId );
   if ( !intfConfig ) {
      if ( intfRecord ) {
         TRACE1( "removing" );
         intfRecord->intfConfigIs( nullptr );
      }
      return;
   }
   if ( !intfConfig->adminShutdownDelaySupported() ) {
      TRACE1( "interface does not support adminShutdownDelay" );
      if ( intfRecord ) {
         intfRecord->intfConfigIs( nullptr );
      }
      return;
   }
   if ( !intfRecord ) {
      TRACE1( "intf not present" );
      return;
   }
   TRACE1( "adding" );
   intfRecord->intfConfigIs( intfConfig );
}

void AllIntfConfigDirSm::handleDestruction() {
   TRACE0( "" );
   if ( auto const model = allIntf() ) {
      for ( auto const & intfRecord : model->intf() ) {
         intfRecord->intfConfigIs( nullptr );
      }
   }
}

Quill::Ptr< Intf > AllIntfConfigDirSm::intf( Corvid::IntfId const & intfId ) const {
   auto const model = allIntf();
   return model ? model->intf( intfId ) : nullptr;
}

Quill::Ptr< AllIntfConfigDirSm >
allIntfConfigDirSmFactory( Quill::Ptr< Interface::AllIntfConfigDir const > allIntfConfigDir,
                           Quill::Ptr< AllIntf > allIntf ) {
   return Quill::make< AllIntfConfigDirSm >( std::move( allIntfConfigDir ), std::move( allIntf ) );
}

} // namespace Valen
