// Lets the library send an interface's frames, and counts which of them the kernel accepted.
#pragma once

#include "platform/gantry/TaskScheduler.h"
#include "valend/kernel/LinkPort.h"
#include "valend/shutdown/InterfaceDelay.h"
#include "valend/shutdown/ShutdownRecord.h"

namespace Valend {

// Raises the flag of `delay`, upon which the library sends the frames that agents have queued, and
// records in `record` what was sent and rejected, by agent and error, and how long it took.
//   place   of the interface's device
void sendFrames( InterfaceDelay const & delay, Store const & store, LinkPort const & port,
                 LinkPlace const & place, Gantry::TaskScheduler const & scheduler,
                 ShutdownRecord & record );

} // namespace Valend
