// The agent's longer answers as a person reads them.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace Valenctl {

using Json = nlohmann::json;

// A line for each requirement of an interface's readiness.
std::string explainText( std::string const & interface, Json const & answer, bool colour = false );

// A table with a line for each shutdown, the newest last.
std::string historyText( Json const & answer );

// A table with a line for each agent and interface.
std::string messagesText( Json const & answer );

// The frames that a device cannot take, a line each.
std::string tooLongText( Json const & answer );

// One interface in a few words: "up, ready, frames: lldp 2". Equal while nothing has changed that
// an operator would want a line for.
std::string interfaceText( Json const & interface );

// A moment: "2026-01-31T12:00:00.123Z".
std::string timeText( std::uint64_t msSince1970 );

} // namespace Valenctl
