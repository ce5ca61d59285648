#include "valenctl/command/FrameDecoding.h"

#include "settings/Counted.h"
#include "settings/Hex.h"
#include "valenctl/command/Session.h"
#include "valenctl/text/FrameWords.h"

namespace Valenctl {

Exit printDecoded( Session & session, Settings::FrameList const & frames,
                   FrameNotes const & notes ) {
   auto list = Json::array();
   std::string text;
   bool malformed = false;
   for ( auto const & frame : frames ) {
      auto said = saidJson( frame );
      malformed |= !said[ "malformed" ].is_null();
      auto const number = list.size() + 1;
      text += "frame " + std::to_string( number ) + ", " +
              Settings::counted( frame.size(), "byte" ) + ": " + saidText( said ) + "\n" +
              notes( number, frame );
      said[ "frame" ] = Settings::toHex( frame );
      list.push_back( std::move( said ) );
   }
   session.print( { { "frames", std::move( list ) } }, text );
   return malformed ? Exit::failed : Exit::done;
}

} // namespace Valenctl
