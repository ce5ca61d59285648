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

std::string InterfaceDelay::whyNotReady() const {
   auto const never = whyNever();
   return never.empty() ? "interface not ready" : never;
}

// The library reads the delay when the flag is raised, and has one for all interfaces: it is another one
// during that write alone, which no other interface is part of.
void InterfaceDelay::raiseFlag( std::optional< std::chrono::milliseconds > delay ) const {
   auto const config = store_.allIntfConfigDir->intfConfig( intfId_ );
   if ( !config ) {
      return;
   }
   auto & global = *store_.globalConfig;
   auto const configured = global.shutdownDelayMs();
   if ( delay ) {
      global.shutdownDelayMsIs( static_cast< U16 >( delay->count() ) );
   }
   config->adminShutdownDelayedIs( true );
   global.shutdownDelayMsIs( configured );
}

void InterfaceDelay::lowerFlag() const {
   if ( auto const config = store_.allIntfConfigDir->intfConfig( intfId_ ) ) {
      config->adminShutdownDelayedIs( false );
   }
}

} // namespace Valend
