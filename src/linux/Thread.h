// Threads beside the event loop. They take no signal: those are the loop's.
#pragma once

#include <functional>
#include <thread>

namespace Valen::Linux {

// Starts a thread that runs `work`, which must not throw, with all signals blocked.
//   name   as ps(1) shows it, of at most 15 characters
// Throws std::system_error if no thread can be started.
std::thread startThread( char const * name, std::function< void() > work );

} // namespace Valen::Linux
