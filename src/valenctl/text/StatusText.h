// The status of interfaces as text.
#pragma once

#include "valenctl/text/Terminal.h"

#include <nlohmann/json.hpp>
#include <string>

namespace Valenctl {

using Json = nlohmann::json;

// The answer of Status: the delay, the table of interfaces, and below it what needs attention:
// frames that a device cannot send, links set down outside valend, conditions, faults.
std::string statusText( Json const & status, Palette const & palette = Palette::plain() );

// The table alone, from a list of interfaces.
std::string interfacesText( Json const & interfaces, Palette const & palette = Palette::plain() );

// One interface in a few words: "up, ready, frames: lldp 2". Two texts differ exactly when something
// changed that `watch` prints a line for.
std::string interfaceText( Json const & interface );

} // namespace Valenctl
