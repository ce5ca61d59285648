#include "config/Config.h"

#include <algorithm>

namespace ValenConfig {

std::string const & Config::netNsOf( std::string const & vrf ) const {
   static std::string const own = defaultVrf; // the namespace bears the name of its VRF
   auto const found = vrfs.find( vrf );
   return found == vrfs.end() ? own : found->second;
}

bool Config::hasFrames( std::string const & interface ) const {
   return std::any_of( agents.begin(), agents.end(),
                       [ & ]( auto const & agent ) { return agent.second.contains( interface ); } );
}

std::string Config::summary() const {
   return std::to_string( interfaces.size() ) + " interfaces, " +
          std::to_string( vrfs.size() + 1 ) + " VRFs, " + std::to_string( agents.size() ) +
          " agents";
}

} // namespace ValenConfig
