#include "valenctl/text/Terminal.h"

#include <cstdlib>
#include <unistd.h>

namespace Valenctl {

std::string Palette::painted( std::string const & text, char color ) const {
   if ( mode_ == Mode::plain ) {
      return text;
   }
   return std::string( "\x1b[3" ) + color + "m" + text + "\x1b[0m";
}

Terminal terminalOfProcess() {
   Terminal terminal;
   terminal.out = ::isatty( STDOUT_FILENO );
   terminal.err = ::isatty( STDERR_FILENO );
   auto const * const noColor = std::getenv( "NO_COLOR" );
   if ( terminal.out && !( noColor && *noColor ) ) {
      terminal.palette = Palette::colored();
   }
   return terminal;
}

} // namespace Valenctl
