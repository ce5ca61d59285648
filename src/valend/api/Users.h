// The users behind a call, by name: for records and messages.
//
// Only local files are read, which never wait for another machine or process: getpwuid would also query
// name services, which may take seconds, and any user could cause that.
#pragma once

#include "varlink/Call.h"

#include <optional>
#include <string>

namespace Valend {

// The user's name in /etc/passwd, else "uid 1000".
std::string userName( U32 uid );

// The user who logged in, and from whose session the process stems, through any su or sudo. Nothing for
// a process of no session, such as a service, and for one that is gone or does not belong to the caller
// any more. `proc`: where procfs is mounted.
std::optional< U32 > loginOf( Varlink::Caller const & caller, std::string const & proc = "/proc" );

// The name of that user if it is not the caller: "alice" for a root shell that she got by sudo; else
// empty.
std::string loginBehind( Varlink::Caller const & caller, std::string const & proc = "/proc" );

} // namespace Valend
