#include "valend/kernel/Places.h"

#include <algorithm>
#include <utility>

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

Settings::InterfaceConfig const * InterfaceAt::find( LinkPlace const & place ) {
   if ( std::exchange( outdated_, false ) ) {
      names_.clear();
      for ( auto const & [ name, interface ] : config_.interfaces ) {
         names_.try_emplace( placeOf( config_, interface ), name );
      }
   }
   auto const isThere = [ & ]( auto const & interface ) {
      return placeOf( config_, interface.second ) == place;
   };
   auto const & interfaces = config_.interfaces;
   auto const name = names_.find( place );
   auto found = name == names_.end() ? interfaces.end() : interfaces.find( name->second );
   if ( found == interfaces.end() || !isThere( *found ) ) {
      found = std::find_if( interfaces.begin(), interfaces.end(), isThere );
   }
   return found == interfaces.end() ? nullptr : &found->second;
}

} // namespace Valend
