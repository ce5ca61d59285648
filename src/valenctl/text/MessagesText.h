// Queued frames as text.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace Valenctl {

using Json = nlohmann::json;

// The answer of ListMessages: a table with a line for each agent and interface.
std::string messagesText( Json const & answer );

// The frames of an answer of Publish that the device cannot send, one line each.
std::string tooLongText( Json const & answer );

// One frame that `device` cannot send: "frame 1 of bgp (2014 bytes) exceeds the limit of eth1 (1514)
// and will not be sent". An empty `agent` is left out.
std::string tooLongFrameText( Json const & frame, std::string const & agent,
                              std::string const & device );

// How many frames, and how many bytes in all, a list of frames in hexadecimal has.
struct FrameTotals {
   std::size_t frames = 0;
   std::size_t bytes = 0;
};
FrameTotals frameTotals( Json const & frames );

} // namespace Valenctl
