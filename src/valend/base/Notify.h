// Service manager notification (sd_notify protocol).
#pragma once

#include <string>

namespace Valend {

// Sends `state` ("READY=1") to the socket in $NOTIFY_SOCKET. Returns whether it was sent; without that
// variable nothing is.
bool notifyManager( std::string const & state ) noexcept;

} // namespace Valend
