#include "valend/shutdown/InterfaceDelay.h"

namespace Valend {

Quill::Ptr< Valen::Status::IntfStatus > InterfaceDelay::status() const {
   return store_.statusDir->intfStatus( intfId_ );
}

bool InterfaceDelay::isReady() const {
   auto const entry = status();
   return entry && entry->shouldDelay();
}

std::string InterfaceDelay::whyNever() const {
   if ( !store_.configDir->globalConfig() ) {
      return "delay disabled";
   }
   auto const config = store_.allIntfConfigDir->intfConfig( intfId_ );
   if ( !config ) {
      return "interface removed from the configuration";
   }
   return config->adminShutdownDelaySupported() ? "" : "delay disabled for this interface";
}

void InterfaceDelay::raiseFlag() const {
   if ( auto const config = store_.allIntfConfigDir->intfConfig( intfId_ ) ) {
      config->adminShutdownDelayedIs( true );
   }
}

void InterfaceDelay::lowerFlag() const {
   if ( auto const config = store_.allIntfConfigDir->intfConfig( intfId_ ) ) {
      config->adminShutdownDelayedIs( false );
   }
}

} // namespace Valend
