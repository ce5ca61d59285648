// valend's reports about itself and about one interface, as text.
#pragma once

#include "valenctl/text/Terminal.h"

#include <nlohmann/json.hpp>
#include <string>

namespace Valenctl {

using Json = nlohmann::json;

// The answer of Explain: a line for each requirement of the interface's readiness, and for each speaker that is heard.
std::string explainText( std::string const & interface, Json const & answer,
                         Palette const & palette = Palette::plain() );

// The answer of Memory: a table with a line for each type, in the answer's order, and their sum.
std::string memoryText( Json const & answer );

// A line of the trace: "2026-01-31T12:00:00.123456Z ConfigSm/0 void Valen::...".
struct TraceLine {
   std::uint64_t timeNs = 0; // since 1970
   std::string unit;
   std::uint64_t level = 0;
   std::string text;
};
std::string traceText( TraceLine const & line );

} // namespace Valenctl
