// Frames as the configuration writes them: hexadecimal digits, base64, or frames of a capture file.
#pragma once

#include "settings/Frames.h"
#include "settings/Hex.h"

#include <string>
#include <string_view>

namespace Settings {

// The frames that `text` describes, in order:
//   0180c200000e 0200...      one, in hexadecimal (see Hex.h)
//   base64:AYDCAAAO...        one, in base64; whitespace does not matter
//   pcap:FILE#1,3-5           frames of a capture file, counted from 1. "pcapng:" means the same: the
//                             file's content decides which it is. FILE is relative to `directory`.
// Throws FrameError; an error of a file begins with the file's path.
FrameList framesOf( std::string_view text, std::string const & directory );

// The bytes of base64 text. Throws FrameError.
std::string bytesFromBase64( std::string_view text );

} // namespace Settings
