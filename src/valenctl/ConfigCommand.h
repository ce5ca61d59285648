// valenctl config check, config show and reload.
#pragma once

#include "valenctl/Options.h"
#include "varlink/Client.h"

#include <iosfwd>

namespace Valenctl {

using Varlink::Json;

// Says what is wrong with the configuration in a file and its drop-ins, a line for each error. Needs
// no agent. Varlink::Refused when anything is.
Exit checkConfig( Options const & options, std::ostream & out, std::ostream & err );

// Shows the configuration in force, each item with the file and line that it came from.
Exit showConfig( Options const & options, Varlink::Client & client, std::ostream & out );

// Has the agent read its configuration again, and says what changed, or all that is wrong.
Exit reload( Options const & options, Varlink::Client & client, std::ostream & out,
             std::ostream & err );

// The answer of the API's method Config as a table.
std::string configText( Json const & answer );

} // namespace Valenctl
