// Other programs that valenctl asks.
#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace Valenctl {

struct ProgramOutput {
   int status; // the exit status; 128 and the signal's number if a signal ended it
   std::string out;
   std::string err;
};

// Runs a program, with an empty standard input, until it ends, and returns what it printed. The first
// of `arguments` is its path, or its name, which is searched for in PATH and in /usr/sbin, where
// programs for administrators are. Throws std::runtime_error when it cannot be run, or has not ended
// after `timeout`; it is killed then.
ProgramOutput outputOf( std::vector< std::string > const & arguments,
                        std::chrono::milliseconds timeout );

} // namespace Valenctl
