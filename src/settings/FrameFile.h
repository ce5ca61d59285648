// Frames out of capture files.
#pragma once

#include "settings/Config.h"

#include <string>
#include <string_view>

namespace Settings {

// The most frames that one text can ask for.
inline constexpr std::size_t maxFramesOfText = 10'000;

// The frames that `text`, "FILE#1,3-5", names, in its order. FILE is a pcap or pcapng file of whole
// Ethernet frames, relative to `folder`, which ends in "/" or is empty. Throws FrameError.
Frames framesFromFile( std::string_view text, std::string const & folder );

} // namespace Settings
