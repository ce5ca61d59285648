// The privileges of the process: what it may do, and which capabilities it lacks.
#pragma once

#include "linux/NetNs.h"

#include <string>
#include <vector>

namespace Valen::Linux {

enum class NetNsUse : U8 {
   own,  // only the process's own namespace is used
   named // others as well, which it enters
};

// The capabilities that it needs to send frames and to set links down, and that are not effective, by name:
// CAP_NET_ADMIN, CAP_NET_RAW; CAP_SYS_ADMIN to enter namespaces.
std::vector< std::string > missingCapabilities( NetNsUse use );

// Whether the kernel lets the process change links in the namespace, which may belong to a user namespace in
// which its capabilities do not count. Changes nothing and waits for nothing. Also true when that cannot be
// found out. Throws Quill::ErrnoException if the namespace cannot be entered.
bool mayChangeLinks( NetNs const & netNs );

} // namespace Valen::Linux
