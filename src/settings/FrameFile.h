// Frames of capture files.
#pragma once

#include "settings/Frames.h"

#include <string>
#include <string_view>

namespace Settings {

// The most frames that one text can name.
inline constexpr std::size_t maxFramesOfText = 10'000;

// The frames that `text`, "FILE#1,3-5", names, in its order. FILE is a pcap or pcapng file of complete
// Ethernet frames, relative to `directory`, which ends in "/" or is empty. Throws FrameError.
FrameList framesFromFile( std::string_view text, std::string const & directory );

// All frames of a capture file, at most maxFramesOfText. Throws FrameError.
FrameList allFramesOf( std::string const & file );

} // namespace Settings
