#include "valend/shutdown/Places.h"

#include <algorithm>

namespace Valend {

LinkPlace placeOf( Settings::Config const & config, Settings::InterfaceConfig const & interface ) {
   return { config.netNsOf( interface.vrf ), interface.device };
}

std::optional< LinkPlace > placeNow( Settings::Config const & config, std::string const & interface,
                                     LinkPlace const & before ) {
   auto const own = config.interfaces.find( interface );
   if ( own != config.interfaces.end() ) {
      return placeOf( config, own->second );
   }
   bool const taken =
      std::any_of( config.interfaces.begin(), config.interfaces.end(), [ & ]( auto const & other ) {
         return placeOf( config, other.second ) == before;
      } );
   return taken ? std::nullopt : std::optional( before );
}

} // namespace Valend
