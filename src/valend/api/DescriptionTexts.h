// The API's interface descriptions, as their files have them.
#pragma once

namespace Valend {

extern char const * const daemonDescription;  // org.valen.daemon.varlink
extern char const * const serviceDescription; // org.varlink.service.varlink

} // namespace Valend
