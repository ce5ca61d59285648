// What valenctl exits with.
#pragma once

namespace Valenctl {

// The process's exit status. Each value has one meaning, which the man page documents.
enum class Exit : int {
   done = 0,
   failed = 1,       // valend rejected the request, or what was requested did not happen
   usage = 2,        // invalid command or option
   notConnected = 3, // cannot connect to valend, or the connection was lost
   timedOut = 4,     // no answer in time, or the awaited state was not reached in time
   notReady = 5,     // reloaded; interfaces that were ready are not any more
};

} // namespace Valenctl
