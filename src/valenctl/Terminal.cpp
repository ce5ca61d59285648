#include "valenctl/Terminal.h"

#include <cstdlib>
#include <unistd.h>

namespace Valenctl {

Terminal terminalOfProcess() {
   Terminal terminal;
   terminal.out = ::isatty( STDOUT_FILENO );
   terminal.err = ::isatty( STDERR_FILENO );
   auto const * const noColour = std::getenv( "NO_COLOR" );
   terminal.colour = terminal.out && !( noColour && *noColour );
   return terminal;
}

std::string coloured( std::string const & text, Colour colour, bool on ) {
   return on ? std::string( "\x1b[3" ) + static_cast< char >( colour ) + "m" + text + "\x1b[0m"
             : text;
}

} // namespace Valenctl
