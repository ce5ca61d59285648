// The configuration, and what is wrong with one, as text.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace Settings {
struct ConfigResult;
} // namespace Settings

namespace Valenctl {

using Json = nlohmann::json;

// The answer of Config: a table of all items with the file and line that each comes from.
std::string configText( Json const & answer );

// The result of checking a configuration: whether it is valid, the files read, all errors and
// warnings.
Json checkJson( Settings::ConfigResult const & result );

} // namespace Valenctl
