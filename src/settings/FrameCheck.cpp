#include "settings/FrameCheck.h"

#include "derivation/Derive.h"

namespace Settings {

std::string doubtAbout( std::string_view frame ) {
   auto const said = Derivation::derive( frame );
   if ( !said ) {
      return "";
   }
   if ( auto const * const malformed = std::get_if< Derivation::Malformed >( &*said ) ) {
      return malformed->protocol + ", malformed: " + malformed->reason;
   }
   auto const & heard = std::get< Derivation::Heard >( *said );
   return heard.leaves
             ? ""
             : heard.protocol + ", " + heard.speaker + ": says " + heard.says + "; not a goodbye";
}

} // namespace Settings
