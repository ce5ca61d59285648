#include "settings/Config.h"

#include "settings/Counted.h"

#include <algorithm>

namespace Settings {

std::string const & Config::netNsOf( std::string const & vrf ) const {
   static std::string const own = defaultVrf; // the namespace has the name of its VRF
   auto const found = vrfs.find( vrf );
   return found == vrfs.end() ? own : found->second;
}

bool Config::hasFrames( std::string const & interface ) const {
   return std::any_of( agents.begin(), agents.end(),
                       [ & ]( auto const & agent ) { return agent.second.contains( interface ); } );
}

Goodbyes const & Config::goodbyesOf( std::string const & interface ) const {
   static Goodbyes const none;
   auto const found = interfaces.find( interface );
   if ( found == interfaces.end() ) {
      return none;
   }
   return found->second.goodbyes ? *found->second.goodbyes : goodbyes;
}

std::string Config::summary() const {
   return counted( interfaces.size(), "interface" ) + ", " + counted( vrfs.size() + 1, "VRF" ) +
          ", " + counted( agents.size(), "agent" );
}

} // namespace Settings
