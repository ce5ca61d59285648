#include "settings/Goodbyes.h"

#include <utility>

namespace Settings {

Goodbyes Goodbyes::learned() {
   Goodbyes goodbyes;
   goodbyes.all_ = true;
   return goodbyes;
}

Goodbyes Goodbyes::of( Protocols protocols ) {
   Goodbyes goodbyes;
   goodbyes.protocols_ = std::move( protocols );
   return goodbyes;
}

std::string Goodbyes::text() const {
   if ( all_ ) {
      return "learned";
   }
   std::string list;
   for ( auto const & protocol : protocols_ ) {
      list += ( list.empty() ? "" : ", " ) + protocol;
   }
   return list.empty() ? "off" : "[" + list + "]";
}

} // namespace Settings
