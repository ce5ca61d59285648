// Shutdowns as text: their steps, their results, and what enabling an interface did. A shutdown or a result that has
// a "host" is printed with it.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace Valenctl {

using Json = nlohmann::json;

// One step of a shutdown: "Ethernet1: 3 frames sent".
std::string stepText( Json const & step );

// Whether the step is one that a shutdown takes when nothing goes wrong. False when the shutdown has
// ended and the link is not down, or when valend goes on trying to set it down.
bool stepSucceeded( Json const & step );

// One interface of the answer of EnableMany: "Ethernet1: link up".
std::string enableText( Json const & result );

// One interface of the answer of Goodbye: "Ethernet1: 3 frames sent; link stays up".
std::string goodbyeText( Json const & result );

// The answer of History: a table with a line for each shutdown, the newest last.
std::string historyText( Json const & answer );

} // namespace Valenctl
