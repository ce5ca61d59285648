// What speakers say, from the frames that leave a device.
//
// A frame is complete from the destination address on, without its check sequence, with one 802.1Q or 802.1ad
// tag or none. It may be shorter than 60 bytes, since the device pads it, and a UDP checksum may be partial, since the
// device completes it.
#pragma once

#include "derivation/Heard.h"

#include <optional>
#include <string_view>
#include <variant>

namespace Derivation {

// A goodbye differs from the frame in its named fields, lengths and checksums only. Nothing for a frame
// that no speaker of a protocol known here sends.
std::optional< std::variant< Heard, Malformed > > derive( std::string_view frame );

} // namespace Derivation
