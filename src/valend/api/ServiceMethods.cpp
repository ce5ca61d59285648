#include "valend/api/ServiceMethods.h"

#include "settings/Version.h"
#include "valend/api/DescriptionTexts.h"

#include <map>

namespace Valend {

namespace {

std::map< std::string, char const * > const descriptions{
   { "org.valen.daemon", daemonDescription },
   { "org.varlink.service", serviceDescription },
};

} // namespace

std::vector< Method > ServiceMethods::methods() {
   using Self = ServiceMethods;
   return {
      method( "GetInfo", Right::none, *this, &Self::getInfo ),
      method( "GetInterfaceDescription", Right::none, *this, &Self::getInterfaceDescription ),
   };
}

void ServiceMethods::getInfo( Call const & call ) {
   call->reply( { { "vendor", "Valen" },
                  { "product", "valend" },
                  { "version", Settings::version },
                  { "url", "" },
                  { "interfaces", { "org.varlink.service", "org.valen.daemon" } } } );
}

void ServiceMethods::getInterfaceDescription( Call const & call, std::string const & interface ) {
   auto const found = descriptions.find( interface );
   if ( found == descriptions.end() ) {
      throw Varlink::Errors::interfaceNotFound( interface );
   }
   call->reply( { { "description", found->second } } );
}

} // namespace Valend
