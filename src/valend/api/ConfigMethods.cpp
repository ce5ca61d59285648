#include "valend/api/ConfigMethods.h"

#include "valend/configuration/ConfigurationJson.h"

namespace Valend {

std::vector< Method > ConfigMethods::methods() {
   using Self = ConfigMethods;
   return {
      method( "Config", Right::read, *this, &Self::config ),
      method( "Reload", Right::change, *this, &Self::reload ),
      method( "Rescan", Right::change, *this, &Self::rescan ),
   };
}

void ConfigMethods::config( Call const & call ) {
   all_.to( call );
}

// As it is when the answer is begun.
SlowAnswer::Part ConfigMethods::configuration() const {
   auto const & active = parts_.configurator.active();
   return SlowAnswer::lists( { { "interfaces", configuredInterfaces( active ) },
                               { "messages", configuredMessages( active ) } },
                             [ rest = settingsJson( active ) ] { return rest; } );
}

void ConfigMethods::reload( Call const & call ) {
   parts_.reload( [ call ]( auto const & reloaded ) {
      if ( reloaded.rejected ) {
         return answer( *call, *reloaded.rejected );
      }
      auto notReady = Json::array();
      for ( auto const & [ interface, why ] : reloaded.notReady ) {
         notReady.push_back( { { "interface", interface }, { "why", why } } );
      }
      call->reply( { { "changed", reloaded.changes },
                     { "notReady", std::move( notReady ) },
                     { "warnings", reloaded.warnings } } );
   } );
}

void ConfigMethods::rescan( Call const & call ) {
   parts_.rescan();
   call->reply( Json::object() );
}

} // namespace Valend
