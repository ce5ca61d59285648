// The agent's answers as a person reads them.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace Valenctl {

using Json = nlohmann::json;

// The status table, and below it what needs attention: frames that a device cannot take, VRFs in
// trouble, faults.
std::string statusText( Json const & status, bool colour = false );

// The table alone, of a list of interfaces.
std::string interfacesText( Json const & interfaces, bool colour = false );

// How many frames each agent has for an interface: "lldp 1, radv 2"; `none` when there are none.
std::string framesText( Json const & interface, char const * none );

// One step of a shutdown: "Ethernet1: 3 frames sent".
std::string stepText( Json const & answer );

// A line of the trace: "2026-01-31T12:00:00.123456Z ConfigSm/0 void Valen::...".
std::string traceText( std::uint64_t timeNs, std::string const & unit, std::uint64_t level,
                       std::string const & text );

} // namespace Valenctl
