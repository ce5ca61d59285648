// Frames as hexadecimal digits, which whitespace and colons may separate.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace Settings {

// The shortest frame that can be sent: an Ethernet header.
inline constexpr std::size_t minFrameBytes = 14;

// What is wrong with the text of a frame, and what is expected.
class FrameError : public std::runtime_error {
 public:
   using runtime_error::runtime_error;
};
class HexError final : public FrameError {
 public:
   using FrameError::FrameError;
};

// The bytes of a frame. Throws HexError for a character that is not a digit, an odd number of digits,
// or fewer than minFrameBytes bytes.
std::string frameFromHex( std::string_view text );

// Three bytes as "0180c2".
std::string toHex( std::string_view bytes );

} // namespace Settings
