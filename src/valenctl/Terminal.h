// What the output is: a terminal, which can be coloured and redrawn, or a file or pipe.
#pragma once

#include <string>

namespace Valenctl {

struct Terminal {
   bool out = false;    // data goes to a terminal
   bool err = false;    // words do
   bool colour = false; // data may be coloured: NO_COLOR is not set
};

// Of this process's standard output and error.
Terminal terminalOfProcess();

enum class Colour : char { green = '2', red = '1', yellow = '3' };

// `text` in the colour; as it is when colours are off.
std::string coloured( std::string const & text, Colour colour, bool on );

} // namespace Valenctl
