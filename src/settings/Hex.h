// Frames as text: hexadecimal digits, which blanks, line ends and colons may separate.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace Settings {

// The shortest frame that can be sent: an Ethernet header.
inline constexpr std::size_t minFrameBytes = 14;

// What is wrong with a frame's text, and what was expected.
class FrameError : public std::runtime_error {
 public:
   using runtime_error::runtime_error;
};
class HexError final : public FrameError {
 public:
   using FrameError::FrameError;
};

// The bytes that `text` spells. Throws HexError for a character that is no digit, an odd number of
// digits or fewer than minFrameBytes bytes.
std::string frameFromHex( std::string_view text );

// "0180c2" of three bytes.
std::string toHex( std::string_view bytes );

} // namespace Settings
