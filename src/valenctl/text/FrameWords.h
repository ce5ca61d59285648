// What a frame says, as JSON and in words: of any protocol that valend knows.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace Valenctl {

using Json = nlohmann::json;

// The fields `protocol`, `speaker`, `says`, `goodbye` (whether it is one), `derived` (the goodbye that valend would derive
// from it, in hexadecimal), `change` (what that changes), `notDerived` (why it cannot) and `malformed` (the reason).
// What does not apply is null; all of a frame whose protocol valend does not know.
Json saidJson( std::string_view frame );

// The same in a line: "lldp, chassis 02:00:00:00:00:01, port eth0: says ttl 0; a goodbye".
std::string saidText( Json const & said );

// The same of a frame in hexadecimal; empty if it says nothing that valend knows.
std::string knownText( std::string const & hex );

} // namespace Valenctl
