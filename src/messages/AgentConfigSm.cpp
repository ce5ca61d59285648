#include "messages/AgentConfigSm.h"

#include "platform/trace/Trace.h"

namespace Valen {

namespace {

QUILL_TRACE_UNIT( "AgentConfigSm" )

} // namespace

// --- MessageDirSm --------------------------------------------------------------------------------

MessageDirSm::MessageDirSm( Quill::Name name,
                            Quill::Ptr< Config::Agent::MessageDir const > messageDir,
                            Quill::Ptr< AllIntf > allIntf )
    : name_( std::move( name ) ), messageDir_( *this, std::move( messageDir ) ),
      allIntf_( std::move( allIntf ) ) {
   handleInitialized();
}

MessageDirSm::~MessageDirSm() {
   handleDestruction();
   quillDoZombieReactors( true );
}

void MessageDirSm::handleInitialized() {
   TRACE0( "" );
   for ( auto const & entry : messageDir()->message() ) {
      handleMessage( entry.key );
   }
}

void MessageDirSm::handleMessage( Corvid::IntfId intfId ) {
   TRACE0( "%s, %s", name_, intfId );
   auto const message = messageDir()->message( intfId );
   if ( !message ) {
      handleMessageRemoval( intfId );
      return;
   }
   auto intfMessage = allIntf_->intfMessage( intfId );
   if ( !intfMessage ) {
      TRACE1( "added intfMessage to allIntf" );
      intfMessage = allIntf_->intfMessageIs( intfId );
   }
   intfMessage->messageIs( name_.stringValue(), message );
}

void MessageDirSm::handleMessageRemoval( Corvid::IntfId intfId ) {
   TRACE0( "%s, %s", name_, intfId );
   auto const intfMessage = allIntf_->intfMessage( intfId );
   if ( !intfMessage ) {
      return;
   }
   intfMessage->messageDel( name_.stringValue() );
   if ( intfMessage->messages() == 0 ) {
      TRACE1( "removed intfMessage from allIntf" );
      allIntf_->intfMessageDel( intfId );
   }
}

void MessageDirSm::handleDestruction() {
   TRACE0( "" );
   for ( auto const & entry : messageDir()->message() ) {
      handleMessageRemoval( entry.key );
   }
}

Quill::Ptr< MessageDirSm >
messageDirSmFactory( Quill::Name name, Quill::Ptr< Config::Agent::MessageDir const > messageDir,
                     Quill::Ptr< AllIntf > allIntf ) {
   return Quill::make< MessageDirSm >( std::move( name ), std::move( messageDir ),
                                       std::move( allIntf ) );
}

// --- AgentConfigSm -------------------------------------------------------------------------------

AgentConfigSm::AgentConfigSm( Quill::Name name, Quill::Ptr< Quill::Dir const > agentDir,
                              Quill::Ptr< AllIntf > allIntf )
    : name_( std::move( name ) ), agentDir_( *this, std::move( agentDir ) ),
      allIntf_( std::move( allIntf ) ) {
   handleInitialized();
}

AgentConfigSm::~AgentConfigSm() {
   handleDestruction();
   quillDoZombieReactors( true );
}

void AgentConfigSm::messageDirSmIs( Quill::Name name,
                                    Quill::Ptr< Config::Agent::MessageDir const > messageDir,
                                    Quill::Ptr< AllIntf > allIntf ) {
   if ( !messageDir ) {
      messageDirSmDel();
      return;
   }
   messageDirSm_.replace( std::move( name ), std::move( messageDir ), std::move( allIntf ) );
}

void AgentConfigSm::messageDirSmDel() {
   messageDirSm_.retire();
}

void AgentConfigSm::handleInitialized() {
   TRACE0( "" );
   for ( auto const & entry : agentDir()->entry() ) {
      handleMessageDir( entry.key );
   }
}

void AgentConfigSm::handleMessageDir( Quill::Name name ) {
   TRACE0( "%s, %s", name_, name );
   if ( !agentDir()->entryHas( name ) ) {
      TRACE1( "removed messageDir" );
      messageDirSmDel();
      return;
   }
   auto const entity = agentDir()->entry( name );
   if ( !entity ) {
      TRACE1( "messageDir added but not yet instantiated" );
      return;
   }
   TRACE1( "added messageDir" );
   messageDirSmIs( name_, Quill::ptrCast< Config::Agent::MessageDir const >( entity ), allIntf_ );
}

void AgentConfigSm::handleDestruction() {
   TRACE0( "" );
   messageDirSmDel();
}

Quill::Ptr< AgentConfigSm > agentConfigSmFactory( Quill::Name name,
                                                  Quill::Ptr< Quill::Dir const > agentDir,
                                                  Quill::Ptr< AllIntf > allIntf ) {
   return Quill::make< AgentConfigSm >( std::move( name ), std::move( agentDir ),
                                        std::move( allIntf ) );
}

} // namespace Valen
