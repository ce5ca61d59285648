// Frames as the configuration writes them: hexadecimal digits, base64, or numbers of a capture
// file.
#pragma once

#include "settings/Config.h"
#include "settings/Hex.h"

#include <string>
#include <string_view>

namespace Settings {

// The frames that `text` stands for, in order:
//   0180c200000e 0200...      one, in hexadecimal (see Hex.h)
//   base64:AYDCAAAO...        one, in base64; blanks and line ends do not matter
//   pcap:FILE#1,3-5           those of a capture file, counted from 1. "pcapng:" is the same: the
//                             file says which of the two it is. FILE is relative to `folder`.
// Throws FrameError; what it says of a file begins with the file's path.
Frames framesOf( std::string_view text, std::string const & folder );

// The bytes that `text` spells in base64. Throws FrameError.
std::string bytesFromBase64( std::string_view text );

} // namespace Settings
