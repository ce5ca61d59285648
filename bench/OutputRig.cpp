#include "OutputRig.h"

#include <stdexcept>

namespace Valen::Bench {

OutputRig::OutputRig( U32 texts, std::size_t bytes )
    : texts_( texts ), ifIndex_( deviceIndex( "e0" ) ),
      message_( Quill::make< Config::Agent::Message >( "Ethernet1" ) ) {
   auto const & intfId = message_->intfId();
   for ( U32 i = 0; i < texts; ++i ) {
      message_->messageEnq( frame( bytes ) );
   }
   auto const intfMessage = Quill::make< IntfMessage >( intfId );
   intfMessage->messageIs( "lldp", message_ );
   auto const intf = Quill::make< Intf >( intfId, intfMessage );
   intf->deviceIs( { nullptr, "e0", ifIndex_ } );
   intf->intfStatusIs( Quill::make< Status::IntfStatus >( intfId ) );
   auto const intfConfig = Quill::make< Interface::IntfConfig >( intfId );
   intfConfig->adminShutdownDelaySupportedIs( true );
   auto const rawTxPam = provider_.newRawTxPam( "RawTxPam" );
   rawTxPam->netNsIs( Corvid::NamespaceName::defaultNamespace() );
   rawTxPam->enabledIs( true );
   intfIoSm_ =
      IntfIoSm::IntfIoSmIs( intf, rawTxPam, Gantry::TaskSchedulerRoot::findOrCreateScheduler(),
                            intfConfig, Quill::make< Config::ConfigDir >() );
}

OutputRig::~OutputRig() = default;

void OutputRig::output() {
   if ( intfIoSm_->outputMessages() != texts_ ) {
      throw std::runtime_error( "a packet was refused" );
   }
}

void OutputRig::outputBare() {
   for ( auto const & text : message_->message() ) {
      bare_.send( text.view(), ifIndex_ );
   }
}

} // namespace Valen::Bench
