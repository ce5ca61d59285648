// Names that only valend, a database or the kernel know, for completion.
#pragma once

#include "valenctl/Completion.h"

namespace Valenctl {

class Session;

// The names of a kind, each with what it is. `netNs` is the namespace of local devices; empty for the
// process's own. None if they cannot be had, since errors would disturb completion.
std::vector< Candidate > names( Completion::Also kind, Session & session,
                                std::string const & netNs );

// The same of a database: hosts, and the interfaces of all hosts.
std::vector< Candidate > namesInDatabase( Completion::Also kind, std::string const & url );

} // namespace Valenctl
