// Lets the library send an interface's frames, and counts which of them the kernel accepted.
#pragma once

#include "platform/gantry/TaskScheduler.h"
#include "valend/kernel/LinkPort.h"
#include "valend/shutdown/InterfaceDelay.h"
#include "valend/shutdown/ShutdownRecord.h"

#include <set>
#include <string>
#include <vector>

namespace Valend {

// A frame that is queued for an interface.
struct QueuedFrame {
   std::string agent;
   Quill::String bytes;
};

// The frames of the interface, in the order in which the library sends them.
std::vector< QueuedFrame > queuedFrames( InterfaceDelay const & delay, Store const & store );

// Raises the flag of `delay`, upon which the library sends the frames that agents have queued, and
// records in `record` what was sent and rejected, by agent and error, and how long it took.
//   queued   the interface's
//   place    of the interface's device
// Returns the numbers of those that the kernel rejected.
std::set< U32 > sendFrames( InterfaceDelay const & delay, std::vector< QueuedFrame > const & queued,
                            LinkPort const & port, LinkPlace const & place,
                            Gantry::TaskScheduler const & scheduler, ShutdownRecord & record );

} // namespace Valend
