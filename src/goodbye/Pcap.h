// Writes frames as a capture file.
#pragma once

#include "goodbye/Layers.h"

#include <chrono>
#include <vector>

namespace Goodbye {

// The bytes of a pcap file of Ethernet frames, all captured at `time`.
std::string pcapFile( std::vector< Frame > const & frames,
                      std::chrono::system_clock::time_point time );

} // namespace Goodbye
