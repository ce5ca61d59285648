// Words to the service manager.
#pragma once

#include <string>

namespace Valend {

// Sends `state` ("READY=1") to the socket that NOTIFY_SOCKET names. Returns whether it was sent;
// without a service manager there is nothing to do.
bool notifyManager( std::string const & state ) noexcept;

} // namespace Valend
