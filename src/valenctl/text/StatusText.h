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

// The table alone, from a list of interfaces. If they have a "host", with a column for it.
std::string interfacesText( Json const & interfaces, Palette const & palette = Palette::plain() );

// The status of several hosts, {"hosts": [...]}: each is the answer of Status with "host", "stale" and "rejected",
// a list of keys of the database and why the host rejects them; "state" may say more than "stale". A table of the hosts, one of the interfaces of all,
// and below them what needs attention.
std::string hostsText( Json const & answer, Palette const & palette = Palette::plain() );

// One interface in a few words: "up, ready, frames: lldp 2". Two texts differ exactly when something
// changed that `watch` prints a line for.
std::string interfaceText( Json const & interface );

} // namespace Valenctl
