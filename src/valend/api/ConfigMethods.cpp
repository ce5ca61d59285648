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
   call->reply( configurationJson( parts_.configurator.active() ) );
}

void ConfigMethods::reload( Call const & call ) {
   call->reply( { { "changed", parts_.reload() } } );
}

void ConfigMethods::rescan( Call const & call ) {
   parts_.rescan();
   call->reply( Json::object() );
}

} // namespace Valend
