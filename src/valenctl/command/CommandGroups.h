// All commands by subject. Each function is in the source file of its name.
#pragma once

#include "valenctl/command/Command.h"

namespace Valenctl {

std::vector< CommandRow > linkCommands();    // shutdown, enable, goodbye
std::vector< CommandRow > statusCommands();  // status, list, explain, wait, history
std::vector< CommandRow > watchCommand();    // watch
std::vector< CommandRow > messageCommands(); // messages
std::vector< CommandRow > frameCommands();   // frame
std::vector< CommandRow > configCommands();  // config, reload
std::vector< CommandRow > daemonCommands();  // rescan, metrics, memory, show
std::vector< CommandRow > traceCommands();   // trace

} // namespace Valenctl
