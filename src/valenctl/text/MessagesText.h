// Queued frames as text.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace Valenctl {

using Json = nlohmann::json;

// The answer of ListMessages: a table with a line for each agent and interface, and below it a line for each frame that
// valend has learned, or that says what valend knows.
std::string messagesText( Json const & answer );

// Where a frame was learned, of the type LearnedFrame: "chassis 02:00:00:00:00:01, port eth0: ttl 120 -> 0; heard 3 s ago,
// fresh for 117 s".
std::string learnedText( Json const & learned );
// Its end: "heard 3 s ago, fresh for 117 s". Also of the type HeardSpeaker.
std::string ageText( Json const & heard );

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
