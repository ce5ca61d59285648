// What valenctl's commands do. Data goes to `out`, words to `err`.
#pragma once

#include "valenctl/Options.h"

#include <iosfwd>

namespace Valenctl {

// Carries out the command that the options hold, and says what the process ends with. Whatever goes
// wrong is said in one line.
Exit runCommand( Options const & options, std::ostream & out, std::ostream & err );

} // namespace Valenctl
